// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"

namespace lumaret::tests {
namespace {

class CoreFoundationText : public OverStandIn {};

TEST_F(CoreFoundationText, IsExactlyTheTextThatWasGiven) {
  const std::string mark = "\xef\xbb\xbf";
  for (const std::string& text :
       {std::string(), std::string("text"), mark, mark + "text", mark + mark + "text",
        "text" + mark, std::string("\xc2\xa9"), std::string("\xe2\x82\xa9"),
        std::string("\xf0\x9f\x98\xa9"), std::string("a\0b", 3), std::string("\xef\xbf\xbd")}) {
    EXPECT_EQ(utf8Text(coreFoundationText(text).get()), text);
  }
}

TEST_F(CoreFoundationText, RefusesWhateverIsNotUTF8) {
  for (const std::string text : {"\xff", "\xa9", "a\xa9z", "\xef\xbb\xbf\xa9", "\xc3", "\xc3(",
                                 "\xed\xa0\x80", "\xc0\x80", "\xf5\x80\x80\x80"}) {
    EXPECT_THROW((void)coreFoundationText(text), std::invalid_argument) << text;
  }
}

}  // namespace
}  // namespace lumaret::tests
