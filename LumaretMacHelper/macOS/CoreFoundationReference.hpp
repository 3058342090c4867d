// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

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

}  // namespace lumaret
