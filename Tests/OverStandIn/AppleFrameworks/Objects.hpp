// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"

namespace standin {

struct TextObject {
  Text text;
};
struct NumberObject {
  double number;
  /// Whether that is the number itself, not only the nearest double.
  bool isExact = true;
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
struct URLObject {
  std::string text;
};
struct IdentityObject {
  Identity identity;
};
struct CertificateObject {
  Identity identity;
};
struct KeyObject {
  std::string name;
  std::shared_ptr<PrivateKey> key;
};
/// A copy of a key's access list, to edit and to store.
struct AccessObject {
  std::string name;
  std::shared_ptr<AccessList> list;
};
struct ACLObject {
  std::shared_ptr<AccessList> list;
  std::size_t index;
};
struct ApplicationObject {
  std::string path;
};

using Content =
    std::variant<TextObject, NumberObject, BooleanObject, DateObject, DataObject, ArrayObject,
                 DictionaryObject, LocaleObject, URLObject, IdentityObject, CertificateObject,
                 KeyObject, AccessObject, ACLObject, ApplicationObject>;

/// Ends the process with a message.
[[noreturn]] void refuse(const char* function, const std::string& why);

/// Refuses every encoding but UTF-8.
void requireUTF8(CFStringEncoding encoding, const char* function);

/// A new object with one reference, which the caller owns.
CFTypeRef create(Content content);
CFTypeRef create(const Value& value);

template <typename Reference, typename Source>
Reference createAs(Source source) {
  return static_cast<Reference>(const_cast<void*>(create(std::move(source))));
}

/// An object that is never released and that counts nowhere, as the frameworks' constants are.
CFStringRef constantText(const char* name);
CFBooleanRef constantTrue();

void retain(CFTypeRef object, const char* function);
void release(CFTypeRef object, const char* function);

/// The live object's content; refuses every other.
Content& content(CFTypeRef object, const char* function);

/// Refuses an object of another type, too.
template <typename Type>
Type& as(CFTypeRef object, const char* function) {
  auto* const typed = std::get_if<Type>(&content(object, function));
  if (typed == nullptr) {
    refuse(function, "an object of the wrong type");
  }
  return *typed;
}

template <typename Type>
CFTypeID typeIdentifier() {
  return Content(Type{}).index() + 1;
}

/// The other way: what an object holds, as a preference. Refuses what no preference can be.
Value valueOf(CFTypeRef object, const char* function);

/// For the trace.
std::string described(CFTypeRef object, const char* function);

void forgetEveryObject();

}  // namespace standin
