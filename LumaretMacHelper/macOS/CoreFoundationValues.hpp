// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <new>
#include <optional>
#include <string>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationReference.hpp"

namespace lumaret {

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
