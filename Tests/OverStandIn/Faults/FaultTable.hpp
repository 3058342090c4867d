// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"

namespace lumaret::tests::faults {

/// What a run is doing when it makes a call.
enum class Phase : std::uint8_t {
  loading,
  authorizing,
  readingRules,
  writingRules,
  verifyingRules,
  opening,
  refreshing,
};

/// What comes of a fault.
enum class Effect : std::uint8_t {
  none,
  /// With the consequence's message, and with nothing changed by the call itself.
  endsRun,

  // Of the query
  noIdentities,
  onlyFirstIdentity,

  // Of one identity
  leftOut,
  /// It is taken for the certificate whose only byte is 1.
  anotherCertificate,
  /// Its certificate has no subject, and has not expired.
  noSubject,
  /// Its certificate's subject is "someone", it has no issuer, and it has not expired.
  anotherName,

  // Of an access list, or of one of its entries
  noSigningEntries,
  notSigning,
  openToAnyApplication,
  trustsNoApplication,
  /// An application is taken for one that is not known.
  unknownApplication,

  // Of Chrome's rules
  noRules,
  rulesNotTaken,

  // Of the address to open
  noAddress,
  noWebAddress,
};

/// Written as its effect alone, or as the message with which the run ends.
struct Consequence {
  Consequence(Effect what) : effect(what) {}
  Consequence(std::string text) : effect(Effect::endsRun), message(std::move(text)) {}
  Consequence(const char* text) : Consequence(std::string(text)) {}

  Effect effect;
  std::string message = {};
};

struct Fault {
  std::string name;
  standin::Answer answer;
  Consequence consequence;
};

/// Every way in which a function can fail in a phase; none for one that cannot.
struct Row {
  Phase phase;
  std::string function;
  std::vector<Fault> faults;
};

/// What comes of each fault, written down by hand.
const std::vector<Row>& table();

}  // namespace lumaret::tests::faults
