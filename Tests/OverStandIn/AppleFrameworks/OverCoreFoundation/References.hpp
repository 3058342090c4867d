// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CoreFoundation/CoreFoundation.h>

// The linker replaces each call of these functions in the tests and in the code under test with one
// of __wrap_…. The library's own functions are __real_….
extern "C" {
CFTypeRef __real_CFRetain(CFTypeRef object);
void __real_CFRelease(CFTypeRef object);
}

namespace standin {

// Counts the references that callers of the frameworks own.
void countObtained(CFTypeRef object);
/// Refuses a reference that nobody owns.
void givenBack(CFTypeRef object, const char* function);

/// Counts the object and returns it. Null stays null.
template <typename Reference>
Reference obtained(Reference object) {
  if (object != nullptr) {
    countObtained(object);
  }
  return object;
}

}  // namespace standin
