// SPDX-License-Identifier: Apache-2.0
#include <unicode/ucol.h>
#include <unicode/uloc.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>

#include "LumaretMacHelper/Platform.hpp"

namespace lumaret {
namespace {

/// The locale that setlocale(3) would take for LC_COLLATE from the environment.
std::string collationLocale() {
  for (const char* name : {"LC_ALL", "LC_COLLATE", "LANG"}) {
    const char* value = std::getenv(name);
    if (value != nullptr && *value != '\0') {
      return value;
    }
  }
  return "C";
}

/// ICU's name for the collation. The C and POSIX locales (with an encoding or without one) get the
/// root collation: ICU would take them for en_US_POSIX, which sorts all capitals first.
std::string collationName() {
  const std::string locale = collationLocale();
  const std::string language = locale.substr(0, locale.find_first_of(".@"));
  if (language == "C" || language == "POSIX") {
    return "root";
  }
  std::array<char, ULOC_FULLNAME_CAPACITY> name{};
  UErrorCode status = U_ZERO_ERROR;
  uloc_canonicalize(locale.c_str(), name.data(), static_cast<int32_t>(name.size() - 1), &status);
  return U_SUCCESS(status) != 0 ? name.data() : "root";
}

/// Of its own accord, ICU takes its default from the environment, and a text there that it cannot
/// make a name of ends the process (seen with ICU 76). Nothing here depends on that default.
void setDefaultLocale() {
  UErrorCode ignored = U_ZERO_ERROR;
  uloc_setDefault("root", &ignored);
}

std::shared_ptr<UCollator> openCollator() {
  setDefaultLocale();
  UErrorCode status = U_ZERO_ERROR;
  // A locale without a collation of its own gets the root collation; nonsense is refused.
  UCollator* opened = ucol_open(collationName().c_str(), &status);
  if (U_FAILURE(status) != 0) {
    status = U_ZERO_ERROR;
    opened = ucol_open("root", &status);
  }
  std::shared_ptr<UCollator> collator(opened, ucol_close);
  ucol_setAttribute(collator.get(), UCOL_STRENGTH, UCOL_SECONDARY, &status);
  ucol_setAttribute(collator.get(), UCOL_NORMALIZATION_MODE, UCOL_ON, &status);
  if (U_FAILURE(status) != 0) {
    throw std::runtime_error(std::string("The order of names could not be loaded: ") +
                             u_errorName(status));
  }
  return collator;
}

}  // namespace

TextComparison localizedCaseInsensitiveComparison() {
  return [collator = openCollator()](const std::string& left, const std::string& right) {
    UErrorCode status = U_ZERO_ERROR;
    const UCollationResult result =
        ucol_strcollUTF8(collator.get(), left.data(), static_cast<int32_t>(left.size()),
                         right.data(), static_cast<int32_t>(right.size()), &status);
    return static_cast<int>(result) <=> 0;
  };
}

}  // namespace lumaret
