// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <variant>

#include "LumaretMacHelper/ChromeRule/ChromeRule.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"

namespace lumaret {
namespace {

using nlohmann::json;

/// The values of a name's attributes, by Chrome's keys, in the order of the name.
using Attributes = std::multimap<std::string, std::string>;

void collect(const OptionalCertificateProperty& property, Attributes& attributes) {
  static const std::map<std::string, std::string> keys = {
      {"2.5.4.3", "CN"}, {"2.5.4.7", "L"}, {"2.5.4.10", "O"}, {"2.5.4.11", "OU"}};
  const auto textOf = [](const OptionalCertificateProperty& part) {
    const auto* text = part ? std::get_if<std::string>(&part->value) : nullptr;
    return text != nullptr ? *text : std::string();
  };
  if (!property) {
    return;
  }
  if (const auto* elements = std::get_if<CertificatePropertyArray>(&property->value)) {
    for (const CertificateProperty& element : *elements) {
      collect({property, &element}, attributes);
    }
  } else if (const auto* entry = std::get_if<CertificatePropertyDictionary>(&property->value)) {
    const auto key = keys.find(textOf(entry->label));
    if (const std::string text = textOf(entry->value); key != keys.end() && !text.empty()) {
      attributes.emplace(key->second, text);
    }
    collect(entry->value, attributes);
  }
}

/// As Chrome decides it: of several organizations, or units of one, any may be meant, and of other
/// attributes the first.
bool hasFields(const OptionalCertificateProperty& name, const json& fields) {
  Attributes attributes;
  collect(name, attributes);
  return std::ranges::all_of(fields.items(), [&](const auto& field) {
    const auto [first, last] = attributes.equal_range(field.key());
    const bool isList = field.key().starts_with('O');
    return std::any_of(first, first == last || isList ? last : std::next(first),
                       [&](const auto& each) { return field.value() == each.second; });
  });
}

}  // namespace

json filterOf(const std::string& rule) {
  const json parsed = json::parse(rule, nullptr, /*allow_exceptions=*/false);
  const auto filter = parsed.find("filter");  // end() in anything but an object.
  if (filter == parsed.end() || !filter->is_object()) {
    return nullptr;
  }
  const auto fieldsOf = [&](const std::string& name) {
    json fields = json::object();
    for (const char* key : {"CN", "L", "O", "OU"}) {
      const json::json_pointer place("/" + name + "/" + key);
      if (filter->contains(place) && filter->at(place).is_string() && filter->at(place) != "") {
        fields[key] = filter->at(place);
      }
    }
    return fields;
  };
  return {{"subject", fieldsOf("SUBJECT")}, {"issuer", fieldsOf("ISSUER")}};
}

std::vector<ClientIdentity> identitiesSelectedBy(const std::vector<std::string>& rules) {
  std::set<std::string> selected;
  for (const KeychainIdentity& handle : SystemKeychainIdentityQuery().copyIdentities()) {
    const auto certificate = handle.copyCertificate();
    const auto matches = [&](const std::string& rule) {
      const json filter = filterOf(rule);
      return !filter.is_null() && hasFields(certificate->values->subjectName, filter["subject"]) &&
             hasFields(certificate->values->issuerName, filter["issuer"]);
    };
    if (certificate && certificate->values && std::ranges::any_of(rules, matches) &&
        isOffered(certificate->data)) {
      selected.insert(fingerprint(certificate->data));
    }
  }
  auto identities = KeychainIdentityLoader().loadIdentities();
  std::erase_if(identities, [&](const auto& identity) { return !selected.contains(identity.id); });
  return identities;
}

std::string shown(const ClientIdentity& identity) {
  return identity.id + " " + json(identity.displayName()).dump();
}

}  // namespace lumaret
