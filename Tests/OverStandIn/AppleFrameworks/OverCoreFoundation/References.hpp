// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CoreFoundation/CoreFoundation.h>

// The linker hands each call of these functions that the tests and what they test make to
// __wrap_…, and knows the library's own as __real_….
extern "C" {
CFTypeRef __real_CFRetain(CFTypeRef object);
void __real_CFRelease(CFTypeRef object);
}

namespace standin {

// Counts the references that whoever calls the frameworks owns.
void countObtained(CFTypeRef object);
/// Refuses a reference that nobody owns.
void givenBack(CFTypeRef object, const char* function);

/// The object, counted; null as it is.
template <typename Reference>
Reference obtained(Reference object) {
  if (object != nullptr) {
    countObtained(object);
  }
  return object;
}

}  // namespace standin
