// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <compare>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/PlatformFunctions.hpp"

namespace lumaret::tests::conformance {

/// The order of names.
///
/// `Languages` chooses the user's language:
///     static std::vector<std::string> all()
///         Identifiers such as "sv". There is at least one.
///     void choose(const std::string&)
///         From now on this is the user's language.
template <typename Languages>
class OrderConformance : public testing::Test {
 protected:
  Languages languages_;
};

TYPED_TEST_SUITE_P(OrderConformance);

TYPED_TEST_P(OrderConformance, RanksNamesAndEquatesCaseAndCompositionAlone) {
  // Letters that fold, expand or have an order of their own in some language.
  // clang-format off
  std::vector<std::string> names = {
      "", "a", "A", "b", "Z", "z", "e", "\u00e9", "E\u0301", "o", "\u00f6", "O\u0308", "\u00df", "ss",
      "SS", "\uff41", "\uff21", "n", "\u00f1", " ", "-", "1", "10", "\u3042", "\u30a2", "\uff71",
      "\u00e5", "\u00c5", "\u00e6", "\u0131", "\u0130", "i", "I", "\ufb01", "Jos\u00e9",
      "Jose\u0301"};
  // clang-format on
  for (std::size_t index = 0, count = names.size(); index < count; index += 2) {
    names.push_back(names[index] + names[count - 1 - index]);
  }
  for (const std::string& language : TypeParam::all()) {
    SCOPED_TRACE(language);
    this->languages_.choose(language);
    const TextComparison compare = localizedCaseInsensitiveComparison();
    std::stable_sort(names.begin(), names.end(),
                     [&](const auto& left, const auto& right) { return compare(left, right) < 0; });
    std::vector<int> ranks = {0};
    for (std::size_t next = 1; next < names.size(); ++next) {
      ranks.push_back(ranks.back() + (compare(names[next - 1], names[next]) < 0 ? 1 : 0));
    }
    for (std::size_t a = 0; a < names.size(); ++a) {
      for (std::size_t b = 0; b < names.size(); ++b) {
        ASSERT_EQ(compare(names[a], names[b]), std::weak_ordering(ranks[a] <=> ranks[b]))
            << names[a] << " " << names[b];
      }
    }

    for (const auto& [left, right] : {std::pair<std::string, std::string>("\u00e9", "e\u0301"),
                                      {"\u00c9va", "\u00e9VA"},
                                      {"\u00d6", "O\u0308"},
                                      {"\u212b", "A\u030a"},
                                      {"a\u0302\u0323", "a\u0323\u0302"},
                                      {"\u00f1", "n\u0303"},
                                      {"\u304c", "\u304b\u3099"}}) {
      for (const std::string& name : names) {
        EXPECT_EQ(compare(name + left, name + right), std::weak_ordering::equivalent) << name;
        EXPECT_EQ(compare(left + name, right + name), std::weak_ordering::equivalent) << name;
      }
    }
    EXPECT_EQ(compare("alpha", "Beta"), std::weak_ordering::less);
    EXPECT_EQ(compare("BETA", "alpha"), std::weak_ordering::greater);
    EXPECT_EQ(compare("", "a"), std::weak_ordering::less);
    EXPECT_NE(compare("resume", "r\u00e9sum\u00e9"), std::weak_ordering::equivalent);
  }
}

TYPED_TEST_P(OrderConformance, FoldsTheTurkishLetters) {
  this->languages_.choose("tr");
  const TextComparison compare = localizedCaseInsensitiveComparison();
  EXPECT_EQ(compare("ISIK", "\u0131s\u0131k"), std::weak_ordering::equivalent);
  EXPECT_EQ(compare("\u0130pek", "ipek"), std::weak_ordering::equivalent);
  EXPECT_NE(compare("I", "i"), std::weak_ordering::equivalent);
}

REGISTER_TYPED_TEST_SUITE_P(OrderConformance, RanksNamesAndEquatesCaseAndCompositionAlone,
                            FoldsTheTurkishLetters);

}  // namespace lumaret::tests::conformance
