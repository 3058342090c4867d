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

// The Security framework's objects, and what its functions do with those of Core Foundation. Two
// sources define these functions: CoreFoundationStandIn/Contents.cpp, where the stand-in is Core
// Foundation too, and OverCoreFoundation/RuntimeObjects.cpp, over Apple's own library.

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
/// A copy of a key's access list, to edit.
struct EditedAccessList {
  AccessList entries;
  /// The indices of those that were edited and not yet stored.
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
/// Takes the caller's references of the elements over.
CFTypeRef createArray(const std::vector<CFTypeRef>& elements);

template <typename Reference, typename Source>
Reference createAs(Source source) {
  return static_cast<Reference>(const_cast<void*>(create(std::move(source))));
}

/// An object that is never released and that counts nowhere, as the frameworks' constants are.
CFStringRef constantText(const char* name);

void retain(CFTypeRef object, const char* function);
void release(CFTypeRef object, const char* function);

/// A live object of the Security framework; refuses every other.
SecurityObject& securityObject(CFTypeRef object, const char* function);

/// Refuses an object of another type, too.
template <typename Type>
Type& as(CFTypeRef object, const char* function) {
  auto* const typed = std::get_if<Type>(&securityObject(object, function));
  if (typed == nullptr) {
    refuse(function, "an object of the wrong type");
  }
  return *typed;
}

/// Of the alternative of this index.
CFTypeID securityTypeIdentifier(std::size_t index);

template <typename Type>
CFTypeID typeIdentifier() {
  return securityTypeIdentifier(SecurityObject(Type{}).index());
}

// What Core Foundation's objects hold. Each refuses an object of another type.
Text textOf(CFTypeRef text, const char* function);
/// Borrowed.
std::vector<CFTypeRef> elementsOf(CFTypeRef array, const char* function);
/// A text, or a list of them.
Value valueOf(CFTypeRef object, const char* function);

/// For the trace: any object, or null.
std::string described(CFTypeRef object, const char* function);
/// The same, of the Security framework's objects alone.
std::string described(const SecurityObject& object);

void forgetEveryObject();

}  // namespace standin
