// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace standin {

/// Returns std::nullopt if the string is not UTF-8.
std::optional<std::u16string> fromUTF8(std::string_view text);

struct UTF8Conversion {
  std::string text;
  /// How many units of UTF-16 were converted: all of them, or those before the first lone
  /// surrogate.
  std::size_t units;
};

UTF8Conversion toUTF8(std::u16string_view text);

}  // namespace standin
