// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <stdexcept>
#include <string>

#include "LumaretMacHelper/Contracts.hpp"
#include "LumaretMacHelper/LumaretMacHelper.hpp"
#include "Tests/Core/FakePlatform.hpp"
#include "Tests/Support/Cpp/Messages.hpp"

namespace lumaret::tests {
namespace {

using testing::ExitedWithCode;

void runList() {
  constexpr std::array<const char*, 2> arguments = {"lumaret-macos-helper", "list"};
  LumaretMacHelper::main(arguments.size(), arguments.data());
}

TEST(CommandLine, ASuccessReturnsAndPrintsTheResult) {
  testing::internal::CaptureStdout();
  runList();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "[]\n");
}

TEST(CommandLine, ADocumentedErrorIsPrintedWholeEvenWithAZeroByte) {
  const std::string text("a\0b", 3);
  fakePlatform().onListing = [&] { throw CertificateSelectorError::chromeLaunchFailed(text); };
  EXPECT_EXIT(runList(), ExitedWithCode(1),
              testing::ResultOf([](const std::string& told) { return told; },
                                messages::told(messages::chromeLaunchFailed, text) + "\n"));
}

TEST(CommandLine, AnyOtherExceptionIsPrintedByItsText) {
  fakePlatform().onListing = [] { throw std::runtime_error("No such device"); };
  EXPECT_EXIT(runList(), ExitedWithCode(1), testing::Eq("No such device\n"));
}

TEST(CommandLine, WhateverElseIsThrownIsAFailureToo) {
  fakePlatform().onListing = [] { throw 7; };
  EXPECT_EXIT(runList(), ExitedWithCode(1), testing::Eq("Unknown error.\n"));
}

}  // namespace
}  // namespace lumaret::tests
