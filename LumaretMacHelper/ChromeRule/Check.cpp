// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <exception>
#include <iterator>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/ChromeLauncher.hpp"
#include "LumaretMacHelper/ChromeRule/ChromeRule.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"

namespace lumaret {
namespace {

using Findings = std::vector<Finding>;

constexpr const char* getAnother = "Ask whoever issued it for another one.";

/// If the step fails, the condition does not hold, and its message comes before the cure.
template <typename Step>
Finding tried(const char* check, const std::string& condition, const std::string& cure, Step step) {
  try {
    step();
    return {check, condition, ""};
  } catch (const std::exception& error) {
    return {check, condition, std::string(error.what()) + " " + cure};
  }
}

/// Whether there is an identity with this fingerprint, valid or not.
bool isThere(const std::string& wanted) {
  const auto identities = SystemKeychainIdentityQuery().copyIdentities();
  return std::ranges::any_of(identities, [&](const KeychainIdentity& identity) {
    const auto certificate = identity.hasPrivateKey() ? identity.copyCertificate() : std::nullopt;
    return certificate && fingerprint(certificate->data) == wanted;
  });
}

Finding findingOn(const std::vector<ClientIdentity>& identities, const std::string& wanted,
                  const PlatformTexts& texts) {
  if (identities.size() > 1) {
    return {"certificate",
            std::to_string(identities.size()) +
                " valid certificates (to check one, name its fingerprint)",
            ""};
  }
  return identities.empty()
             ? Finding{"certificate", "a valid certificate with its key",
                       isThere(wanted)
                           ? std::string("It has expired or cannot be read. ") + getAnother
                           : texts.missingCertificate}
             : Finding{"certificate", "certificate " + shown(identities.front()), ""};
}

Findings findingsOn(const ClientIdentity& identity, const PlatformTexts& texts) {
  std::string rule;
  bool isAsked = false;
  Findings findings = {tried("name", "names that a rule can match", getAnother,
                             [&] { rule = ChromeCertificatePolicyService::encodedRule(identity); }),
                       tried("key", "a key that Chrome may use", texts.guardedKey,
                             [&] { isAsked = rehearseAuthorization(identity); })};
  if (isAsked) {
    findings.back().condition = "a key that Chrome may use once you confirm it";
  }
  if (!rule.empty()) {
    auto selected = identitiesSelectedBy({rule});
    const bool isSelected = std::erase(selected, identity) > 0;
    findings.push_back({"usage", "a certificate that " + texts.browser + " offers",
                        isSelected ? ""
                                   : std::string("It is not valid yet, or its key usage does not "
                                                 "allow client authentication. ") +
                                         getAnother});
    findings.push_back({"match", "no other certificate with these names",
                        selected.empty() ? ""
                                         : "It also selects " + shown(selected.front()) +
                                               ". Remove one of them, or have the policy "
                                               "PromptOnMultipleMatchingCertificates set."});
  }
  return findings;
}

Findings findingsOnRules(const PlatformTexts& texts) {
  std::vector<RuleSource> sources;
  Findings findings = {tried("rules", "readable rules of " + texts.browser, texts.unreadableRules,
                             [&] { sources = ruleSources(); })};
  findings.push_back({"override", "nothing that overrides the rule of activate",
                      sources.empty() || sources.back().rank <= 0
                          ? ""
                          : sources.back().name + " does. " + texts.overridingRules});
  return findings;
}

}  // namespace

Report check(const std::string& wanted) {
  const PlatformTexts texts = platformTexts();
  const std::string executable = ChromeLauncher::defaultExecutableURL();
  Findings findings = {{"browser", texts.browser + " at " + executable,
                        ChromeLauncher().isChromeInstalled()
                            ? ""
                            : "Install it, or on Linux Chromium. Those of Snap and Flatpak are "
                              "elsewhere."}};
  const auto add = [&](Findings more) { std::ranges::move(more, std::back_inserter(findings)); };
  std::vector<ClientIdentity> identities;
  add({tried("database", texts.certificates, texts.unreadableCertificates, [&] {
    identities = KeychainIdentityLoader().loadIdentities();
    if (!wanted.empty()) {
      std::erase_if(identities, [&](const auto& identity) { return identity.id != wanted; });
    }
  })});
  const bool isRead = findings.back().cure.empty();
  findings.back().cure = isRead ? texts.missingDatabase : findings.back().cure;
  if (isRead) {
    add({findingOn(identities, wanted, texts)});
  }
  if (identities.size() == 1) {
    add(findingsOn(identities.front(), texts));
  }
  add(findingsOnRules(texts));
  add(platformFindings());

  Report report{"", nlohmann::json::array()};
  for (const auto& [check, condition, cure] : findings) {
    const bool holds = cure.empty();
    report.isGood = report.isGood && holds;
    report.text += (holds ? "ok  " + condition : "NO  " + condition + "\n    " + cure) + "\n";
    report.json.push_back({{"check", check},
                           {"holds", holds},
                           {"text", condition},
                           {"cure", holds ? nlohmann::json() : nlohmann::json(cure)}});
  }
  report.json = {
      {"ok", report.isGood}, {"database", texts.database}, {"findings", std::move(report.json)}};
  return report;
}

}  // namespace lumaret
