// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/ChromeRule/ChromeRule.hpp"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <functional>
#include <set>
#include <utility>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/ChromeLauncher.hpp"
#include "LumaretMacHelper/PlatformFunctions.hpp"

namespace lumaret {
namespace {

using nlohmann::json;
using Rules = std::vector<std::string>;
using Sources = std::vector<RuleSource>;

constexpr int usageStatus = 2;
constexpr const char* usage =
    "Usage: lumaret-chrome-rule show | clear | check [FINGERPRINT] [--json]\n";

bool isForEverySite(const std::string& rule) {
  return ChromeCertificatePolicyService::isForEverySite(rule);
}

std::set<std::string> rulesForSites(const Rules& rules) {
  std::set<std::string> result(rules.begin(), rules.end());
  std::erase_if(result, isForEverySite);
  return result;
}

Rules rulesInForce(const Sources& sources) {
  return sources.empty() ? Rules() : sources.back().rules;
}

auto ownSource(const Sources& sources) { return std::ranges::find(sources, 0, &RuleSource::rank); }

bool hasOwnRule(const Sources& sources) {
  const auto own = ownSource(sources);
  return own != sources.end() && std::ranges::any_of(own->rules, isForEverySite);
}

/// Which rules are stored and not in force.
Rules obstacles(const Sources& sources) {
  const auto own = ownSource(sources);
  if (hasOwnRule(sources) && own->name != sources.back().name) {
    return {sources.back().name + " overrides " + own->name + "."};
  }
  if (own != sources.end() && own + 1 == sources.end() && own != sources.begin() &&
      rulesForSites(own->rules) != rulesForSites((own - 1)->rules)) {
    return {own->name + " overrides " + (own - 1)->name +
            ", and its copy of the rules for sites is out of date. Clear the rule and activate it "
            "again."};
  }
  return {};
}

std::string described(const json& fields) {
  std::string text;
  for (const auto& [key, value] : fields.items()) {
    text += (text.empty() ? "" : ", ") + key + "=" + value.dump();
  }
  return text.empty() ? "any" : text;
}

/// The rules for every site that are in force. All of them count.
Report rulesForEverySite(const Sources& sources) {
  const std::string browser = platformTexts().browser;
  Report report{"", json::array()};
  for (const std::string& rule : rulesInForce(sources)) {
    json filter = isForEverySite(rule) ? filterOf(rule) : nullptr;
    if (!filter.is_null()) {
      report.text += browser + " follows this rule for every site:\n  subject: " +
                     described(filter["subject"]) + "\n  issuer: " + described(filter["issuer"]) +
                     "\n  stored in: " + sources.back().name + "\n";
      filter["source"] = sources.back().name;
      report.json.push_back(std::move(filter));
    }
  }
  if (report.json.empty()) {
    report.text = browser + " asks which certificate to present.\n";
  }
  return report;
}

std::string described(const std::vector<ClientIdentity>& selected) {
  std::string text = "It presents, without asking:\n";
  if (selected.empty()) {
    text = "It asks nevertheless: none of your certificates matches.\n";
  } else if (selected.size() > 1) {
    text =
        "Several of your certificates match. It presents the first that a server accepts, usually "
        "the one that expires last, unless PromptOnMultipleMatchingCertificates makes it ask:\n";
  }
  for (const ClientIdentity& identity : selected) {
    text += "  " + shown(identity) + "\n";
  }
  return text;
}

/// Returns what the step returns. Throws `error` for whatever it throws.
template <typename Step>
auto attempt(const CertificateSelectorError& error, Step step) {
  try {
    return step();
  } catch (const std::exception&) {
    throw error;
  }
}

/// Withdraws the rule. Returns what is stored then.
Sources withdrawn(const Sources& before) {
  attempt(CertificateSelectorError::policyWriteFailed(), withdrawRule);
  const auto after = attempt(CertificateSelectorError::policyVerificationFailed(), ruleSources);
  if (hasOwnRule(after) || !std::ranges::includes(rulesForSites(rulesInForce(after)),
                                                  rulesForSites(rulesInForce(before)))) {
    throw CertificateSelectorError::policyVerificationFailed();
  }
  return after;
}

Report show() {
  const Sources sources = ruleSources();
  Report report = rulesForEverySite(sources);
  json identities = json::array();
  if (!report.json.empty()) {
    Rules rules = rulesInForce(sources);
    std::erase_if(rules, std::not_fn(isForEverySite));
    const auto selected = identitiesSelectedBy(rules);
    report.text += described(selected);
    for (const ClientIdentity& identity : selected) {
      identities.push_back(identity.id);
    }
  }
  const Rules inTheWay = obstacles(sources);
  for (const std::string& obstacle : inTheWay) {
    report.text += obstacle + "\n";
  }
  report.json = {{"browser", platformTexts().browser},
                 {"rules", std::move(report.json)},
                 {"identities", std::move(identities)},
                 {"obstacles", inTheWay}};
  return report;
}

Report clear() {
  Sources sources = ruleSources();
  const bool isStored = hasOwnRule(sources);
  if (isStored) {
    sources = withdrawn(sources);
    if (const ChromeLauncher launcher; launcher.isChromeInstalled()) {
      launcher.refreshPolicies();
    }
  }
  Report report = rulesForEverySite(sources);
  if (isStored && report.json.empty()) {
    report.text = platformTexts().browser + " asks again.\n";
  } else {
    report.text.insert(0, isStored ? "The rule is cleared.\n" : "There is no rule to clear.\n");
  }
  report.json = {{"ok", true}, {"rules", std::move(report.json)}};
  return report;
}

bool isCommand(const Rules& words) {
  if (words.size() == 2) {
    return words[0] == "check" && !words[1].empty() && words[1][0] != '-';
  }
  return words == Rules{"show"} || words == Rules{"clear"} || words == Rules{"check"};
}

Report run(const Rules& command) {
  if (command[0] == "check") {
    return check(command.size() == 2 ? command[1] : "");
  }
  return command[0] == "show" ? show() : clear();
}

}  // namespace

int runChromeRule(int argumentCount, const char* const* processArguments) {
  prepareStandardStreams();
  try {
    Rules words(processArguments + std::min(1, argumentCount), processArguments + argumentCount);
    const auto options =
        std::remove(words.begin() + (words.empty() ? 0 : 1), words.end(), "--json");
    const bool isForPrograms = options != words.end();
    words.erase(options, words.end());
    if (!isCommand(words)) {
      writeStandardError(usage);
      return usageStatus;
    }
    const Report report = run(words);
    constexpr auto replacing = json::error_handler_t::replace;  // A path may be no UTF-8.
    writeStandardOutput(isForPrograms ? report.json.dump(-1, ' ', false, replacing) + "\n"
                                      : report.text);
    return report.isGood ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception& error) {
    writeStandardError(error.what() + std::string("\n"));
    return EXIT_FAILURE;
  }
}

}  // namespace lumaret
