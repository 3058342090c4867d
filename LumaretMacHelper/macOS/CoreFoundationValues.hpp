// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"

namespace lumaret {

/// Owns one reference to a Core Foundation object, or nothing. `Object` is a pointer type, such as
/// CFStringRef. A copy shares the object and owns another reference.
template <typename Object>
class CoreFoundationReference {
 public:
  CoreFoundationReference() = default;

  /// Takes over the reference that a function named Create or Copy returned, if it returned one.
  [[nodiscard]] static CoreFoundationReference adopt(Object object) noexcept {
    return CoreFoundationReference(object);
  }
  /// Adds a reference to a borrowed object, such as an array's element.
  [[nodiscard]] static CoreFoundationReference retain(Object object) noexcept {
    if (object != nullptr) {
      ::CFRetain(object);
    }
    return CoreFoundationReference(object);
  }

  CoreFoundationReference(const CoreFoundationReference& other) noexcept
      : CoreFoundationReference(retain(other.object_)) {}
  CoreFoundationReference(CoreFoundationReference&& other) noexcept
      : object_(std::exchange(other.object_, nullptr)) {}
  CoreFoundationReference& operator=(CoreFoundationReference other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~CoreFoundationReference() {
    if (object_ != nullptr) {
      ::CFRelease(object_);
    }
  }

  explicit operator bool() const noexcept { return object_ != nullptr; }
  [[nodiscard]] Object get() const noexcept { return object_; }

  /// Where a function may leave a reference for its caller to own. Releases the one held before.
  [[nodiscard]] Object* receive() noexcept {
    *this = CoreFoundationReference();
    return &object_;
  }

 private:
  explicit CoreFoundationReference(Object object) noexcept : object_(object) {}

  Object object_ = nullptr;
};

/// The object under its own type; null if there is none or if it is of another type.
template <typename Object>
Object objectAs(CFTypeRef object, CFTypeID type) {
  if (object == nullptr || ::CFGetTypeID(object) != type) {
    return nullptr;
  }
  // Security's pointer types are not const, unlike CFTypeRef.
  return static_cast<Object>(const_cast<void*>(object));
}

/// The string in UTF-8; nothing if it has no such form, as with a lone surrogate.
std::optional<std::string> utf8Text(CFStringRef text);

/// The same string, unchanged. Throws std::invalid_argument if it is not UTF-8.
CoreFoundationReference<CFStringRef> coreFoundationText(const std::string& text);

Bytes bytes(CFDataRef data);

/// Borrowed references, valid as long as the array.
std::vector<CFTypeRef> elements(CFArrayRef array);

/// The array owns a reference to each object. Throws std::bad_alloc rather than return no array,
/// which the calls that take it understand differently.
template <typename Object>
CoreFoundationReference<CFArrayRef> coreFoundationArray(
    const std::vector<CoreFoundationReference<Object>>& objects) {
  std::vector<const void*> values;
  values.reserve(objects.size());
  for (const auto& object : objects) {
    values.push_back(object.get());
  }
  auto array = CoreFoundationReference<CFArrayRef>::adopt(
      ::CFArrayCreate(kCFAllocatorDefault, values.data(), static_cast<CFIndex>(values.size()),
                      &kCFTypeArrayCallBacks));
  if (!array) {
    throw std::bad_alloc();
  }
  return array;
}

}  // namespace lumaret
