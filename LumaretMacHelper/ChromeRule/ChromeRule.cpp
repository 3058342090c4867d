// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/ChromeRule/ChromeRule.hpp"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/ChromeLauncher.hpp"
#include "LumaretMacHelper/PlatformFunctions.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"

namespace lumaret {
namespace {

using nlohmann::json;
using Rules = std::vector<std::string>;
using Sources = std::vector<RuleSource>;

std::set<std::string> rulesForSites(const Rules& rules) {
  std::set<std::string> result(rules.begin(), rules.end());
  std::erase_if(result, ChromeCertificatePolicyService::isForEverySite);
  return result;
}

Rules rulesInForce(const Sources& sources) {
  return sources.empty() ? Rules() : sources.back().rules;
}

auto ownSource(const Sources& sources) { return std::ranges::find(sources, 0, &RuleSource::rank); }

bool hasOwnRule(const Sources& sources) {
  const auto own = ownSource(sources);
  return own != sources.end() &&
         std::ranges::any_of(own->rules, ChromeCertificatePolicyService::isForEverySite);
}

/// Which rules are stored and not in force.
Rules obstacles(const Sources& sources) {
  const auto own = ownSource(sources);
  if (hasOwnRule(sources) && sources.back().rank > 0) {
    return {sources.back().name + " overrides " + own->name + "."};
  }
  if (own != sources.end() && own + 1 == sources.end() && own != sources.begin() &&
      rulesForSites(own->rules) != rulesForSites((own - 1)->rules)) {
    return {own->name + " overrides " + (own - 1)->name +
            ", and its copy of the rules for sites is out of date. Remove it as root, and activate "
            "again."};
  }
  return {};
}

/// The identities that any of the filters selects and Chrome offers.
class Selection final : public KeychainIdentityQuerying {
 public:
  explicit Selection(std::vector<ClientIdentity> filters) : filters_(std::move(filters)) {}

  [[nodiscard]] std::vector<KeychainIdentity> copyIdentities() const override {
    auto identities = SystemKeychainIdentityQuery().copyIdentities();
    std::erase_if(identities, [&, isOffered = offerTest()](const KeychainIdentity& identity) {
      const auto certificate = identity.copyCertificate();
      const auto isSelected = [&](const ClientIdentity& filter) {
        const auto& [subject, issuer, notAfter] = *certificate->values;
        return CertificateValueParser::isSelected(subject, filter.subject) &&
               CertificateValueParser::isSelected(issuer, filter.issuer);
      };
      return !certificate || !certificate->values || std::ranges::none_of(filters_, isSelected) ||
             !isOffered(certificate->data);
    });
    return identities;
  }

