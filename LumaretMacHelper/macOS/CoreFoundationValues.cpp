// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"

#include <stdexcept>

namespace lumaret {
namespace {

/// Strings are exchanged without a byte order mark.
constexpr Boolean isExternalRepresentation = 0;

}  // namespace

std::optional<std::string> utf8Text(CFStringRef text) {
  const CFRange all = CFRangeMake(0, ::CFStringGetLength(text));
  constexpr UInt8 noReplacement = 0;
  CFIndex size = 0;
  ::CFStringGetBytes(text, all, kCFStringEncodingUTF8, noReplacement, isExternalRepresentation,
                     nullptr, 0, &size);
  // The size does not show whether every character can be converted. Writing the bytes does.
  std::string result(static_cast<std::size_t>(size), '\0');
  const CFIndex converted =
      ::CFStringGetBytes(text, all, kCFStringEncodingUTF8, noReplacement, isExternalRepresentation,
                         reinterpret_cast<UInt8*>(result.data()), size, &size);
  if (converted != all.length) {
    return std::nullopt;
  }
  result.resize(static_cast<std::size_t>(size));
  return result;
}

CoreFoundationReference<CFStringRef> coreFoundationText(const std::string& text) {
  // Core Foundation drops one leading U+FEFF, whatever isExternalRepresentation says: a string that
  // begins with one needs another in front. It also accepts some invalid bytes, and replaces them.
  for (const std::string& given : {text, "\xef\xbb\xbf" + text}) {
    auto result = CoreFoundationReference<CFStringRef>::adopt(::CFStringCreateWithBytes(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(given.data()),
        static_cast<CFIndex>(given.size()), kCFStringEncodingUTF8, isExternalRepresentation));
    if (result && utf8Text(result.get()) == text) {
      return result;
    }
  }
  throw std::invalid_argument("A text is not UTF-8.");
}

Bytes bytes(CFDataRef data) {
  const UInt8* const first = ::CFDataGetBytePtr(data);
  return {first, first + ::CFDataGetLength(data)};
}

std::vector<CFTypeRef> elements(CFArrayRef array) {
  const CFIndex count = ::CFArrayGetCount(array);
  std::vector<CFTypeRef> result;
  result.reserve(static_cast<std::size_t>(count));
  for (CFIndex index = 0; index < count; ++index) {
    result.push_back(::CFArrayGetValueAtIndex(array, index));
  }
  return result;
}

}  // namespace lumaret
