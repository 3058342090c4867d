// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <compare>
#include <cstddef>
#include <random>
#include <string>
#include <utility>
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
  /// Made of letters that fold, expand or have an order of their own in some language.
  static std::vector<std::string> names() {
    // clang-format off
    static const std::vector<std::string> pieces = {
        "a", "A", "b", "Z", "z", "e", "\u00e9", "E\u0301", "o", "\u00f6", "O\u0308", "\u00df", "ss",
        "SS", "\uff41", "\uff21", "n", "\u00f1", " ", "-", "1", "10", "\u3042", "\u30a2", "\uff71",
        "\u00e5", "\u00c5", "\u00e6", "\u0131", "\u0130", "i", "I", "\ufb01", "Jos\u00e9",
        "Jose\u0301"};
    // clang-format on
    std::mt19937 generator(1);  // NOLINT(cert-msc51-cpp): Each run has the same names.
    std::vector<std::string> made = {""};
    while (made.size() < 60) {
      made.push_back(madeOf(pieces, 1 + generator() % 3, generator));
    }
    return made;
  }

  /// Expects it of the comparison of each language.
  template <typename Expectation>
  void inEachLanguage(Expectation expect) {
    for (const std::string& language : Languages::all()) {
      SCOPED_TRACE(language);
      languages_.choose(language);
      expect(localizedCaseInsensitiveComparison());
    }
  }

  Languages languages_;
};

TYPED_TEST_SUITE_P(OrderConformance);

TYPED_TEST_P(OrderConformance, IsAntisymmetricAndTransitive) {
  this->inEachLanguage([names = this->names()](const TextComparison& compare) {
    std::vector<std::vector<std::weak_ordering>> order;
    for (const std::string& left : names) {
      auto& row = order.emplace_back();
      for (const std::string& right : names) {
        row.push_back(compare(left, right));
      }
    }
    for (std::size_t a = 0; a < names.size(); ++a) {
      for (std::size_t b = 0; b < names.size(); ++b) {
        ASSERT_EQ(order[a][b], 0 <=> order[b][a]) << names[a] << " " << names[b];
        for (std::size_t c = 0; c < names.size(); ++c) {
          ASSERT_FALSE(order[a][b] <= 0 && order[b][c] <= 0 && order[a][c] > 0)
              << names[a] << " " << names[b] << " " << names[c];
        }
      }
    }
  });
}

TYPED_TEST_P(OrderConformance, EquatesCanonicalEquivalents) {
  this->inEachLanguage([names = this->names()](const TextComparison& compare) {
    for (const auto& [left, right] : {std::pair<std::string, std::string>("\u00e9", "e\u0301"),
                                      {"\u00d6", "O\u0308"},
                                      {"\u00c5", "A\u030a"},
                                      {"\u212b", "A\u030a"},
                                      {"\u00f1", "n\u0303"},
                                      {"\u304c", "\u304b\u3099"}}) {
      for (const std::string& name : names) {
        EXPECT_EQ(compare(name + left, name + right), std::weak_ordering::equivalent) << name;
        EXPECT_EQ(compare(left + name, right + name), std::weak_ordering::equivalent) << name;
      }
    }
  });
}

TYPED_TEST_P(OrderConformance, IgnoresCase) {
  this->inEachLanguage([](const TextComparison& compare) {
    EXPECT_EQ(compare("Anna", "aNNA"), std::weak_ordering::equivalent);
    EXPECT_EQ(compare("\u00c9va", "\u00e9VA"), std::weak_ordering::equivalent);
    EXPECT_EQ(compare("alpha", "Beta"), std::weak_ordering::less);
    EXPECT_EQ(compare("BETA", "alpha"), std::weak_ordering::greater);
    EXPECT_EQ(compare("", "a"), std::weak_ordering::less);
  });
}

TYPED_TEST_P(OrderConformance, FoldsTheTurkishLetters) {
  this->languages_.choose("tr");
  const TextComparison compare = localizedCaseInsensitiveComparison();
  EXPECT_EQ(compare("ISIK", "\u0131s\u0131k"), std::weak_ordering::equivalent);
  EXPECT_EQ(compare("\u0130pek", "ipek"), std::weak_ordering::equivalent);
  EXPECT_NE(compare("I", "i"), std::weak_ordering::equivalent);
}

REGISTER_TYPED_TEST_SUITE_P(OrderConformance, IsAntisymmetricAndTransitive,
                            EquatesCanonicalEquivalents, IgnoresCase, FoldsTheTurkishLetters);

}  // namespace lumaret::tests::conformance
