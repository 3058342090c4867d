#pragma once

#include <compare>
#include <functional>
#include <string>

namespace lumaret {

using TextComparison = std::function<std::weak_ordering(const std::string&, const std::string&)>;

/// The platform's case-insensitive comparison of UTF-8 texts under the user's current locale.
/// The locale is read when this is called; the comparison may be kept for one whole sort.
TextComparison localizedCaseInsensitiveComparison();

}  // namespace lumaret
