// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string_view>
#include <unordered_set>
#include <utility>

namespace lumaret {
namespace {

using nlohmann::json;

constexpr const char* catchAllPattern = "*";

/// The principal from which encodedRule would make this member of the filter.
CertificatePrincipal principalIn(const json& filter, const std::string& name) {
  const auto field = [&](const char* key) -> std::optional<std::string> {
    const json::json_pointer place("/" + name + "/" + key);
    return filter.contains(place) && filter[place].is_string()
               ? std::optional(filter[place].get<std::string>())
               : std::nullopt;
  };
  return {field("CN"), field("O"), field("OU"), field("L")};
}

/// Whether the step returns true and throws nothing.
template <typename Step>
bool succeeds(Step step) {
  try {
    return step();
  } catch (...) {
    return false;
  }
}

}  // namespace

ChromeCertificatePolicyService::ChromeCertificatePolicyService(
    std::shared_ptr<ChromePreferencesStoring> preferences)
    : preferences_(std::move(preferences)) {}

void ChromeCertificatePolicyService::apply(const ClientIdentity& identity) const {
  const std::string rule = encodedRule(identity);

  std::vector<std::string> rules;
  // A value that cannot be read is never overwritten.
  const bool isStored = succeeds([&] {
    rules = replacingRule(rule, preferences_->readRules());
    preferences_->writeRules(rules);
    return preferences_->synchronize();
  });
  if (!isStored) {
    throw CertificateSelectorError::policyWriteFailed();
  }
  if (!succeeds([&] { return preferences_->readRules() == rules; })) {
    throw CertificateSelectorError::policyVerificationFailed();
  }
}

std::string ChromeCertificatePolicyService::encodedRule(const ClientIdentity& identity) {
  const auto subject = identity.subject.chromeFilterFields();
  if (subject.empty()) {
    throw CertificateSelectorError::certificateHasNoSubject();
  }
  json filter = {{"SUBJECT", subject}};
  const auto issuer = identity.issuer.chromeFilterFields();
  if (!issuer.empty()) {
    filter["ISSUER"] = issuer;
  }
  try {
    return json{{"filter", std::move(filter)}, {"pattern", catchAllPattern}}.dump();
  } catch (const json::exception&) {
    throw CertificateSelectorError::policyEncodingFailed();
  }
}

std::optional<std::string> ChromeCertificatePolicyService::rulePattern(const std::string& rule) {
  // The parser takes a zero byte for the end of its input. JSON has none.
  if (rule.find('\0') != std::string::npos) {
    return std::nullopt;
  }
  const json parsed = json::parse(rule, nullptr, /*allow_exceptions=*/false);
  const auto pattern = parsed.find("pattern");  // end() in anything but an object.
  return pattern != parsed.end() && pattern->is_string()
             ? std::optional(pattern->get<std::string>())
             : std::nullopt;
}

std::vector<std::string> ChromeCertificatePolicyService::replacingRule(
    const std::string& newRule, const std::vector<std::string>& rules) {
  std::vector<std::string> result = rules;
  const auto first = std::find_if(result.begin(), result.end(), isForEverySite);
  if (first == result.end()) {
    result.push_back(newRule);
  } else {
    *first = newRule;
    result.erase(std::remove_if(first + 1, result.end(), isForEverySite), result.end());
  }
  return result;
}

std::vector<std::string> ChromeCertificatePolicyService::withdrawingRule(
    const std::vector<std::string>& own, const std::vector<std::string>& others) {
  const std::unordered_set<std::string_view> known(others.begin(), others.end());
  const auto isKept = [&](const std::string& rule) {
    return !isForEverySite(rule) && !known.contains(rule);
  };
  std::vector<std::string> result;
  std::copy_if(own.begin(), own.end(), std::back_inserter(result), isKept);
  if (!result.empty()) {
    result.insert(result.begin(), others.begin(), others.end());
  }
  return result;
}

bool ChromeCertificatePolicyService::isForEverySite(const std::string& rule) {
  return rulePattern(rule) == catchAllPattern;
}

std::optional<ClientIdentity> ChromeCertificatePolicyService::filterOf(const std::string& rule) {
  const json parsed = json::parse(rule, nullptr, /*allow_exceptions=*/false);
  const auto filter = parsed.find("filter");  // end() in anything but an object.
  return filter != parsed.end() && filter->is_object()
             ? std::optional(ClientIdentity{"", principalIn(*filter, "SUBJECT"),
                                            principalIn(*filter, "ISSUER"), Date()})
             : std::nullopt;
}

bool ChromeCertificatePolicyService::isEncodedRule(const std::string& rule) {
  return succeeds([&] { return encodedRule(filterOf(rule).value()) == rule; });
}

}  // namespace lumaret
