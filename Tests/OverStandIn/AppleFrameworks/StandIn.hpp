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

/// A Mac in memory behind Apple's frameworks. A test sets it up, runs code that calls the
/// frameworks, and checks how the Mac has changed.
///
/// Wrong use ends the process with a message: an object that was released, that no framework made,
/// or that has the wrong type; null where a framework would crash; one release too many.
namespace standin {

using Bytes = std::vector<std::uint8_t>;
/// A string in the form of Core Foundation: UTF-16, which may be malformed.
using Text = std::u16string;

struct Value;
using List = std::vector<Value>;
using Dictionary = std::map<Text, Value>;

/// Seconds since 2001-01-01 00:00:00 UTC.
struct Date {
  double seconds;
};

/// A preference, or a value of a certificate.
struct Value {
  std::variant<Text, double, bool, Date, Bytes, List, Dictionary> content;
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
  /// The stored access list. Absent if the key is not an item of a file-based keychain, as on a
  /// token.
  std::optional<AccessList> accessList;
};

struct Identity {
  /// Names the identity and its objects in the trace.
  std::string name;
  Bytes certificate;
  std::optional<Dictionary> certificateValues;
  std::shared_ptr<PrivateKey> privateKey;
};

/// The answer of a function in place of its own.
struct Answer {
  enum class Kind : std::uint8_t { status, object, firstElement, foreignElement };

  /// Fails. A function without a status returns false or null. A function without a result does
  /// nothing.
  static Answer status(std::int32_t status) { return {.kind = Kind::status, .failure = status}; }
  /// Fails, but still stores its own object, which the caller then owns.
  static Answer statusAndObject(std::int32_t status) {
    return {.kind = Kind::status, .failure = status, .leavesObject = true};
  }
  /// Succeeds without an object.
  static Answer nothing() { return {.kind = Kind::object}; }
  /// Succeeds with this object.
  static Answer object(Value value) { return {.kind = Kind::object, .value = std::move(value)}; }
  /// Succeeds with the first element of its own array, or without an object if the array is empty.
  static Answer firstElement() { return {.kind = Kind::firstElement}; }
  /// Succeeds with its own array and a string in it, before the element of this index, or at the
  /// end of a shorter array. Without an array of its own, succeeds with only the string.
  static Answer foreignElement(std::size_t index) {
    return {.kind = Kind::foreignElement, .elementIndex = index};
  }

  /// For storing an access list, which goes entry by entry. Fails after this many entries, which
  /// stay stored.
  Answer afterEntries(std::size_t count) && {
    storedEntries = count;
    return std::move(*this);
  }

  /// Only for the call of the function with this number, counted from 1.
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
  /// Those of the current user on any host, by application.
  std::map<std::string, Dictionary> preferences;
  /// Those that were set in the same way, but not yet synchronized. Nothing: removed.
  std::map<std::string, std::map<Text, std::optional<Value>>> pendingPreferences;
  /// Those that an administrator forces, by application.
  std::map<std::string, Dictionary> mandatoryPreferences;
  /// The current locale, such as "sv". If it is empty, that of the library.
  std::string locale;
  /// Bundle identifiers.
  std::set<std::string> runningApplications;
  std::map<std::string, std::vector<Answer>> answers;

  void answer(const std::string& function, Answer answer) {
    answers[function].push_back(std::move(answer));
  }
};

/// The machine behind the frameworks.
Machine& machine();

/// All calls that reached the machine, in order, as "function(arguments)". Calls that retain,
/// release, make or read objects of Core Foundation are not traced.
const std::vector<std::string>& trace();
/// The calls in the trace with this prefix.
std::vector<std::string> calls(std::string_view prefix);

/// The number of objects that the frameworks returned and that were not released.
std::size_t liveObjects();

/// Replaces the machine with an empty one, without objects of the old one.
void startOver();

}  // namespace standin
