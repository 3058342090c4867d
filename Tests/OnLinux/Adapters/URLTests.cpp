// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>

#include "LumaretMacHelper/Platform.hpp"
#include "LumaretMacHelper/URL.hpp"

namespace lumaret::tests {
namespace {

TEST(URL, KeepsTheTextAndTheCaseOfTheScheme) {
  const auto url = parseURL("HTTPS://Example.COM/a%20b?q=1#f");
  ASSERT_TRUE(url);
  EXPECT_EQ(url->absoluteString, "HTTPS://Example.COM/a%20b?q=1#f");
  EXPECT_EQ(url->scheme, "HTTPS");
}

TEST(URL, ARelativeReferenceHasNoScheme) {
  for (const char* text : {"example", "/path", "//host/path", "?query", "#fragment", "--flag"}) {
    const auto url = parseURL(text);
    ASSERT_TRUE(url) << text;
    EXPECT_EQ(url->scheme, std::nullopt) << text;
  }
}

TEST(URL, AnySchemeIsParsed) {
  EXPECT_EQ(parseURL("ftp://host/")->scheme, "ftp");
  EXPECT_EQ(parseURL("javascript:alert(1)")->scheme, "javascript");
}

TEST(URL, AcceptsHostsOfBothInternetProtocols) {
  EXPECT_TRUE(parseURL("https://127.0.0.1:8443/"));
  EXPECT_TRUE(parseURL("https://[::1]:8443/"));
}

TEST(URL, AcceptsALongAddress) {
  const std::string text = "https://host/" + std::string(100'000, 'a');
  ASSERT_TRUE(parseURL(text));
  EXPECT_EQ(parseURL(text)->absoluteString, text);
}

TEST(URL, RejectsAnEmptyText) { EXPECT_FALSE(parseURL("")); }

TEST(URL, RejectsWhatRFC3986DoesNotAllow) {
  for (const std::string text :
       {"https://host/a b", " https://host/", "https://host/%zz", "https://host/%2", "https://[::1",
        "https://host/<>", "https://host/\"", "https://host/\\", "https://host/^", "https://ho st/",
        "https://host/\xc3\xa9", "https://host/\xff", "https://host/\n", "https://host:port/",
        "1http://host/"}) {
    EXPECT_FALSE(parseURL(text)) << text;
  }
}

}  // namespace
}  // namespace lumaret::tests
