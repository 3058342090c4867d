// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <exception>
#include <utility>

#include "LumaretMacHelper/LumaretMacHelper.hpp"
#include "Tests/OverStandIn/AppleFrameworks/MachineFile.hpp"
#include "Tests/OverStandIn/Faults/Faults.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"

namespace lumaret::tests::faults {
namespace {

using nlohmann::json;

constexpr const char* domain = "com.google.Chrome";
constexpr const char16_t* preference = u"AutoSelectCertificateForUrls";
// The starts of Chrome, as traced.
const std::string refresh =
    "NSTask(/Applications/Google Chrome.app/Contents/MacOS/Google Chrome, "
    "--refresh-platform-policy, awaited)";
const std::string window =
    "NSTask(/Applications/Google Chrome.app/Contents/MacOS/Google Chrome, --new-window";

/// The fingerprint of the certificate with these bytes.
const std::string& idOf(const std::string& certificate) {
  static const std::map<std::string, std::string> ids = {
      {"ana", "24d4b96f58da6d4a8512313bbd02a28ebf0ca95dec6e4c86ef78ce7f01e788ac"},
      {"Bea", "56a9baaa78e21fd28508d820a750a3bdab648145046ae5d2e91ef2480fcb240b"},
      {"zoe", "9d017e2681b7f31725e1c0fbe2612e89079c22806b02cf7a894b500dd5a219c1"},
      {"old", "cba06b5736faf67e54b07b561eae94395e774c517a7d910a54369e1263ccfbd4"},
      {"card", "8367cd66fdd136bba8ba23f8805bb050dd6289401c8ec3b0be44a3c233eef90d"},
      {"nameless", "17d72fdf1868464ade4f11f794ecd73b655db1e8eed322d2f66bdcba5bcfdad5"},
      {"\x01", "4bf5122f344554c53bde2ebb8cd2b7e3d1600ad631c385a5d7cce23c7785459a"}};
  return ids.at(certificate);
}

standin::Identity stored(const Held& held) {
  standin::Identity stored = identity(held.certificate, {});
  stored.name = held.name;
  stored.privateKey->accessList = held.accessList;
  if (held.state == State::withoutKey) {
    stored.privateKey = nullptr;
  } else if (held.state == State::withoutSubject) {
    stored.certificateValues->insert_or_assign(u"kSecOIDX509V1SubjectName", section(u"", {}));
  } else if (held.state == State::expired) {
    stored.certificateValues->insert_or_assign(u"kSecOIDX509V1ValidityNotAfter",
                                               property(text(u""), {standin::Date{0}}));
  }
  return stored;
}

void build(const World& world) {
  standin::startOver();
  for (const Held& held : world.held) {
    standin::machine().identities.push_back(stored(held));
  }
  if (!world.rules.is_null()) {
    standin::machine().preferences[domain].emplace(preference, standin::valueOf(world.rules));
  }
  if (world.isChromeRunning) {
    standin::machine().runningApplications.insert(domain);
  }
}

std::vector<std::string> arguments(const World& world) {
  if (world.lists) {
    return {"list"};
  }
  std::vector<std::string> words = {"activate", "--fingerprint", idOf("ana")};
  if (!world.address.empty()) {
    words.insert(words.end(), {"--url", world.address});
  }
  return words;
}

json described(const std::optional<standin::AccessList>& accessList) {
  if (!accessList) {
    return nullptr;
  }
  json entries = json::array();
  for (const standin::AccessListEntry& entry : *accessList) {
    entries.push_back({entry.authorizations,
                       entry.applications ? json(*entry.applications) : json(nullptr),
                       standin::descriptionOf({entry.description.value()}), entry.promptSelector});
  }
  return entries;
}

json rulesIn(const std::map<std::string, standin::Dictionary>& preferences) {
  const auto values = preferences.find(domain);
  return values == preferences.end() ? json(nullptr)
                                     : standin::descriptionOf(values->second.at(preference));
}

/// The world whose checkpoints are those of a run that sees this at this step.
World worldSeen(World world, const Step& step, Seen seen) {
  const Variation* const variation = variationOf(world, step, seen);
  for (Held& held : world.held) {
    if (seen == Seen::anyApplication) {
      held.allowed.reset();
    } else if (variation != nullptr && variation->allowed && held.name == "ana") {
      held.allowed = variation->allowed;
    }
  }
  if (seen == Seen::noRules) {
    world.storedRules = json::array({anasRule});
  } else if (seen == Seen::anotherName && step.argument == "ana") {
    std::ranges::replace(world.storedRules, json(anasRule), json(someonesRule));
  }
  return world;
}

/// The access list with the first entries that change, so many of them, as they are meant to be.
standin::AccessList partlyStored(standin::AccessList before, const standin::AccessList& after,
                                 std::size_t storedEntries) {
  for (std::size_t index = 0; index < before.size() && storedEntries > 0; ++index) {
    if (before[index] != after[index]) {
      before[index] = after[index];
      --storedEntries;
    }
  }
  return before;
}

Outcome macAt(const World& world, const Ending& ending) {
  const auto reaches = [&ending](Checkpoint each) { return ending.checkpoint >= each; };
  Outcome mac = {{"access lists", json::array()}, {"launches", json::array()}};
  for (const Held& held : world.held) {
    auto accessList = held.accessList;
    if (reaches(Checkpoint::keyAllowed) && held.allowed) {
      accessList = held.allowed;
    } else if (held.allowed) {
      accessList = partlyStored(*held.accessList, *held.allowed, ending.storedEntries);
    }
    mac["access lists"].push_back(described(accessList));
  }
  mac["rules"] = reaches(Checkpoint::ruleStored) ? world.storedRules : world.rules;
  mac["rules not synchronized"] = ending.isRulePending ? world.storedRules : json(nullptr);
  if (reaches(Checkpoint::refreshed) && world.isChromeRunning) {
    mac["launches"].push_back(refresh);
  }
  if (reaches(Checkpoint::windowOpened)) {
    mac["launches"].push_back(window + (world.address.empty() ? "" : ", " + world.address) + ")");
  }
  return mac;
}

json principal(const std::string& commonName) {
  return {{"commonName", commonName.empty() ? json(nullptr) : json(commonName)},
          {"locality", nullptr},
          {"organization", nullptr},
          {"organizationalUnit", nullptr}};
}

/// The common name that the list shows of an identity, which may be empty; nothing where it is not
/// in the list.
std::optional<std::string> shownName(const Held& held, Seen seen) {
  if (seen == Seen::noSubject || seen == Seen::anotherName) {
    return seen == Seen::noSubject ? "" : "someone";
  }
  if (seen == Seen::identityLeftOut || held.state == State::expired ||
      held.state == State::withoutKey) {
    return std::nullopt;
  }
  return held.state == State::withoutSubject ? "" : held.certificate;
}

/// As the list command prints it.
std::string listing(const World& world, const Step& step, Seen seen) {
  std::map<std::string, std::string> names;  // By fingerprint: of equal certificates, the last.
  for (const Held& held : world.held) {
    const Seen here = held.name == step.argument ? seen : Seen::asItIs;
    if (const auto name = shownName(held, here)) {
      names[idOf(here == Seen::anotherCertificate ? "\x01" : held.certificate)] = *name;
    }
    if (seen == Seen::firstIdentityAlone) {
      break;
    }
  }
  std::map<std::string, json> sorted;
  for (const auto& [id, name] : names) {
    std::string key = name.empty() ? "unnamed certificate" : name;
    key.front() = static_cast<char>(std::tolower(key.front()));
    sorted[key + id] = {{"expiresAt", "2099-12-31T23:59:59Z"},
                        {"id", id},
                        {"issuer", principal(name == "someone" ? "" : "Example CA")},
                        {"subject", principal(name)}};
  }
  json list = json::array();
  for (const auto& [key, object] : sorted) {
    list.push_back(object);
  }
  return (seen == Seen::noIdentities ? "[]" : list.dump()) + "\n";
}

}  // namespace

Outcome run(const World& world, const std::string& function,
            const std::optional<standin::Answer>& answer) {
  build(world);
  if (answer) {
    standin::machine().answer(function, *answer);
  }
  Outcome outcome = {{"access lists", json::array()}, {"launches", json::array()}, {"message", ""}};
  testing::internal::CaptureStdout();
  try {
    LumaretMacHelper::run(arguments(world));
  } catch (const std::exception& error) {
    outcome["message"] = error.what();
  }
  outcome["output"] = testing::internal::GetCapturedStdout();
  for (const standin::Identity& each : standin::machine().identities) {
    outcome["access lists"].push_back(
        described(each.privateKey ? each.privateKey->accessList : std::nullopt));
  }
  outcome["rules"] = rulesIn(standin::machine().preferences);
  outcome["rules not synchronized"] = rulesIn(standin::machine().pendingPreferences);
  for (const std::string& call : standin::trace()) {
    if (call.starts_with("NSTask(")) {
      outcome["launches"].push_back(call);
    }
  }
  return outcome;
}

const Variation* variationOf(const World& world, const Step& step, Seen seen) {
  const auto found = std::ranges::find_if(world.variations, [&](const Variation& each) {
    return each.seen == seen && (each.of.empty() || each.of == step.argument);
  });
  return found == world.variations.end() ? nullptr : &*found;
}

Outcome expected(const World& world, const Step& step, const Consequence& consequence) {
  const auto& [seen, ending, ofSelectedAlone] = consequence;
  // To the list command, what is seen instead is no failure.
  const bool isMet =
      seen == Seen::asItIs || (!world.lists && (!ofSelectedAlone || step.argument == "ana"));
  Ending reached = ending && isMet ? *ending : world.ending;
  if (const Variation* const variation = variationOf(world, step, seen)) {
    reached = variation->ending.value_or(world.ending);
  }
  Outcome outcome = macAt(worldSeen(world, step, seen), reached);
  outcome["message"] = reached.message;
  outcome["output"] = !reached.message.empty() ? ""
                      : world.lists            ? listing(world, step, seen)
                                               : "{\"ok\":true}\n";
  return outcome;
}

}  // namespace lumaret::tests::faults