 private:
  std::vector<ClientIdentity> filters_;
};

/// Of the rules for every site that Chrome does not ignore. All of them count.
std::vector<ClientIdentity> filtersOf(const Rules& rules) {
  std::vector<ClientIdentity> filters;
  for (const std::string& rule : rules) {
    const auto filter = ChromeCertificatePolicyService::filterOf(rule);
    if (filter && ChromeCertificatePolicyService::isForEverySite(rule)) {
      filters.push_back(*filter);
    }
  }
  return filters;
}

/// The rules for every site that are in force.
Report rulesForEverySite(const Sources& sources, const std::string& browser) {
  const auto described = [](const auto& fields) {
    std::string text;
    for (const auto& [key, value] : fields) {
      text += (text.empty() ? "" : ", ") + key + "=" + json(value).dump();
    }
    return text.empty() ? "any" : text;
  };
  Report report{"", json::array()};
  for (const ClientIdentity& filter : filtersOf(rulesInForce(sources))) {
    const auto subject = filter.subject.chromeFilterFields();
    const auto issuer = filter.issuer.chromeFilterFields();
    const std::string& source = sources.back().name;
    report.text.append(browser).append(" follows this rule for every site:\n");
    report.text.append("  subject: ").append(described(subject)).append("\n");
    report.text.append("  issuer: ").append(described(issuer)).append("\n");
    report.text.append("  stored in: ").append(source).append("\n");
    report.json.push_back({{"subject", subject}, {"issuer", issuer}, {"source", source}});
  }
  if (report.json.empty()) {
    report.text = browser + " asks which certificate to present.\n";
  }
  return report;
}

Report show() {
  const Sources sources = ruleSources();
  const std::string browser = platformTexts().browser;
  auto [text, rules] = rulesForEverySite(sources, browser);
  json identities = json::array();
  if (!rules.empty()) {
    const auto selected = identitiesSelectedBy(rulesInForce(sources));
    text += selected.empty() ? "It asks nevertheless: none of your certificates matches.\n"
            : selected.size() == 1
                ? "It presents, without asking:\n"
                : "Several of your certificates match. It presents the first that a server "
                  "accepts, usually the one that expires last, unless "
                  "PromptOnMultipleMatchingCertificates makes it ask:\n";
    for (const ClientIdentity& identity : selected) {
      text += "  " + shown(identity) + "\n";
      identities.push_back(identity.id);
    }
  }
  const Rules inTheWay = obstacles(sources);
  for (const std::string& obstacle : inTheWay) {
    text += obstacle + "\n";
  }
  return {text,
          {{"browser", browser},
           {"rules", rules},
           {"identities", identities},
           {"obstacles", inTheWay}}};
}

/// Withdraws the rule. Returns what is stored then.
Sources withdrawn(const Sources& before) {
  auto error = CertificateSelectorError::policyWriteFailed();
  try {
    withdrawRule();
    error = CertificateSelectorError::policyVerificationFailed();
    Sources after = ruleSources();
    if (!hasOwnRule(after) && std::ranges::includes(rulesForSites(rulesInForce(after)),
                                                    rulesForSites(rulesInForce(before)))) {
      return after;
    }
  } catch (const std::exception&) {
    throw CertificateSelectorError(error);
  }
  throw CertificateSelectorError(error);
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
  const std::string browser = platformTexts().browser;
  auto [text, rules] = rulesForEverySite(sources, browser);
  if (isStored && rules.empty()) {
    text = browser + " asks again.\n";
  } else {
    text.insert(0, isStored ? "The rule is cleared.\n" : "There is no rule to clear.\n");
  }
  return {text, {{"ok", true}, {"rules", rules}}};
}

/// Nothing if the words are not a command.
std::optional<Report> run(const Rules& words) {
  if (words == Rules{"show"}) {
    return show();
  }
  if (words == Rules{"clear"}) {
    return clear();
  }
  if (words == Rules{"check"}) {
    return check("");
  }
  const bool isNamed = words.size() == 2 && !words[1].empty() && words[1][0] != '-';
  return isNamed && words[0] == "check" ? std::optional(check(words[1])) : std::nullopt;
}

}  // namespace

std::vector<ClientIdentity> identitiesSelectedBy(const Rules& rules) {
  return KeychainIdentityLoader(std::make_shared<Selection>(filtersOf(rules))).loadIdentities();
}

std::string shown(const ClientIdentity& identity) {
  return identity.id + " " + json(identity.displayName()).dump();
}

int runChromeRule(int argumentCount, const char* const* processArguments) {
  prepareStandardStreams();
  try {
    Rules words(processArguments + std::min(1, argumentCount), processArguments + argumentCount);
    const auto options =
        std::remove(words.begin() + (words.empty() ? 0 : 1), words.end(), "--json");
    const bool isForPrograms = options != words.end();
    words.erase(options, words.end());
    const auto report = run(words);
    if (!report) {
      constexpr int usageStatus = 2;
      writeStandardError(
          "Usage: lumaret-chrome-rule show | clear | check [FINGERPRINT] [--json]\n");
      return usageStatus;
    }
    constexpr auto replacing = json::error_handler_t::replace;  // A path may be no UTF-8.
    writeStandardOutput(isForPrograms ? report->json.dump(-1, ' ', false, replacing) + "\n"
                                      : report->text);
    return report->json.value("ok", true) ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception& error) {
    writeStandardError(error.what() + std::string("\n"));
    return EXIT_FAILURE;
  }
}

}  // namespace lumaret
