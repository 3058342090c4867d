// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <compare>
#include <cstddef>
#include <initializer_list>
#include <random>
#include <string>
#include <vector>

#include "LumaretMacHelper/PlatformFunctions.hpp"

namespace lumaret::tests::conformance {

/// A string of this many pieces, chosen at random.
inline std::string madeOf(const std::vector<std::string>& pieces, std::size_t count,
                          std::mt19937& generator) {
  std::string text;
  for (std::size_t index = 0; index < count; ++index) {
    text += pieces[generator() % pieces.size()];
  }
  return text;
}

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
  /// Pairs of letters that are canonically equivalent by Unicode.
  struct Pair {
    std::string left;
    std::string right;
  };

  static const std::vector<Pair>& equivalents() {
    static const std::vector<Pair> pairs = {
        {"\xc3\xa9", "e\xcc\x81"},                     // é
        {"\xc3\x96", "O\xcc\x88"},                     // Ö
        {"\xc3\x85", "A\xcc\x8a"},                     // Å
        {"\xe2\x84\xab", "A\xcc\x8a"},                 // the angstrom sign
        {"\xc3\xb1", "n\xcc\x83"},                     // ñ
        {"\xe3\x81\x8c", "\xe3\x81\x8b\xe3\x82\x99"},  // が
    };
    return pairs;
  }

  /// Letters that fold, expand or have an order of their own in some language.
  static std::vector<std::string> names() {
    static const std::vector<std::string> pieces = {"a",
                                                    "A",
                                                    "b",
                                                    "Z",
                                                    "z",
                                                    "e",
                                                    "\xc3\xa9",
                                                    "E\xcc\x81",
                                                    "o",
                                                    "\xc3\xb6",
                                                    "O\xcc\x88",
                                                    "\xc3\x9f",
                                                    "ss",
                                                    "SS",
                                                    "\xef\xbd\x81",
                                                    "\xef\xbc\xa1",
                                                    "n",
                                                    "\xc3\xb1",
                                                    " ",
                                                    "-",
                                                    "1",
                                                    "10",
                                                    "\xe3\x81\x82",
                                                    "\xe3\x82\xa2",
                                                    "\xef\xbd\xb1",
                                                    "\xc3\xa5",
                                                    "\xc3\x85",
                                                    "\xc3\xa6",
                                                    "\xc4\xb1",
                                                    "\xc4\xb0",
                                                    "i",
                                                    "I",
                                                    "\xef\xac\x81",
                                                    "Jos\xc3\xa9",
                                                    "Jose\xcc\x81"};
    std::mt19937 generator(1);  // NOLINT(cert-msc51-cpp): Each run has the same names.
    std::vector<std::string> made = {""};
    while (made.size() < 60) {
      made.push_back(madeOf(pieces, 1 + generator() % 3, generator));
    }
    return made;
  }

  Languages languages_;
};

TYPED_TEST_SUITE_P(OrderConformance);

TYPED_TEST_P(OrderConformance, TheOrderIsAntisymmetricAndTransitive) {
  const auto names = this->names();
  for (const std::string& language : TypeParam::all()) {
    this->languages_.choose(language);
    const auto compare = localizedCaseInsensitiveComparison();
    std::vector<std::vector<std::weak_ordering>> order;
    for (const std::string& left : names) {
      auto& row = order.emplace_back();
      for (const std::string& right : names) {
        row.push_back(compare(left, right));
      }
    }
    for (std::size_t a = 0; a < names.size(); ++a) {
      for (std::size_t b = 0; b < names.size(); ++b) {
        ASSERT_EQ(order[a][b], 0 <=> order[b][a])
            << language << ": " << names[a] << " " << names[b];
        for (std::size_t c = 0; c < names.size(); ++c) {
          ASSERT_FALSE(order[a][b] <= 0 && order[b][c] <= 0 && order[a][c] > 0)
              << language << ": " << names[a] << " " << names[b] << " " << names[c];
        }
      }
    }
  }
}

TYPED_TEST_P(OrderConformance, CanonicallyEquivalentNamesAreEqual) {
  for (const std::string& language : TypeParam::all()) {
    this->languages_.choose(language);
    const auto compare = localizedCaseInsensitiveComparison();
    for (const auto& [left, right] : this->equivalents()) {
      for (const std::string& name : this->names()) {
        EXPECT_EQ(compare(name + left, name + right), std::weak_ordering::equivalent)
            << language << ": " << name + left;
        EXPECT_EQ(compare(left + name, right + name), std::weak_ordering::equivalent)
            << language << ": " << left + name;
      }
    }
  }
}

TYPED_TEST_P(OrderConformance, NamesThatDifferOnlyInCaseAreEqual) {
  for (const std::string& language : TypeParam::all()) {
    this->languages_.choose(language);
    const auto compare = localizedCaseInsensitiveComparison();
    EXPECT_EQ(compare("Anna", "aNNA"), std::weak_ordering::equivalent) << language;
    EXPECT_EQ(compare("\xc3\x89va", "\xc3\xa9VA"), std::weak_ordering::equivalent) << language;
    EXPECT_EQ(compare("alpha", "Beta"), std::weak_ordering::less) << language;
    EXPECT_EQ(compare("BETA", "alpha"), std::weak_ordering::greater) << language;
    EXPECT_EQ(compare("", "a"), std::weak_ordering::less) << language;
  }
}

REGISTER_TYPED_TEST_SUITE_P(OrderConformance, TheOrderIsAntisymmetricAndTransitive,
                            CanonicallyEquivalentNamesAreEqual, NamesThatDifferOnlyInCaseAreEqual);

}  // namespace lumaret::tests::conformance
