// SPDX-License-Identifier: Apache-2.0
#include "Tests/OverStandIn/AppleFrameworks/UnicodeConversion.hpp"

#include <unicode/ustring.h>
#include <unicode/utf16.h>

namespace standin {

std::optional<std::u16string> fromUTF8(std::string_view text) {
  std::u16string converted(text.size(), u'\0');
  int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8(converted.data(), static_cast<int32_t>(converted.size()), &length, text.data(),
                static_cast<int32_t>(text.size()), &status);
  if (U_FAILURE(status) != 0) {
    return std::nullopt;
  }
  converted.resize(static_cast<std::size_t>(length));
  return converted;
}

UTF8Conversion toUTF8(std::u16string_view text) {
  std::size_t units = 0;
  for (std::size_t next = 0; next < text.size(); units = next) {
    UChar32 character = 0;
    U16_NEXT(text, next, text.size(), character);
    if (U_IS_SURROGATE(character)) {
      break;
    }
  }
  std::string converted(units * 3, '\0');  // No unit takes more bytes.
  int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strToUTF8(converted.data(), static_cast<int32_t>(converted.size()), &length, text.data(),
              static_cast<int32_t>(units), &status);
  converted.resize(static_cast<std::size_t>(length));
  return {std::move(converted), units};
}

}  // namespace standin
