// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <exception>
#include <iterator>
#include <memory>

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

Findings findingsOn(const ClientIdentity& identity, const PlatformTexts& texts) {
  std::string rule;
  bool isAsked = false;
  Findings findings = {{"certificate", "certificate " + shown(identity), ""},
                       tried("name", "names that a rule can match", getAnother,
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

/// Among all identities, expired ones too.
Findings findingsOn(std::vector<ClientIdentity> identities, const std::string& wanted,
                    const PlatformTexts& texts) {
  std::erase_if(identities, [&](const auto& each) { return !wanted.empty() && each.id != wanted; });
  const bool isThere = !identities.empty();
  std::erase_if(identities,
                [now = currentDate()](const auto& each) { return each.expiresAt <= now; });
  if (identities.size() == 1) {
    return findingsOn(identities.front(), texts);
  }
  if (identities.empty()) {
    return {{"certificate", "a valid certificate with its key",
             isThere ? std::string("It has expired. ") + getAnother : texts.missingCertificate}};
  }
  return {{"certificate",
           std::to_string(identities.size()) +
               " valid certificates (to check one, name its fingerprint)",
           ""}};
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
  const std::string place =
      texts.database.empty() ? "Keychain" : "certificate database " + texts.database;
  add({tried("database", place, texts.unreadableDatabase, [&] {
    const auto query = std::make_shared<SystemKeychainIdentityQuery>();
    identities = KeychainIdentityLoader(query, [] { return Date::min(); }).loadIdentities();
  })});
  if (findings.back().cure.empty()) {
    findings.back().cure = texts.missingDatabase;
    add(findingsOn(identities, wanted, texts));
  }

  std::vector<RuleSource> sources;
  add({tried("rules", "readable rules of " + texts.browser, texts.unreadableRules,
             [&] { sources = ruleSources(); })});
  add({{"override", "nothing that overrides the rule of activate",
        sources.empty() || sources.back().rank <= 0
            ? ""
            : sources.back().name + " does. " + texts.overridingRules}});
  add(platformFindings());

  bool isGood = true;
  std::string text;
  auto list = nlohmann::json::array();
  for (const auto& [check, condition, cure] : findings) {
    const bool holds = cure.empty();
    isGood = isGood && holds;
    text.append(holds ? "ok  " : "NO  ").append(condition).append("\n");
    text.append(holds ? "" : "    " + cure + "\n");
    list.push_back({{"check", check},
                    {"holds", holds},
                    {"text", condition},
                    {"cure", holds ? nlohmann::json() : nlohmann::json(cure)}});
  }
  return {text, {{"ok", isGood}, {"database", texts.database}, {"findings", list}}};
}

}  // namespace lumaret
