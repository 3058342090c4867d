// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

/// A Mac in memory behind Apple's frameworks. A test fills it, runs what calls the frameworks, and
/// looks at what has become of it.
///
/// Wrong use ends the process with a message: an object that was released or that no framework
/// made, one of the wrong type, null where a framework would crash, one release too many.
namespace standin {

using Bytes = std::vector<std::uint8_t>;
/// As Core Foundation keeps texts: UTF-16, not necessarily well-formed.
using Text = std::u16string;

struct Value;
using List = std::vector<Value>;
using Dictionary = std::map<Text, Value>;

/// Seconds since 2001-01-01 00:00:00 UTC.
struct Date {
  double seconds;
};

/// A number that is kept as an integer, and that the nearest double need not equal.
struct Integer {
  std::int64_t value;
};

/// What a preference or a certificate's value may be.
struct Value {
  std::variant<Text, double, bool, Date, Bytes, List, Dictionary, Integer> content;
};

struct AccessListEntry {
  /// Names of constants, such as "kSecACLAuthorizationSign".
  std::vector<std::string> authorizations;
  /// Paths. Absent: any application. Empty: none.
  std::optional<std::vector<std::string>> applications;
  std::optional<Text> description = Text();
  std::uint16_t promptSelector = 0;

  bool operator==(const AccessListEntry&) const = default;
};

using AccessList = std::vector<AccessListEntry>;

struct PrivateKey {
  /// As stored. Absent: the key is no item of a file-based keychain, as one on a token is not.
  std::optional<AccessList> accessList;
};

struct Identity {
  /// Names the identity and what belongs to it in the trace.
  std::string name;
  Bytes certificate;
  std::optional<Dictionary> certificateValues;
  std::shared_ptr<PrivateKey> privateKey;
};

/// What a function answers in place of its own answer.
struct Answer {
  enum class Kind : std::uint8_t { status, object, firstElement, foreignElement, withoutSecond };

  /// Fails. A function that returns no status returns false or nothing; one that returns nothing at
  /// all does nothing.
  static Answer status(std::int32_t status) { return {.kind = Kind::status, .failure = status}; }
  /// Fails, and leaves its own object all the same, for the caller to own.
  static Answer statusAndObject(std::int32_t status) {
    return {.kind = Kind::status, .failure = status, .leavesObject = true};
  }
  /// Succeeds with nothing.
  static Answer nothing() { return {.kind = Kind::object}; }
  /// Succeeds with this object.
  static Answer object(Value value) { return {.kind = Kind::object, .value = std::move(value)}; }
  /// Succeeds with the first element of its own array, or with nothing when that is empty.
  static Answer firstElement() { return {.kind = Kind::firstElement}; }
  /// Succeeds with its own array, and in it a text before the element of this index, or at the end
  /// when the array is shorter. Without an array of its own, with the text alone.
  static Answer foreignElement(std::size_t index) {
    return {.kind = Kind::foreignElement, .elementIndex = index};
  }
  /// Succeeds with its own object, and with nothing in the place of the second one.
  static Answer withoutSecond() { return {.kind = Kind::withoutSecond}; }

  /// Of storing an access list, which goes entry by entry: fails after so many entries, which stay
  /// stored.
  Answer afterEntries(std::size_t count) && {
    storedEntries = count;
    return std::move(*this);
  }

  /// For one call of the function alone, counted from 1.
  Answer onCall(std::size_t number) && {
    call = number;
    return std::move(*this);
  }

  Kind kind;
  std::int32_t failure = 0;
  bool leavesObject = false;
  std::optional<Value> value = std::nullopt;
  std::size_t elementIndex = 0;
  std::size_t storedEntries = 0;
  std::optional<std::size_t> call = std::nullopt;
};

struct Machine {
  std::vector<Identity> identities;
  /// Up to macOS 14 the access-list calls fail with -25243 for a key that is no keychain item.
  /// Since macOS 15 they crash.
  bool failsForOtherKeys = false;
  /// Paths of applications that are not there, so that no access list can be told of them.
  std::set<std::string> missingApplications;
  /// What tells one application from another, by path; by default the path itself with a zero byte
  /// at its end.
  std::map<std::string, Bytes> applicationData;
  /// Of the current user on any host, by application.
  std::map<std::string, Dictionary> preferences;
  /// Set in the same way, and not yet synchronized.
  std::map<std::string, Dictionary> pendingPreferences;
  /// The current locale, such as "sv"; the library's own where it is empty.
  std::string locale;
  /// Bundle identifiers.
  std::set<std::string> runningApplications;
  std::map<std::string, std::vector<Answer>> answers;

  void answer(const std::string& function, Answer answer) {
    answers[function].push_back(std::move(answer));
  }
};

/// The one that the frameworks stand for.
Machine& machine();

/// Every call that reached the machine, in order, as "function(arguments)". Taking, releasing,
/// making and reading Core Foundation's objects is not part of it.
const std::vector<std::string>& trace();
/// Those that begin so.
std::vector<std::string> calls(std::string_view prefix);

/// Objects that the frameworks have handed out and that were not released.
std::size_t liveObjects();

/// A new machine, with nothing in it, and no object of the old one.
void startOver();

}  // namespace standin
