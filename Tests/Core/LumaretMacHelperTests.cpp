// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

#include "LumaretMacHelper/LumaretMacHelper.hpp"
#include "Tests/Support/Cpp/Case.hpp"
#include "Tests/Support/Cpp/Messages.hpp"
#include "Tests/Support/Cpp/ThrownError.hpp"

namespace lumaret::tests {
namespace {

using Arguments = std::vector<std::string>;

const std::string usage = messages::usage;

std::optional<std::string> url(const Arguments& arguments) {
  return LumaretMacHelper::value("--url", arguments);
}

TEST(OptionValue, IsAbsentWithoutTheFlag) {
  EXPECT_EQ(url({}), std::nullopt);
  EXPECT_EQ(url({"--fingerprint", "5d2a"}), std::nullopt);
}

TEST(OptionValue, IsAbsentWhenTheFlagIsTheOnlyWord) { EXPECT_EQ(url({"--url"}), std::nullopt); }

TEST(OptionValue, IsAbsentWhenTheFlagIsTheLastWord) {
  EXPECT_EQ(url({"--fingerprint", "5d2a", "--url"}), std::nullopt);
}

TEST(OptionValue, MayBeTheFlagItself) {
  EXPECT_EQ(url({"--url", "--url", "https://a.example"}), "--url");
  EXPECT_EQ(url({"--url", "--url"}), "--url");
}

TEST(OptionValue, MayBeEmpty) { EXPECT_EQ(url({"--url", ""}), ""); }

TEST(OptionValue, MayBeAnotherFlag) {
  const Arguments arguments = {"--fingerprint", "--url", "https://a.example"};
  EXPECT_EQ(LumaretMacHelper::value("--fingerprint", arguments), "--url");
  EXPECT_EQ(url(arguments), "https://a.example");
}

TEST(OptionValue, IsTheSameInEitherOrderOfTheOptions) {
  const Arguments fingerprintFirst = {"--fingerprint", "5d2a", "--url", "https://a.example"};
  const Arguments urlFirst = {"--url", "https://a.example", "word", "--fingerprint", "5d2a"};
  for (const Arguments& arguments : {fingerprintFirst, urlFirst}) {
    EXPECT_EQ(LumaretMacHelper::value("--fingerprint", arguments), "5d2a");
    EXPECT_EQ(url(arguments), "https://a.example");
  }
}

TEST(OptionValue, IsThatOfTheFirstOccurrence) {
  EXPECT_EQ(url({"word", "--url", "a", "--url", "b"}), "a");
}

TEST(OptionValue, RequiresTheFlagAsAWordOfItsOwn) {
  EXPECT_EQ(url({"--URL", "a", "-url", "b", "--url=c", "d", "--url ", "e", "--ur", "f"}),
            std::nullopt);
}

using ArgumentsCase = Case<Arguments>;

class UsageError : public testing::TestWithParam<ArgumentsCase> {};

TEST_P(UsageError, IsThrown) {
  EXPECT_TRUE(thrownBy<CommandError>([] { LumaretMacHelper::run(GetParam().value); }));
}

INSTANTIATE_TEST_SUITE_P(
    Command, UsageError,
    testing::Values(ArgumentsCase{"NoArguments", {}}, ArgumentsCase{"ListWithACapital", {"List"}},
                    ArgumentsCase{"ListInCapitals", {"LIST"}},
                    ArgumentsCase{"ListAfterABlank", {" list"}},
                    ArgumentsCase{"ListAsSecondWord", {"help", "list"}},
                    ArgumentsCase{"ActivateWithACapital", {"Activate", "--fingerprint", "5d2a"}},
                    ArgumentsCase{"PartOfACommand", {"lis"}}, ArgumentsCase{"EmptyWord", {""}},
                    ArgumentsCase{"HelpFlag", {"--help"}}, ArgumentsCase{"ShortHelpFlag", {"-h"}},
                    ArgumentsCase{"OptionsAlone", {"--fingerprint", "5d2a"}}),
    caseName);

INSTANTIATE_TEST_SUITE_P(
    Activate, UsageError,
    testing::Values(ArgumentsCase{"Alone", {"activate"}},
                    ArgumentsCase{"WithAnAddressAlone", {"activate", "--url", "https://a.example"}},
                    ArgumentsCase{"WithoutTheFlag", {"activate", "5d2a"}},
                    ArgumentsCase{"WithTheFlagInAnotherCase",
                                  {"activate", "--Fingerprint", "5d2a"}},
                    ArgumentsCase{"WithTheFlagLast", {"activate", "--fingerprint"}},
                    ArgumentsCase{"WithTheFlagAfterAnAddressLast",
                                  {"activate", "--url", "https://a.example", "--fingerprint"}},
                    ArgumentsCase{"WithAnEmptyFingerprint", {"activate", "--fingerprint", ""}},
                    ArgumentsCase{"WithAnEmptyFingerprintFirst",
                                  {"activate", "--fingerprint", "", "--fingerprint", "5d2a"}}),
    caseName);

TEST(CommandErrors, TellTheUsage) { EXPECT_EQ(CommandError::usage().what(), usage); }

TEST(CommandErrors, AreAllEqual) { EXPECT_TRUE(CommandError::usage() == CommandError::usage()); }

/// Runs the tool's main. Standard output goes to standard error, which a death test checks.
void runMain(const std::vector<const char*>& processArguments) {
  dup2(STDERR_FILENO, STDOUT_FILENO);
  LumaretMacHelper::main(static_cast<int>(processArguments.size()), processArguments.data());
}

const testing::ExitedWithCode exitedWithStatus1(1);

TEST(MainDeathTest, WithoutArgumentsWritesOnlyTheUsageToStandardError) {
  EXPECT_EXIT(runMain({"lumaret-macos-helper"}), exitedWithStatus1, testing::Eq(usage + "\n"));
}

TEST(MainDeathTest, WithoutEvenAPathWritesOnlyTheUsageToStandardError) {
  EXPECT_EXIT(runMain({}), exitedWithStatus1, testing::Eq(usage + "\n"));
}

TEST(MainDeathTest, WithAnUnknownWordWritesOnlyTheUsageToStandardError) {
  EXPECT_EXIT(runMain({"lumaret-macos-helper", "List"}), exitedWithStatus1,
              testing::Eq(usage + "\n"));
}

TEST(MainDeathTest, DoesNotTakeTheProgramsPathForACommand) {
  EXPECT_EXIT(runMain({"list"}), exitedWithStatus1, testing::Eq(usage + "\n"));
}

}  // namespace
}  // namespace lumaret::tests
