// SPDX-License-Identifier: Apache-2.0
#include "Tests/OverStandIn/AppleFrameworks/MachineFile.hpp"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>

#include "Tests/OverStandIn/AppleFrameworks/UnicodeConversion.hpp"

namespace standin {
namespace {

using nlohmann::json;

const char* machineFile() { return std::getenv("LUMARET_STAND_IN_MACHINE"); }

Text text(const std::string& utf8) { return fromUTF8(utf8).value(); }

Bytes bytes(const std::string& text) { return {text.begin(), text.end()}; }

AccessListEntry entry(const json& description) {
  AccessListEntry entry;
  description.at("authorizations").get_to(entry.authorizations);
  if (!description.at("applications").is_null()) {
    entry.applications = description.at("applications").get<std::vector<std::string>>();
  }
  entry.description = text(description.at("description"));
  description.at("promptSelector").get_to(entry.promptSelector);
  return entry;
}

Identity identity(const json& description) {
  Identity identity;
  description.at("certificate").get_to(identity.name);
  identity.certificate = bytes(identity.name);
  identity.certificateValues = std::get<Dictionary>(valueOf(description.at("values")).content);
  if (description.contains("accessList")) {
    identity.privateKey = std::make_shared<PrivateKey>();
    if (const json& list = description.at("accessList"); !list.is_null()) {
      identity.privateKey->accessList.emplace();
      for (const json& element : list) {
        identity.privateKey->accessList->push_back(entry(element));
      }
    }
  }
  return identity;
}

/// A status, or null for success with nothing. For only one call, an object with the number of the
/// call, the answer and, if it matters, the number of entries that are stored before a failure.
Answer answer(const json& failure) {
  if (failure.is_object()) {
    return answer(failure.at("answer"))
        .afterEntries(failure.value("afterEntries", 0U))
        .onCall(failure.at("call"));
  }
  return failure.is_null() ? Answer::nothing() : Answer::status(failure);
}

void requireNothingLeft() {
  if (const std::size_t left = liveObjects(); left != 0) {
    std::fprintf(stderr, "%zu objects were not released.\n", left);
    std::_Exit(EXIT_FAILURE);
  }
}

}  // namespace

Value valueOf(const json& description) {
  if (description.is_string()) {
    return {text(description)};
  }
  if (description.is_boolean()) {
    return {description.get<bool>()};
  }
  if (description.is_number()) {
    return {description.get<double>()};
  }
  if (description.is_array()) {
    List list;
    for (const json& element : description) {
      list.push_back(valueOf(element));
    }
    return {std::move(list)};
  }
  if (description.contains("date")) {
    return {Date{description.at("date")}};
  }
  if (description.contains("data")) {
    return {description.at("data").get<Bytes>()};
  }
  Dictionary dictionary;
  for (const auto& [key, member] : description.items()) {
    dictionary.emplace(text(key), valueOf(member));
  }
  return {std::move(dictionary)};
}

json descriptionOf(const Value& value) {
  if (const auto* string = std::get_if<Text>(&value.content)) {
    return toUTF8(*string).text;
  }
  if (const auto* number = std::get_if<double>(&value.content)) {
    return *number;
  }
  if (const auto* boolean = std::get_if<bool>(&value.content)) {
    return *boolean;
  }
  json description = json::array();
  if (const auto* dictionary = std::get_if<Dictionary>(&value.content)) {
    description = json::object();
    for (const auto& [key, member] : *dictionary) {
      description[toUTF8(key).text] = descriptionOf(member);
    }
    return description;
  }
  for (const Value& element : std::get<List>(value.content)) {
    description.push_back(descriptionOf(element));
  }
  return description;
}

json descriptionOf(const AccessListEntry& entry) {
  return {{"authorizations", entry.authorizations},
          {"applications", entry.applications ? json(*entry.applications) : json(nullptr)},
          {"description", toUTF8(entry.description.value()).text},
          {"promptSelector", entry.promptSelector}};
}

Machine readMachineFile() {
  Machine machine;
  if (machineFile() == nullptr) {
    return machine;
  }
  std::atexit(requireNothingLeft);
  const json file = json::parse(std::ifstream(machineFile()));
  for (const json& description : file.at("identities")) {
    machine.identities.push_back(identity(description));
  }
  for (const auto& [application, values] : file.at("preferences").items()) {
    machine.preferences[application] = std::get<Dictionary>(valueOf(values).content);
  }
  const json mandatory = file.value("mandatoryPreferences", json::object());
  for (const auto& [application, values] : mandatory.items()) {
    machine.mandatoryPreferences[application] = std::get<Dictionary>(valueOf(values).content);
  }
  file.at("runningApplications").get_to(machine.runningApplications);
  for (const auto& [function, failure] : file.at("failures").items()) {
    machine.answer(function, answer(failure));
  }
  return machine;
}

void writeMachineFile() {
  if (machineFile() == nullptr) {
    return;
  }
  json file = json::parse(std::ifstream(machineFile()));
  for (std::size_t index = 0; index < machine().identities.size(); ++index) {
    const auto& key = machine().identities[index].privateKey;
    if (key && key->accessList) {
      json list = json::array();
      for (const AccessListEntry& stored : *key->accessList) {
        list.push_back(descriptionOf(stored));
      }
      file["identities"][index]["accessList"] = list;
    }
  }
  for (const auto& [application, values] : machine().preferences) {
    file["preferences"][application] = json::object();
    for (const auto& [key, stored] : values) {
      file["preferences"][application][toUTF8(key).text] = descriptionOf(stored);
    }
  }
  std::ofstream(machineFile()) << file;
}

}  // namespace standin
