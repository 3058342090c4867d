// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <optional>
#include <string>

#include "LumaretMacHelper/Platform.hpp"
#include "LumaretMacHelper/URL.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"
#include "Tests/Support/Cpp/Case.hpp"

namespace lumaret::tests {
namespace {

using standin::Answer;
using testing::ElementsAre;
using testing::IsEmpty;

struct Address {
  std::string text;
  /// Of an address that is accepted; empty where it has none.
  std::optional<std::string> scheme;
};

class AcceptedAddress : public OverStandIn, public testing::WithParamInterface<Case<Address>> {};

TEST_P(AcceptedAddress, KeepsItsTextAndTellsItsScheme) {
  const auto& [text, scheme] = GetParam().value;
  const auto url = parseURL(text);
  ASSERT_TRUE(url);
  EXPECT_EQ(url->absoluteString, text);
  EXPECT_EQ(url->scheme, scheme);
}

INSTANTIATE_TEST_SUITE_P(
    Of, AcceptedAddress,
    testing::Values(Case<Address>{"Web", {"https://example.com/a?b=c&d=%C3%A9#e", "https"}},
                    Case<Address>{"UpperCase", {"HTTPS://EXAMPLE.COM/", "HTTPS"}},
                    Case<Address>{"IPv6", {"http://[::1]:8080/", "http"}},
                    Case<Address>{"OtherScheme", {"ftp://example.com/", "ftp"}},
                    Case<Address>{"NoHierarchy", {"mailto:ana@example.com", "mailto"}},
                    Case<Address>{"AbsolutePath", {"/path", std::nullopt}},
                    Case<Address>{"RelativePath", {"path/to;it='(1)*!'", std::nullopt}},
                    Case<Address>{"NoScheme", {"//example.com/~ana", std::nullopt}},
                    Case<Address>{"Query", {"?a:b", std::nullopt}},
                    Case<Address>{"Fragment", {"#a:b", std::nullopt}}),
    caseName);

class RejectedAddress : public OverStandIn,
                        public testing::WithParamInterface<Case<std::string>> {};

TEST_P(RejectedAddress, NeverReachesTheFramework) {
  EXPECT_FALSE(parseURL(GetParam().value));
  EXPECT_THAT(standin::trace(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    That, RejectedAddress,
    testing::Values(Case<std::string>{"IsEmpty", ""},
                    Case<std::string>{"HasABlank", "https://example.com/a b"},
                    Case<std::string>{"HasABlankBefore", " https://example.com/"},
                    Case<std::string>{"HasALineFeed", "https://example.com/\n"},
                    Case<std::string>{"HasANullCharacter", std::string("http://a/\0b", 11)},
                    Case<std::string>{"IsNotASCII", "https://example.com/\xc3\xa9"},
                    Case<std::string>{"IsNotUTF8", "https://example.com/\xff"},
                    Case<std::string>{"HasAQuotationMark", "https://example.com/\"a\""},
                    Case<std::string>{"HasAngleBrackets", "<https://example.com/>"},
                    Case<std::string>{"HasABackslash", "https:\\\\example.com"},
                    Case<std::string>{"HasABrace", "https://example.com/{a}"},
                    Case<std::string>{"HasAPipe", "https://example.com/|"},
                    Case<std::string>{"EndsInAPercentSign", "https://example.com/%"},
                    Case<std::string>{"EndsInHalfAnEscape", "https://example.com/%4"},
                    Case<std::string>{"HasABadEscape", "https://example.com/%4g"}),
    caseName);

class FrameworkAddress : public OverStandIn {};

TEST_F(FrameworkAddress, IsRejectedWhenTheFrameworkRejectsIt) {
  machine().answer("CFURLCreateWithBytes", Answer::nothing());
  EXPECT_FALSE(parseURL("https://example.com/"));
}

TEST_F(FrameworkAddress, IsParsedWithoutABase) {
  (void)parseURL("https://example.com/");
  EXPECT_THAT(standin::trace(), ElementsAre("CFURLCreateWithBytes(https://example.com/, null)",
                                            "CFURLCopyScheme(https://example.com/)"));
}

}  // namespace
}  // namespace lumaret::tests
