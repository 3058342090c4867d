// SPDX-License-Identifier: Apache-2.0
#include <dlfcn.h>
#include <unicode/ucol.h>
#include <unicode/uloc.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "LumaretMacHelper/Platform.hpp"

namespace lumaret {
namespace {

std::runtime_error failure(const std::string& reason) {
  return std::runtime_error("The order of names could not be loaded: " + reason);
}

std::runtime_error loaderFailure() {
  const char* reason = ::dlerror();
  return failure(reason != nullptr ? reason : "unknown reason");
}

/// A function of ICU. The first call loads the library, which then stays loaded. In a run that
/// compares no names, loading it would take a fifth of the time.
template <typename Function>
Function* functionOfICU(const char* name) {
  void* const library = ::dlopen(LUMARET_ICU_LIBRARY, RTLD_LAZY | RTLD_LOCAL);
  void* const function = library != nullptr ? ::dlsym(library, name) : nullptr;
  if (function == nullptr) {
    throw loaderFailure();
  }
  return reinterpret_cast<Function*>(function);
}

// In ICU's headers each function is a macro that adds the version to its name. So only the
// preprocessor knows the name that the library exports.
// NOLINTBEGIN(cppcoreguidelines-macro-usage)
#define LUMARET_QUOTED(text) #text
#define LUMARET_ICU_FUNCTION(function) functionOfICU<decltype(function)>(LUMARET_QUOTED(function))
// NOLINTEND(cppcoreguidelines-macro-usage)

/// The locale that setlocale(3) would choose for LC_COLLATE from the environment.
std::string collationLocale() {
  for (const char* name : {"LC_ALL", "LC_COLLATE", "LANG"}) {
    const char* value = std::getenv(name);
    if (value != nullptr && *value != '\0') {
      return value;
    }
  }
  return "C";
}

/// ICU's name for the collation. The locales C and POSIX, with or without an encoding, get the root
/// collation. ICU would take them for en_US_POSIX, which sorts all capitals first.
std::string collationName(const std::string& locale) {
  const std::string language = locale.substr(0, locale.find_first_of(".@"));
  if (language == "C" || language == "POSIX") {
    return "root";
  }
  const auto canonicalize = LUMARET_ICU_FUNCTION(uloc_canonicalize);
  std::array<char, ULOC_FULLNAME_CAPACITY> name{};
  UErrorCode status = U_ZERO_ERROR;
  canonicalize(locale.c_str(), name.data(), static_cast<int32_t>(name.size() - 1), &status);
  return U_SUCCESS(status) != 0 ? name.data() : "root";
}

/// Without this call, ICU takes its default locale from the environment. If it cannot make a name
/// of the text there, it ends the process (seen with ICU 76). Nothing here depends on the default.
void setDefaultLocale() {
  const auto setDefault = LUMARET_ICU_FUNCTION(uloc_setDefault);
  UErrorCode ignored = U_ZERO_ERROR;
  setDefault("root", &ignored);
}

using Collator = std::unique_ptr<UCollator, decltype(&ucol_close)>;

Collator openCollator(const std::string& locale) {
  setDefaultLocale();
  const auto open = LUMARET_ICU_FUNCTION(ucol_open);
  const auto setAttribute = LUMARET_ICU_FUNCTION(ucol_setAttribute);
  UErrorCode status = U_ZERO_ERROR;
  // A locale that has no collation gets the root collation. ICU refuses a text that is not a
  // locale.
  UCollator* opened = open(collationName(locale).c_str(), &status);
  if (U_FAILURE(status) != 0) {
    status = U_ZERO_ERROR;
    opened = open("root", &status);
  }
  Collator collator(opened, LUMARET_ICU_FUNCTION(ucol_close));
  setAttribute(collator.get(), UCOL_STRENGTH, UCOL_SECONDARY, &status);
  setAttribute(collator.get(), UCOL_NORMALIZATION_MODE, UCOL_ON, &status);
  if (U_FAILURE(status) != 0) {
    throw failure(LUMARET_ICU_FUNCTION(u_errorName)(status));
  }
  return collator;
}

class Order {
 public:
  explicit Order(const std::string& locale) : collator_(openCollator(locale)) {}

  [[nodiscard]] std::weak_ordering compare(const std::string& left,
                                           const std::string& right) const {
    UErrorCode status = U_ZERO_ERROR;
    const UCollationResult result =
        compare_(collator_.get(), left.data(), static_cast<int32_t>(left.size()), right.data(),
                 static_cast<int32_t>(right.size()), &status);
    return static_cast<int>(result) <=> 0;
  }

 private:
  Collator collator_;
  decltype(&ucol_strcollUTF8) compare_ = LUMARET_ICU_FUNCTION(ucol_strcollUTF8);
};

}  // namespace

TextComparison localizedCaseInsensitiveComparison() {
  // A sort copies its comparison. All copies share one order.
  const auto order = std::make_shared<std::optional<Order>>();
  return [locale = collationLocale(), order](const std::string& left, const std::string& right) {
    if (left == right) {
      return std::weak_ordering::equivalent;  // In every order.
    }
    if (!*order) {
      order->emplace(locale);
    }
    return (*order)->compare(left, right);
  };
}

}  // namespace lumaret
