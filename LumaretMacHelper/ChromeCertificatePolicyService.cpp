// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"

#include <nlohmann/json.hpp>
#include <utility>

namespace lumaret {
namespace {

using nlohmann::json;

constexpr const char* catchAllPattern = "*";

}  // namespace

ChromeCertificatePolicyService::ChromeCertificatePolicyService(
    std::shared_ptr<ChromePreferencesStoring> preferences)
    : preferences_(std::move(preferences)) {}

void ChromeCertificatePolicyService::apply(const ClientIdentity& identity) const {
  const std::string rule = encodedRule(identity);

  std::vector<std::string> rules;
  bool isStored = false;
  try {
    rules = replacingRule(rule, preferences_->readRules());
    preferences_->writeRules(rules);
    isStored = preferences_->synchronize();
  } catch (...) {
    // Not stored. A value that cannot be read is never overwritten.
  }
  if (!isStored) {
    throw CertificateSelectorError::policyWriteFailed();
  }

  std::vector<std::string> stored;
  try {
    stored = preferences_->readRules();
  } catch (...) {
    throw CertificateSelectorError::policyVerificationFailed();
  }
  if (stored != rules) {
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
  // The parser takes a zero byte for the end of its input; no JSON holds one.
  if (rule.find('\0') != std::string::npos) {
    return std::nullopt;
  }
  const json parsed = json::parse(rule, nullptr, /*allow_exceptions=*/false);
  if (!parsed.is_object()) {
    return std::nullopt;
  }
  const auto pattern = parsed.find("pattern");
  if (pattern == parsed.end() || !pattern->is_string()) {
    return std::nullopt;
  }
  return pattern->get<std::string>();
}

std::vector<std::string> ChromeCertificatePolicyService::replacingRule(
    const std::string& newRule, const std::vector<std::string>& rules) {
  std::vector<std::string> result;
  bool inserted = false;
  for (const std::string& rule : rules) {
    if (rulePattern(rule) != catchAllPattern) {
      result.push_back(rule);
    } else if (!inserted) {
      result.push_back(newRule);
      inserted = true;
    }
  }
  if (!inserted) {
    result.push_back(newRule);
  }
  return result;
}

}  // namespace lumaret
