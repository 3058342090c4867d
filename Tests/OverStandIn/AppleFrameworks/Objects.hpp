// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"

// The objects of the Security framework, and what its functions do with those of Core Foundation.
// Two sources define these functions: CoreFoundationStandIn/Contents.cpp for a stand-in that
// includes Core Foundation, and OverCoreFoundation/RuntimeObjects.cpp for Apple's own library.

namespace standin {

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
/// The keychain that holds a key.
struct KeychainObject {};
/// A copy of the access list of a key, to be edited.
struct EditedAccessList {
  AccessList entries;
  /// The indices of the entries that were edited and not yet stored.
  std::set<std::size_t> edited = {};
};
struct AccessObject {
  std::string name;
  std::shared_ptr<EditedAccessList> list;
};
struct ACLObject {
  std::shared_ptr<EditedAccessList> list;
  std::size_t index;
};
struct ApplicationObject {
  std::string path;
};

using SecurityObject = std::variant<IdentityObject, CertificateObject, KeyObject, KeychainObject,
                                    AccessObject, ACLObject, ApplicationObject>;

/// Ends the process with a message.
[[noreturn]] void refuse(const char* function, const std::string& why);

// Each makes a new object with one reference, which the caller owns.
CFTypeRef create(SecurityObject object);
CFTypeRef create(const Value& value);
/// Takes over the caller's references to the elements.
CFTypeRef createArray(const std::vector<CFTypeRef>& elements);

template <typename Reference, typename Source>
Reference createAs(Source source) {
  return static_cast<Reference>(const_cast<void*>(create(std::move(source))));
}

/// An object that is never released nor counted, like the constants of the frameworks.
CFStringRef constantText(const char* name);

void retain(CFTypeRef object, const char* function);
void release(CFTypeRef object, const char* function);

/// Returns a live object of the Security framework. Refuses every other.
SecurityObject& securityObject(CFTypeRef object, const char* function);

/// Also refuses an object of another type.
template <typename Type>
Type& as(CFTypeRef object, const char* function) {
  auto* const typed = std::get_if<Type>(&securityObject(object, function));
  if (typed == nullptr) {
    refuse(function, "an object of the wrong type");
  }
  return *typed;
}

/// The name of the type with this index.
CFTypeID securityTypeIdentifier(std::size_t index);

template <typename Type>
CFTypeID typeIdentifier() {
  return securityTypeIdentifier(SecurityObject(Type{}).index());
}

// Contents of Core Foundation's objects. Each function refuses an object of another type.
Text textOf(CFTypeRef text, const char* function);
/// The elements stay owned by the array.
std::vector<CFTypeRef> elementsOf(CFTypeRef array, const char* function);
/// A string, or a list of strings.
Value valueOf(CFTypeRef object, const char* function);

/// The form of any object, or of null, in the trace.
std::string described(CFTypeRef object, const char* function);
/// The same, only for objects of the Security framework.
std::string described(const SecurityObject& object);

void forgetEveryObject();

}  // namespace standin
