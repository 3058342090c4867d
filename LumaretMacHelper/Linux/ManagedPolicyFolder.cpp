// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/ManagedPolicyFolder.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/Linux/PolicyFile.hpp"

namespace lumaret {
namespace {

using json = nlohmann::ordered_json;  // Keeps the other policies of the tool's file in their order.

constexpr const char* policyName = "AutoSelectCertificateForUrls";

/// Chrome's reader refuses what nests deeper (measured with Chromium 156).
constexpr int maximumDepth = 199;

/// Chrome allows comments in policies, and so do administrators. Discarded where Chrome's reader
/// finds nothing in force: the text is no JSON, nests too deep, or holds a zero byte, which the
/// parser here would take for its end.
json parsePolicies(const std::string& text) {
  bool isUnreadable = text.find('\0') != std::string::npos;
  const auto watch = [&isUnreadable](int depth, json::parse_event_t event, const json&) {
    isUnreadable |= depth >= maximumDepth && (event == json::parse_event_t::object_start ||
                                              event == json::parse_event_t::array_start);
    return !isUnreadable;
  };
  json policies = json::parse(text, watch, /*allow_exceptions=*/false, /*ignore_comments=*/true);
  if (isUnreadable) {
    policies = json::value_t::discarded;
  }
  return policies;
}

bool isBlank(const std::string& text) {
  return text.find_first_not_of(" \t\r\n") == std::string::npos;
}

/// Whether a text that does not parse here might give Chrome a value for the policy. A name may
/// also be spelled with escapes.
bool maySpeakOfRules(const std::string& text) {
  return text.find(policyName) != std::string::npos || text.find("\\u") != std::string::npos ||
         text.find("\\x") != std::string::npos;
}

/// The file's value for the policy, or nothing.
std::optional<json> storedValue(const std::string& text, bool isOwnFile) {
  json policies = parsePolicies(text);
  if (!policies.is_object()) {
    if (isOwnFile ? !isBlank(text) : maySpeakOfRules(text)) {
      throw ChromePreferencesError();
    }
    return std::nullopt;
  }
  const auto found = policies.find(policyName);
  return found == policies.end() ? std::nullopt : std::optional(std::move(*found));
}

std::vector<std::string> texts(const json& value) {
  if (!value.is_array() ||
      !std::all_of(value.begin(), value.end(), [](const json& item) { return item.is_string(); })) {
    throw ChromePreferencesError();
  }
  return value.get<std::vector<std::string>>();
}

/// A link without an end is no file; any other error leaves open what Chrome finds there.
bool leadsNowhere(const std::error_code& error) {
  return error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory ||
         error == std::errc::too_many_symbolic_link_levels;
}

/// In the order in which Chrome lets a later file win: that of the names' bytes.
std::vector<std::filesystem::path> regularFiles(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> files;
  std::error_code error;
  std::filesystem::directory_iterator entries(folder, error);
  if (error == std::errc::no_such_file_or_directory) {
    return files;
  }
  if (error) {
    throw std::system_error(error, folder.string());
  }
  for (const auto& entry : entries) {
    if (entry.is_regular_file(error)) {
      files.push_back(entry.path());
    } else if (error && !leadsNowhere(error)) {
      throw std::system_error(error, entry.path().string());
    }
  }
  std::sort(files.begin(), files.end(),
            [](const auto& left, const auto& right) { return left.native() < right.native(); });
  return files;
}

}  // namespace

ManagedPolicyFolder::ManagedPolicyFolder(std::filesystem::path folder)
    : folder_(std::move(folder)) {}

std::vector<std::string> ManagedPolicyFolder::readRules() const {
  // Every file is looked at, those that are overruled too: what is unclear in one now may be in
  // force as soon as another goes.
  std::optional<json> effective;
  for (const auto& file : regularFiles(folder_)) {
    if (auto value = storedValue(readPolicyFile(file).value_or(""), file == ownFile())) {
      effective = std::move(value);
    }
  }
  return effective ? texts(*effective) : std::vector<std::string>();
}

void ManagedPolicyFolder::writeRules(const std::vector<std::string>& rules) const {
  const std::string text = readPolicyFile(ownFile()).value_or("");
  json policies = isBlank(text) ? json::object() : parsePolicies(text);
  if (!policies.is_object()) {
    throw ChromePreferencesError();
  }
  policies[policyName] = rules;
  writePolicyFile(ownFile(), policies.dump(2) + "\n");
}

bool ManagedPolicyFolder::synchronize() const { return synchronizeFolder(folder_); }

}  // namespace lumaret
