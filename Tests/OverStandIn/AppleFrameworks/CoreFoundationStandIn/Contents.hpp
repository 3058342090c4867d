// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>
#include <variant>
#include <vector>

#include "Tests/OverStandIn/AppleFrameworks/Objects.hpp"

/// Contents of the objects of the stand-in for Core Foundation.
namespace standin {

struct TextObject {
  Text text;
};
struct NumberObject {
  double number;
};
struct BooleanObject {
  bool value;
};
struct DateObject {
  double seconds;
};
struct DataObject {
  Bytes bytes;
};
/// Owns its elements.
struct ArrayObject {
  std::vector<CFTypeRef> elements;
};
/// Owns its keys and values.
struct DictionaryObject {
  std::vector<std::pair<CFTypeRef, CFTypeRef>> entries;
};
struct LocaleObject {};

using Content = std::variant<SecurityObject, TextObject, NumberObject, BooleanObject, DateObject,
                             DataObject, ArrayObject, DictionaryObject, LocaleObject>;

CFTypeRef createContent(Content content);

template <typename Reference, typename Type>
Reference createContentAs(Type content) {
  return static_cast<Reference>(const_cast<void*>(createContent(Content(std::move(content)))));
}

CFBooleanRef constantTrue();

/// The content of a live object. Refuses every other.
Content& content(CFTypeRef object, const char* function);

/// Also refuses an object of another type.
template <typename Type>
Type& contentAs(CFTypeRef object, const char* function) {
  auto* const typed = std::get_if<Type>(&content(object, function));
  if (typed == nullptr) {
    refuse(function, "an object of the wrong type");
  }
  return *typed;
}

/// The type identifier of an object with this content. Those of the Security framework follow those
/// of Core Foundation.
CFTypeID typeIdentifierOf(const Content& content);

template <typename Type>
CFTypeID contentTypeIdentifier() {
  return typeIdentifierOf(Content(Type{}));
}

}  // namespace standin
