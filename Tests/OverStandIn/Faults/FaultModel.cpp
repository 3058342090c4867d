// SPDX-License-Identifier: Apache-2.0
#include "Tests/OverStandIn/Faults/FaultModel.hpp"

#include <algorithm>
#include <utility>

#include "Tests/OverStandIn/Faults/FaultListing.hpp"
#include "Tests/OverStandIn/Faults/FaultMessages.hpp"

namespace lumaret::tests::faults {
namespace {

using nlohmann::json;
using standin::AccessList;

/// One run, as it is meant to go. Each part tells whether the run goes on.
class Run {
 public:
  Run(const World& world, const Step& step, const Consequence& consequence)
      : world_(world), step_(step), consequence_(consequence), outcome_(untouched(world)) {}

  Outcome outcome() {
    const auto listing = load();
    if (listing && world_.arguments.front() == "list") {
      outcome_.standardOutput = printed(*listing);
    } else if (listing) {
      const auto selected = listing->find(world_.arguments.at(2));
      if (selected == listing->end()) {
        end(notFound);
      } else if (authorize() && storeRule(selected->second) && open()) {
        outcome_.standardOutput = "{\"ok\":true}\n";
      }
    }
    return outcome_;
  }

 private:
  [[nodiscard]] bool meets(Effect effect) const { return consequence_.effect == effect; }
  [[nodiscard]] bool isIn(Phase phase) const { return step_.phase == phase; }

  bool end(std::string message) {
    outcome_.message = std::move(message);
    return false;
  }
  /// Whether the run ends at the step, which is of this phase.
  bool endsIn(Phase phase) {
    const bool ends = isIn(phase) && meets(Effect::endsRun);
    if (ends) {
      end(consequence_.message);
    }
    return ends;
  }

  /// What the Keychain shows of its identities.
  [[nodiscard]] std::vector<Held> held(Phase phase) const {
    std::vector<Held> seen = world_.held;
    if (isIn(phase) && meets(Effect::noIdentities)) {
      seen.clear();
    } else if (isIn(phase) && meets(Effect::onlyFirstIdentity) && !seen.empty()) {
      seen.erase(seen.begin() + 1, seen.end());
    }
    return seen;
  }

  std::optional<Listing> load() {
    if (endsIn(Phase::loading)) {
      return std::nullopt;
    }
    Listing listing;
    std::size_t equalBefore = 0;
    for (const Held& identity : held(Phase::loading)) {
      Listed listed;
      if (identity.state != State::withoutSubject) {
        listed.commonName = identity.name;
      }
      std::string id = idOf(identity.name);
      bool isExpired = identity.state == State::expired;
      bool isLeftOut = identity.state == State::withoutKey;
      if (isIn(Phase::loading) && step_.argument == identity.name &&
          equalBefore++ == step_.equalBefore) {
        isLeftOut = isLeftOut || meets(Effect::leftOut);
        if (meets(Effect::anotherCertificate)) {
          id = idOf("\x01");
        } else if (meets(Effect::noSubject)) {
          listed.commonName.reset();
          isExpired = false;
        } else if (meets(Effect::anotherName)) {
          listed = {"someone", std::nullopt};
          isExpired = false;
        }
      }
      if (!isLeftOut && !isExpired) {
        listing.insert_or_assign(id, listed);
      }
    }
    return listing;
  }

  bool authorize() {
    if (endsIn(Phase::authorizing)) {
      return false;
    }
    std::vector<std::size_t> matches;
    const std::vector<Held> seen = held(Phase::authorizing);
    for (std::size_t index = 0; index < seen.size(); ++index) {
      if (seen[index].name == "ana") {
        matches.push_back(index);
      }
    }
    if (isIn(Phase::authorizing) && meets(Effect::anotherCertificate) && step_.argument == "ana") {
      matches.erase(matches.begin() + static_cast<std::ptrdiff_t>(step_.equalBefore));
    }
    if (matches.size() != 1) {
      return end(matches.empty() ? notFound : ambiguous);
    }
    auto& accessList = outcome_.accessLists.at(matches.front());
    if (!accessList) {
      return end(unsupported);
    }
    return allowChrome(*accessList);
  }

