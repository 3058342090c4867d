// SPDX-License-Identifier: Apache-2.0
#include "Tests/OverStandIn/AppleFrameworks/UnicodeConversion.hpp"

namespace standin {
namespace {

bool isSurrogate(char32_t character) { return character >= 0xd800 && character < 0xe000; }

/// Removes the first character and returns it. Returns std::nullopt if the string does not begin
/// with a character.
std::optional<char32_t> takeCharacter(std::string_view& text) {
  const auto first = static_cast<unsigned char>(text.front());
  const std::size_t length = first < 0x80 ? 1 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
  if (length > text.size() || (first >= 0x80 && first < 0xc2) || first > 0xf4) {
    return std::nullopt;
  }
  char32_t character = length == 1 ? first : first & (0x7fU >> length);
  for (std::size_t index = 1; index < length; ++index) {
    const auto next = static_cast<unsigned char>(text[index]);
    if ((next & 0xc0) != 0x80) {
      return std::nullopt;
    }
    character = character << 6 | (next & 0x3f);
  }
  text.remove_prefix(length);
  constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
  if (character < smallest[length] || character > 0x10ffff || isSurrogate(character)) {
    return std::nullopt;
  }
  return character;
}

void append(std::string& text, char32_t character) {
  const auto tail = [character](unsigned shift) {
    return static_cast<char>(0x80 | (character >> shift & 0x3f));
  };
  if (character < 0x80) {
    text += static_cast<char>(character);
  } else if (character < 0x800) {
    text += {static_cast<char>(0xc0 | character >> 6), tail(0)};
  } else if (character < 0x10000) {
    text += {static_cast<char>(0xe0 | character >> 12), tail(6), tail(0)};
  } else {
    text += {static_cast<char>(0xf0 | character >> 18), tail(12), tail(6), tail(0)};
  }
}

}  // namespace

std::optional<std::u16string> fromUTF8(std::string_view text) {
  std::u16string converted;
  while (!text.empty()) {
    const auto character = takeCharacter(text);
    if (!character) {
      return std::nullopt;
    }
    if (*character < 0x10000) {
      converted += static_cast<char16_t>(*character);
    } else {
      converted += static_cast<char16_t>(0xd7c0 + (*character >> 10));
      converted += static_cast<char16_t>(0xdc00 | (*character & 0x3ff));
    }
  }
  return converted;
}

UTF8Conversion toUTF8(std::u16string_view text) {
  UTF8Conversion result = {"", 0};
  while (result.units < text.size()) {
    char32_t character = text[result.units];
    std::size_t units = 1;
    if (isSurrogate(character)) {
      const char32_t next = result.units + 1 < text.size() ? text[result.units + 1] : 0;
      if (character >= 0xdc00 || next < 0xdc00 || next >= 0xe000) {
        break;
      }
      character = 0x10000 + ((character & 0x3ff) << 10 | (next & 0x3ff));
      units = 2;
    }
    append(result.text, character);
    result.units += units;
  }
  return result;
}

}  // namespace standin
