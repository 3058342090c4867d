// SPDX-License-Identifier: Apache-2.0
#include <unicode/ucol.h>
#include <unicode/uloc.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include "LumaretMacHelper/PlatformFunctions.hpp"

namespace lumaret {
namespace {

/// ICU's name for the locale that setlocale(3) would choose for LC_COLLATE from the environment,
/// without the encoding and the modifier, neither of which changes an order. C and POSIX become the
/// root locale: ICU would take them for en_US_POSIX, which sorts all capitals first.
std::string collationLocale() {
  for (const char* variable : {"LC_ALL", "LC_COLLATE", "LANG"}) {
    if (const char* value = std::getenv(variable); value != nullptr && *value != '\0') {
      const std::string locale(value, std::strcspn(value, ".@"));
      return locale == "C" || locale == "POSIX" ? "root" : locale;
    }
  }
  return "root";
}

}  // namespace

TextComparison localizedCaseInsensitiveComparison() {
  UErrorCode status = U_ZERO_ERROR;
  // Otherwise ICU takes its default locale from the environment, and aborts if it cannot make a
  // name of the text there (seen with ICU 76). Nothing here depends on the default.
  uloc_setDefault("root", &status);
  status = U_ZERO_ERROR;
  // A sort copies its comparison. All copies share one collator.
  std::shared_ptr<UCollator> collator(ucol_open(collationLocale().c_str(), &status), ucol_close);
  if (U_FAILURE(status) != 0) {  // The text is not a locale.
    status = U_ZERO_ERROR;
    collator.reset(ucol_open("root", &status), ucol_close);
  }
  ucol_setAttribute(collator.get(), UCOL_STRENGTH, UCOL_SECONDARY, &status);
  ucol_setAttribute(collator.get(), UCOL_NORMALIZATION_MODE, UCOL_ON, &status);
  if (U_FAILURE(status) != 0) {
    throw std::runtime_error(u_errorName(status));
  }
  return [collator](const std::string& left, const std::string& right) -> std::weak_ordering {
    UErrorCode ignored = U_ZERO_ERROR;
    const UCollationResult result =
        ucol_strcollUTF8(collator.get(), left.data(), static_cast<int32_t>(left.size()),
                         right.data(), static_cast<int32_t>(right.size()), &ignored);
    return static_cast<int>(result) <=> 0;
  };
}

}  // namespace lumaret