  bool allowChrome(AccessList& stored) {
    const std::string chrome = "/Applications/Google Chrome.app";
    AccessList edited = stored;
    std::vector<std::size_t> signing;
    for (std::size_t index = 0; index < edited.size(); ++index) {
      const auto& tags = edited[index].authorizations;
      const bool signs = std::count(tags.begin(), tags.end(), "kSecACLAuthorizationSign") +
                             std::count(tags.begin(), tags.end(), "kSecACLAuthorizationAny") >
                         0;
      const bool isMet = step_.argument == "entry " + std::to_string(index);
      if (signs && !(isMet && meets(Effect::notSigning)) && !meets(Effect::noSigningEntries)) {
        signing.push_back(index);
      }
      if (isMet && meets(Effect::openToAnyApplication)) {
        edited[index].applications.reset();
      } else if (isMet && meets(Effect::trustsNoApplication)) {
        edited[index].applications.emplace();
      }
    }
    if (signing.empty()) {
      return end(unsupported);
    }
    const bool isChromeKnown = !(meets(Effect::unknownApplication) && step_.argument == chrome);
    for (const std::size_t index : signing) {
      const auto& applications = edited[index].applications;
      if (!applications ||
          (isChromeKnown && std::count(applications->begin(), applications->end(), chrome) > 0)) {
        return true;
      }
    }
    for (const std::size_t index : signing) {
      edited[index].applications->push_back(chrome);
    }
    stored = edited;
    return true;
  }

  bool storeRule(const Listed& selected) {
    if (!selected.commonName) {
      return end(unmatchable);
    }
    if (endsIn(Phase::readingRules)) {
      return false;
    }
    const bool areNone = isIn(Phase::readingRules) && meets(Effect::noRules);
    if (!areNone && !areTexts(world_.rules)) {
      return end(notSaved);
    }
    const json merged = withRule(rule(selected), areNone ? json(nullptr) : world_.rules);
    if (meets(Effect::rulesNotTaken)) {
      return merged == world_.rules || end(notVerified);
    }
    if (endsIn(Phase::writingRules)) {
      outcome_.rulesNotSynchronized = merged;
      return false;
    }
    outcome_.rules = merged;
    return !endsIn(Phase::verifyingRules);
  }

  static std::string rule(const Listed& selected) {
    const std::string issuer =
        selected.issuer ? R"("ISSUER":{"CN":")" + *selected.issuer + R"("},)" : "";
    return R"({"filter":{)" + issuer + R"("SUBJECT":{"CN":")" + *selected.commonName +
           R"("}},"pattern":"*"})";
  }

  static bool areTexts(const json& rules) {
    return std::all_of(rules.begin(), rules.end(),
                       [](const json& each) { return each.is_string(); });
  }

  /// The worlds' catch-all rules all end in their pattern.
  static json withRule(const std::string& rule, const json& rules) {
    json merged = json::array();
    bool isIn = false;
    for (const json& stored : rules) {
      if (!stored.get<std::string>().ends_with(R"("pattern":"*"})")) {
        merged.push_back(stored);
      } else if (!std::exchange(isIn, true)) {
        merged.push_back(rule);
      }
    }
    if (!isIn) {
      merged.push_back(rule);
    }
    return merged;
  }

  bool open() {
    const auto& words = world_.arguments;
    const auto flag = std::find(words.begin(), words.end(), "--url");
    const std::string address =
        flag == words.end() || meets(Effect::noAddress) ? "" : ", " + *(flag + 1);
    if (step_.function == "NSFileManager" && endsIn(Phase::opening)) {
      return false;
    }
    if (world_.isChromeRunning) {
      outcome_.launches.push_back(policyRefresh);
      if (endsIn(Phase::refreshing)) {
        return false;
      }
    }
    if (!address.empty() && (meets(Effect::noWebAddress) || address.starts_with(", ftp:"))) {
      return end(refused);
    }
    outcome_.launches.push_back(windowRequest + address + ")");
    return !endsIn(Phase::opening);
  }

  const World& world_;
  const Step& step_;
  const Consequence& consequence_;
  Outcome outcome_;
};

}  // namespace

Outcome expectation(const World& world, const Step& step, const Consequence& consequence) {
  return Run(world, step, consequence).outcome();
}

}  // namespace lumaret::tests::faults
