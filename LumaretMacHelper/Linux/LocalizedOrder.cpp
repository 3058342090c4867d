// SPDX-License-Identifier: Apache-2.0
#include <unicode/ucol.h>
#include <unicode/uloc.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>

#include "LumaretMacHelper/PlatformFunctions.hpp"

namespace lumaret {
namespace {

using Collator =
    std::unique_ptr<UCollator, decltype([](UCollator* collator) { ucol_close(collator); })>;

/// The locale that setlocale(3) would choose for LC_COLLATE from the environment.
std::string collationLocale() {
  for (const char* name : {"LC_ALL", "LC_COLLATE", "LANG"}) {
    if (const char* value = std::getenv(name); value != nullptr && *value != '\0') {
      return value;
    }
  }
  return "C";
}

/// ICU's name for the collation. C and POSIX, with or without an encoding, get the root collation:
/// ICU would take them for en_US_POSIX, which sorts all capitals first.
std::string collationName(const std::string& locale) {
  const std::string language = locale.substr(0, locale.find_first_of(".@"));
  if (language == "C" || language == "POSIX") {
    return "root";
  }
  std::array<char, ULOC_FULLNAME_CAPACITY> name{};
  UErrorCode status = U_ZERO_ERROR;
  uloc_canonicalize(locale.c_str(), name.data(), static_cast<int32_t>(name.size() - 1), &status);
  return U_SUCCESS(status) != 0 ? name.data() : "root";
}

Collator openCollator(const std::string& name) {
  UErrorCode status = U_ZERO_ERROR;
  // Otherwise ICU takes its default locale from the environment, and aborts if it cannot make a
  // name of the text there (seen with ICU 76). Nothing here depends on the default.
  uloc_setDefault("root", &status);
  // ICU falls back to the root collation, but refuses a text that is not a locale.
  status = U_ZERO_ERROR;
  Collator collator(ucol_open(name.c_str(), &status));
  if (U_FAILURE(status) != 0) {
    status = U_ZERO_ERROR;
    collator.reset(ucol_open("root", &status));
  }
  ucol_setAttribute(collator.get(), UCOL_STRENGTH, UCOL_SECONDARY, &status);
  ucol_setAttribute(collator.get(), UCOL_NORMALIZATION_MODE, UCOL_ON, &status);
  if (U_FAILURE(status) != 0) {
    throw std::runtime_error(u_errorName(status));
  }
  return collator;
}

}  // namespace

TextComparison localizedCaseInsensitiveComparison() {
  // A sort copies its comparison. All copies share one collator.
  const std::shared_ptr<const UCollator> collator = openCollator(collationName(collationLocale()));
  return [collator](const std::string& left, const std::string& right) -> std::weak_ordering {
    UErrorCode status = U_ZERO_ERROR;
    const UCollationResult result =
        ucol_strcollUTF8(collator.get(), left.data(), static_cast<int32_t>(left.size()),
                         right.data(), static_cast<int32_t>(right.size()), &status);
    return static_cast<int>(result) <=> 0;
  };
}

}  // namespace lumaret
