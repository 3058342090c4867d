// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/PolicyText.hpp"

#include <algorithm>
#include <cstddef>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"

namespace lumaret {
namespace {

using nlohmann::json;

constexpr std::size_t maximumDepth = 199;

bool isNestedWithin(const json& value, std::size_t depth) {
  return !value.is_structured() ||
         (depth > 0 && std::all_of(value.begin(), value.end(), [&](const json& member) {
            return isNestedWithin(member, depth - 1);
          }));
}

}  // namespace

bool PolicyText::maySpeakOfRules(const std::string& text) {
  return text.find(rulesPolicy) != std::string::npos || text.find("\\u") != std::string::npos ||
         text.find("\\x") != std::string::npos;
}

std::optional<PolicyText> PolicyText::parse(const std::string& text) {
  // The parser would take a zero byte for the end of the text.
  if (text.find('\0') != std::string::npos) {
    return std::nullopt;
  }
  json policies = json::parse(text, nullptr, /*allow_exceptions=*/false, /*ignore_comments=*/true);
  if (!policies.is_object() || !isNestedWithin(policies, maximumDepth)) {
    return std::nullopt;
  }
  return PolicyText(std::move(policies));
}

bool PolicyText::hasRules() const { return policies_.contains(rulesPolicy); }

std::vector<std::string> PolicyText::rules() const {
  try {
    return policies_.at(rulesPolicy).get<std::vector<std::string>>();
  } catch (const json::exception&) {
    throw ChromePreferencesError();
  }
}

std::string PolicyText::withRules(const std::vector<std::string>& rules) const {
  json policies = policies_;
  policies[rulesPolicy] = rules;
  try {
    return policies.dump(2) + "\n";
  } catch (const json::exception&) {
    throw ChromePreferencesError();
  }
}

std::optional<std::string> PolicyText::withoutRules() const {
  json policies = policies_;
  policies.erase(rulesPolicy);
  return policies.empty() ? std::nullopt : std::optional(policies.dump(2) + "\n");
}

}  // namespace lumaret
