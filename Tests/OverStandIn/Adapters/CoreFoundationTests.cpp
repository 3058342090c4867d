// SPDX-License-Identifier: Apache-2.0
#include <CoreFoundation/CoreFoundation.h>
#include <gmock/gmock.h>

#include <stdexcept>
#include <string>

#include "LumaretMacHelper/PlatformFunctions.hpp"
#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "Tests/OverStandIn/AppleFrameworks/Objects.hpp"
#include "Tests/OverStandIn/SampleMac.hpp"

namespace lumaret::tests {
namespace {

class CoreFoundationReferenceTest : public OverStandIn {};

TEST_F(CoreFoundationReferenceTest, ReceivingReleasesWhatWasHeld) {
  auto text = coreFoundationText("first");
  *text.receive() = standin::createText(u"second");
  EXPECT_EQ(utf8Text(text.get()), "second");
}

class CoreFoundationText : public OverStandIn {};

TEST_F(CoreFoundationText, IsUnchanged) {
  const std::string mark = "\xef\xbb\xbf";
  for (const std::string& text :
       {std::string(), std::string(100'000, 'x'), mark, mark + "text", mark + mark + "text",
        "text" + mark, std::string("\xc2\xa9"), std::string("\xf0\x9f\x98\xa9"),
        std::string("a\0b", 3), std::string("\xef\xbf\xbd")}) {
    EXPECT_EQ(utf8Text(coreFoundationText(text).get()), text);
  }
}

TEST_F(CoreFoundationText, RejectsMalformedUTF8) {
  for (const std::string text : {"\xff", "\xa9", "a\xa9z", "\xef\xbb\xbf\xa9", "\xc3", "\xc3(",
                                 "\xed\xa0\x80", "\xc0\x80", "\xf5\x80\x80\x80"}) {
    EXPECT_THROW((void)coreFoundationText(text), std::invalid_argument) << text;
  }
}

class CoreFoundationOrder : public OverStandIn {};

TEST_F(CoreFoundationOrder, ComparesWholeNamesByALocaleThatIsReadOnce) {
  machine()["locale"] = "en";
  const auto compare = localizedCaseInsensitiveComparison();
  EXPECT_EQ(compare("Ana", "anb"), std::weak_ordering::less);
  EXPECT_EQ(compare("\u00c9va", ""), std::weak_ordering::greater);
  EXPECT_THAT(standin::trace(), testing::ElementsAre("CFLocaleCopyCurrent()"));
}

}  // namespace
}  // namespace lumaret::tests
