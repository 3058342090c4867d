// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Tests/OverStandIn/AppleFrameworks/Objects.hpp"

/// Contents of the objects of the stand-in for Core Foundation.
namespace standin {

struct True {};
/// A string in the form of Core Foundation: UTF-16, which may be malformed.
using Text = std::u16string;
struct Date {
  double seconds;
};
using Bytes = std::vector<std::uint8_t>;
/// Owned by the array.
using Elements = std::vector<CFTypeRef>;
/// Owned by the dictionary.
using Members = std::vector<std::pair<CFTypeRef, CFTypeRef>>;
struct Locale {
  std::string name;
};

using Content = std::variant<True, Text, double, Date, Bytes, Elements, Members, Locale, Object>;

/// The content of a live object. Refuses every other.
Content& contentOf(CFTypeRef object, const char* function = __builtin_FUNCTION());

/// Also refuses an object of the right type.
template <typename Type>
Type& contentAs(CFTypeRef object, const char* function = __builtin_FUNCTION()) {
  auto* const typed = std::get_if<Type>(&contentOf(object, function));
  require(typed != nullptr, "an object of the right type", function);
  return *typed;
}

CFTypeRef make(Content content, bool isConstant = false);

template <typename Type>
CFTypeID typeIdentifier() {
  return Content(Type()).index();
}

}  // namespace standin
