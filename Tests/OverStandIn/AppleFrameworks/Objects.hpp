// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"

namespace standin {

/// Ends the process with a message if the function was given something else than this.
void require(bool condition, const char* what, const char* function = __builtin_FUNCTION());

template <typename Reference>
Reference as(CFTypeRef object) {
  return static_cast<Reference>(const_cast<void*>(object));
}

/// A copy of the access list of a key, to be edited.
struct EditedAccessList {
  json entries;
  /// The indices of the entries that were edited and not yet stored.
  std::set<std::size_t> edited = {};
};

/// An object of the Security framework.
struct Object {
  enum class Type : std::uint8_t { identity, certificate, key, keychain, access, acl, application };
  static constexpr std::size_t typeCount = 7;

  Type type;
  /// In the trace. That of an application is its path.
  std::string name = {};
  /// Of the identity, or of the entry in the list.
  std::size_t index = 0;
  std::shared_ptr<EditedAccessList> list = nullptr;
};

// CoreFoundationStandIn/CoreFoundation.cpp defines these for a stand-in that includes Core
// Foundation, and OverCoreFoundation/RuntimeObjects.cpp for Apple's own library. Objects are made
// with one reference, which the caller owns.
CFTypeRef create(Object object);
/// The content of a live object. Refuses every other, and one of another type.
Object& content(CFTypeRef object, Object::Type type, const char* function = __builtin_FUNCTION());
CFTypeID typeIdentifier(Object::Type type);
/// An object that is never released nor counted, like the constants of the frameworks.
CFStringRef constantText(const char* name);

// Values.cpp defines these for both.
/// Null for null.
CFTypeRef create(const json& value);
CFStringRef createText(std::u16string_view text);
/// Takes over the caller's references to the elements.
CFTypeRef createArray(const std::vector<CFTypeRef>& elements);
/// Borrowed. None for null.
std::vector<CFTypeRef> elementsOf(CFTypeRef array);
/// A string, or a list of strings.
json valueOf(CFTypeRef object);
/// In UTF-8. Nothing if the string has no such form.
std::optional<std::string> textOf(CFStringRef text);
/// Nothing if the string is not UTF-8.
std::optional<std::u16string> fromUTF8(std::string_view text);

}  // namespace standin
