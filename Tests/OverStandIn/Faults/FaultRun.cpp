// SPDX-License-Identifier: Apache-2.0
#include "Tests/OverStandIn/Faults/FaultRun.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <map>

#include "LumaretMacHelper/LumaretMacHelper.hpp"
#include "Tests/OverStandIn/AppleFrameworks/MachineFile.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"

namespace lumaret::tests::faults {
namespace {

using Texts = std::vector<std::string>;

constexpr const char* domain = "com.google.Chrome";
constexpr const char16_t* preference = u"AutoSelectCertificateForUrls";

standin::Identity stored(const Held& held) {
  standin::Identity stored = identity(held.name, {});
  if (held.state == State::withoutKey) {
    stored.privateKey = nullptr;
  } else {
    stored.privateKey->accessList = held.accessList;
  }
  if (held.state == State::withoutSubject) {
    stored.certificateValues->insert_or_assign(u"kSecOIDX509V1SubjectName", section(u"", {}));
  }
  if (held.state == State::expired) {
    stored.certificateValues->insert_or_assign(u"kSecOIDX509V1ValidityNotAfter",
                                               property(text(u""), {standin::Date{0}}));
  }
  return stored;
}

nlohmann::json rulesIn(const std::map<std::string, standin::Dictionary>& preferences) {
  const auto values = preferences.find(domain);
  return values == preferences.end() ? nlohmann::json(nullptr)
                                     : standin::descriptionOf(values->second.at(preference));
}

}  // namespace

Outcome untouched(const World& world) {
  Outcome outcome;
  for (const Held& identity : world.held) {
    outcome.accessLists.push_back(identity.accessList);
  }
  outcome.rules = world.rules;
  return outcome;
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

Outcome run(const World& world) {
  Outcome outcome;
  testing::internal::CaptureStdout();
  try {
    LumaretMacHelper::run(world.arguments);
  } catch (const std::exception& error) {
    outcome.message = error.what();
  }
  outcome.standardOutput = testing::internal::GetCapturedStdout();
  for (const standin::Identity& each : standin::machine().identities) {
    outcome.accessLists.push_back(each.privateKey ? each.privateKey->accessList : std::nullopt);
  }
  outcome.rules = rulesIn(standin::machine().preferences);
  outcome.rulesNotSynchronized = rulesIn(standin::machine().pendingPreferences);
  std::copy_if(standin::trace().begin(), standin::trace().end(),
               std::back_inserter(outcome.launches),
               [](const auto& call) { return call.starts_with("NSTask("); });
  return outcome;
}

void PrintTo(const Outcome& outcome, std::ostream* out) {
  *out << "output " << outcome.standardOutput << "message " << outcome.message << "\nrules "
       << outcome.rules << "\nnot synchronized " << outcome.rulesNotSynchronized;
  for (const auto& accessList : outcome.accessLists) {
    *out << "\nkey";
    for (const auto& entry : accessList.value_or(standin::AccessList())) {
      *out << " | ";
      for (const auto& application : entry.applications.value_or(Texts{"any"})) {
        *out << application << ' ';
      }
    }
  }
  for (const auto& launch : outcome.launches) {
    *out << "\n" << launch;
  }
}

}  // namespace lumaret::tests::faults
