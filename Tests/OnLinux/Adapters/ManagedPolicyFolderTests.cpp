// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <nlohmann/json.hpp>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/Linux/ManagedPolicyFolder.hpp"
#include "Tests/Support/Cpp/TemporaryFolder.hpp"

namespace lumaret::tests {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class PolicyFolder : public ::testing::Test {
 protected:
  PolicyFolder() {
    ::umask(022);
    std::filesystem::create_directories(managed());
  }

  [[nodiscard]] std::filesystem::path managed() const { return root_ / "policies/managed"; }
  [[nodiscard]] std::filesystem::path ownFile() const {
    return managed() / ManagedPolicyFolder::ownFileName;
  }
  [[nodiscard]] ManagedPolicyFolder folder() const { return ManagedPolicyFolder(managed()); }
  void put(const std::string& name, const std::string& text) const {
    writeFile(managed() / name, text);
  }
  static std::string rules(const std::string& value) {
    return R"({"AutoSelectCertificateForUrls": )" + value + "}";
  }
  [[nodiscard]] nlohmann::json ownPolicies() const {
    return nlohmann::json::parse(readFile(ownFile()));
  }

  void expectUnreadable() const {
    const auto before = contents(root_.path());
    EXPECT_THROW(static_cast<void>(folder().readRules()), ChromePreferencesError);
    EXPECT_EQ(contents(root_.path()), before);
  }

  static constexpr uid_t anotherUser = 65534;
  static constexpr int refused = 1;

  /// Runs an action in a child process, as another user if root runs the tests. Returns 0, or
  /// `refused` if the action threw a std::system_error.
  template <typename Action>
  int asAnotherUser(Action action) const {
    ::chmod(root_.path().c_str(), 0755);
    const pid_t child = ::fork();
    if (child == 0) {
      int status = 2;
      try {
        if (::geteuid() != 0 || ::setuid(anotherUser) == 0) {
          action();
          status = 0;
        }
      } catch (const std::system_error&) {
        status = refused;
      }
      ::_exit(status);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WEXITSTATUS(status);
  }

  TemporaryFolder root_;
};

TEST_F(PolicyFolder, AMissingFolderHasNoRules) {
  EXPECT_THAT(ManagedPolicyFolder(root_ / "nowhere").readRules(), IsEmpty());
}

TEST_F(PolicyFolder, AnEmptyFolderHasNoRules) { EXPECT_THAT(folder().readRules(), IsEmpty()); }

TEST_F(PolicyFolder, AFileInPlaceOfTheFolderIsAnError) {
  writeFile(root_ / "file", "");
  EXPECT_THROW(static_cast<void>(ManagedPolicyFolder(root_ / "file").readRules()),
               std::system_error);
}

TEST_F(PolicyFolder, ReadsTheRulesInTheirOrder) {
  put("any.json", rules(R"(["one", "two"])"));
  EXPECT_THAT(folder().readRules(), ElementsAre("one", "two"));
}

TEST_F(PolicyFolder, TheFileThatSortsLastByBytesWins) {
  put("a.json", rules(R"(["a"])"));
  put("Z.json", rules(R"(["Z"])"));
  EXPECT_THAT(folder().readRules(), ElementsAre("a"));
  put("\xc3\xa9.json", rules(R"(["accent"])"));
  EXPECT_THAT(folder().readRules(), ElementsAre("accent"));
}

TEST_F(PolicyFolder, TheOwnFileSortsAfterUsualNames) {
  put(ManagedPolicyFolder::ownFileName, rules(R"(["own"])"));
  put("managed_policies.json", rules(R"(["other"])"));
  put("99-last.json", rules(R"(["other"])"));
  EXPECT_THAT(folder().readRules(), ElementsAre("own"));
}

TEST_F(PolicyFolder, AFileWithoutThePolicyDoesNotWin) {
  put("a.json", rules(R"(["a"])"));
  put("b.json", R"({"HomepageLocation": "https://example.test/"})");
  EXPECT_THAT(folder().readRules(), ElementsAre("a"));
}

TEST_F(PolicyFolder, EveryRegularFileCountsWhateverItsEnding) {
  put("a.json", rules(R"(["a"])"));
  put("b.json~", rules(R"(["b"])"));
  EXPECT_THAT(folder().readRules(), ElementsAre("b"));
}

TEST_F(PolicyFolder, SubfoldersAndDanglingLinksDoNotCount) {
  put("a.json", rules(R"(["a"])"));
  std::filesystem::create_symlink(root_ / "nothing", managed() / "zz-dangling");
  put("zz-folder/file.json", rules(R"(["below"])"));
  EXPECT_THAT(folder().readRules(), ElementsAre("a"));
}

TEST_F(PolicyFolder, ALinkThatCannotBeFollowedIsAnErrorButALoopOfLinksIsSkipped) {
  std::filesystem::create_symlink("a.json", managed() / "a.json");
  EXPECT_THAT(folder().readRules(), IsEmpty());
  std::filesystem::create_symlink(std::string(300, 'x'), managed() / "b.json");
  EXPECT_THROW(static_cast<void>(folder().readRules()), std::system_error);
}

TEST_F(PolicyFolder, ALinkInPlaceOfTheOwnFileStays) {
  writeFile(root_ / "elsewhere", "{}");
  std::filesystem::create_symlink(root_ / "elsewhere", ownFile());
  EXPECT_THROW(folder().writeRules({"rule"}), std::system_error);
  EXPECT_TRUE(std::filesystem::is_symlink(ownFile()));
  EXPECT_EQ(readFile(root_ / "elsewhere"), "{}");
  EXPECT_EQ(contents(root_.path()).size(), 2U);
}

TEST_F(PolicyFolder, CommentsAreAllowed) {
  put("a.json", "// by hand\n" + rules(R"([/* one */ "a"])"));
  EXPECT_THAT(folder().readRules(), ElementsAre("a"));
}

TEST_F(PolicyFolder, AValueThatIsNotAListOfStringsCannotBeRead) {
  for (const char* value :
       {"null", "\"text\"", "1", "true", "{}", "[1]", R"(["a", null])", R"([["a"]])"}) {
    put("a.json", rules(value));
    SCOPED_TRACE(value);
    expectUnreadable();
  }
}

TEST_F(PolicyFolder, AnOverruledValueOfAnotherTypeDoesNotMatter) {
  put("a.json", rules("null"));
  put("b.json", rules(R"(["b"])"));
  EXPECT_THAT(folder().readRules(), ElementsAre("b"));
}

TEST_F(PolicyFolder, AnEmptyOwnFileHasNoRules) {
  put(ManagedPolicyFolder::ownFileName, "");
  EXPECT_THAT(folder().readRules(), IsEmpty());
  folder().writeRules({"rule"});
  EXPECT_THAT(folder().readRules(), ElementsAre("rule"));
}

TEST_F(PolicyFolder, AnOwnFileThatIsNotAnObjectCannotBeRead) {
  for (const char* text : {"[]", "null", "\"text\"", "{", "{} {}", "not JSON", "{\"a\": 1,}"}) {
    put(ManagedPolicyFolder::ownFileName, text);
    SCOPED_TRACE(text);
    expectUnreadable();
    EXPECT_THROW(folder().writeRules({"rule"}), ChromePreferencesError);
    EXPECT_EQ(readFile(ownFile()), text);
  }
}

TEST_F(PolicyFolder, AnotherFileThatIsNotAnObjectIsSkippedIfItCannotHoldRules) {
  put("a.json", "{\"HomepageLocation\": 1,}");
  put("b.json", "");
  put("c.bin", std::string("\0\xff\xfe", 3));
  EXPECT_THAT(folder().readRules(), IsEmpty());
}

TEST_F(PolicyFolder, AnotherFileThatIsNotAnObjectIsRefusedIfItMayHoldRules) {
  using namespace std::string_literals;
  for (const std::string& text :
       {R"({"AutoSelectCertificateForUrls": ["a"],})"s, R"(["AutoSelectCertificateForUrls"])"s,
        R"({"AutoSelect\u0043ertificateForUrls": ["a"],})"s,
        R"({"AutoSelect\x43ertificateForUrls": ["a"],})"s,
        "{\"AutoSelectCertificateForUrls\": [\"a\"]}\0junk"s}) {
    put("a.json", text);
    SCOPED_TRACE(text);
    expectUnreadable();
  }
}

TEST_F(PolicyFolder, AFileThatMayNotBeReadIsAnError) {
  put("a.json", rules("[]"));
  ::chmod((managed() / "a.json").c_str(), 0);
  EXPECT_EQ(asAnotherUser([&] { static_cast<void>(folder().readRules()); }), refused);
}

TEST_F(PolicyFolder, WrittenRulesAreInForce) {
  put("50-corporate.json", rules(R"(["corporate"])"));
  folder().writeRules({"corporate", "chosen", ""});
  EXPECT_TRUE(folder().synchronize());
  EXPECT_THAT(folder().readRules(), ElementsAre("corporate", "chosen", ""));
}

TEST_F(PolicyFolder, OtherPoliciesOfTheOwnFileStay) {
  put(ManagedPolicyFolder::ownFileName,
      R"({"Z": 1.5, "AutoSelectCertificateForUrls": ["old"], "A": {"b": [true, null]}})");
  folder().writeRules({"new"});
  EXPECT_EQ(ownPolicies(), nlohmann::json::parse(
                               R"({"Z": 1.5, "AutoSelectCertificateForUrls": ["new"],
                                   "A": {"b": [true, null]}})"));
}

TEST_F(PolicyFolder, NoOtherFileIsLeftAfterWriting) {
  folder().writeRules({"rule"});
  folder().writeRules({"rule"});
  EXPECT_EQ(contents(root_.path()).size(), 1U);
}

TEST_F(PolicyFolder, ALinkInPlaceOfTheFolderIsFollowed) {
  std::filesystem::create_directories(root_ / "elsewhere/real");
  std::filesystem::create_directory_symlink(root_ / "elsewhere/real", root_ / "linked");
  const ManagedPolicyFolder linked(root_ / "linked");
  linked.writeRules({"rule"});
  EXPECT_THAT(ManagedPolicyFolder(root_ / "elsewhere/real").readRules(), ElementsAre("rule"));
}

TEST_F(PolicyFolder, ADanglingLinkAnywhereInThePathIsAnErrorAndCreatesNothing) {
  for (const std::string link : {"a", "a/b", "a/b/c"}) {
    const TemporaryFolder root;
    std::filesystem::create_directories((root / link).parent_path());
    std::filesystem::create_symlink(root / "gone", root / link);
    const ManagedPolicyFolder folder(root / "a/b/c");
    EXPECT_THAT(folder.readRules(), IsEmpty()) << link;
    EXPECT_THROW(folder.writeRules({"rule"}), std::system_error) << link;
    EXPECT_FALSE(std::filesystem::exists(root / "gone")) << link;
    EXPECT_THAT(contents(root.path()), IsEmpty()) << link;
  }
}

TEST_F(PolicyFolder, EveryMissingFolderInThePathIsCreated) {
  const ManagedPolicyFolder folder(root_ / "a/b/c");
  folder.writeRules({"rule"});
  EXPECT_THAT(folder.readRules(), ElementsAre("rule"));
}

TEST_F(PolicyFolder, AFileThatNestsDeeperThanChromeReadsIsRefused) {
  const auto nested = [](std::size_t arrays) {
    return R"({"Deep": )" + std::string(arrays, '[') + std::string(arrays, ']') + "}";
  };
  put(ManagedPolicyFolder::ownFileName, nested(198));
  EXPECT_THAT(folder().readRules(), IsEmpty());
  folder().writeRules({"rule"});
  EXPECT_THAT(folder().readRules(), ElementsAre("rule"));
  for (const std::size_t arrays : {199UL, 100'000UL}) {
    put(ManagedPolicyFolder::ownFileName, nested(arrays));
    EXPECT_THROW(static_cast<void>(folder().readRules()), ChromePreferencesError) << arrays;
    EXPECT_THROW(folder().writeRules({"rule"}), ChromePreferencesError) << arrays;
  }
}

TEST_F(PolicyFolder, LastOfTwoValuesCounts) {
  put(ManagedPolicyFolder::ownFileName,
      R"({"AutoSelectCertificateForUrls": 7, "AutoSelectCertificateForUrls": ["last"]})");
  EXPECT_THAT(folder().readRules(), ElementsAre("last"));
}

TEST_F(PolicyFolder, KeepsOtherValuesBesideComments) {
  put(ManagedPolicyFolder::ownFileName,
      R"({"Z": [1.50, -7, 18446744073709551615, true, [], {}], // by hand
          "AutoSelectCertificateForUrls": ["old"], "B": {"y": null, "x": ["a/b \u00e9"]}})");
  folder().writeRules({"new", "\""});
  EXPECT_EQ(ownPolicies(), nlohmann::json::parse(
                               R"({"AutoSelectCertificateForUrls": ["new", "\""],
                                   "B": {"x": ["a/b é"], "y": null},
                                   "Z": [1.5, -7, 18446744073709551615, true, [], {}]})"));
}

TEST_F(PolicyFolder, WritesOneMemberPerLine) {
  put(ManagedPolicyFolder::ownFileName, R"({"B":"/"})");
  folder().writeRules({"rule"});
  EXPECT_EQ(readFile(ownFile()),
            "{\n  \"AutoSelectCertificateForUrls\": [\n    \"rule\"\n  ],\n  \"B\": \"/\"\n}\n");
}

// A quadratic reader or writer takes minutes.
TEST_F(PolicyFolder, KeepsTwoHundredThousandOtherKeysInTime) {
  const auto object = [] {
    std::string text = "{";
    for (int number = 0; number < 100'000; ++number) {
      text += (number == 0 ? "\"Policy" : ",\"Policy") + std::to_string(number) + "\":1";
    }
    return text + "}";
  };
  put(ManagedPolicyFolder::ownFileName,
      object().substr(0, object().size() - 1) + R"(,"Nested":)" + object() + "}");
  const auto started = std::chrono::steady_clock::now();
  folder().writeRules({"rule"});
  EXPECT_THAT(folder().readRules(), ElementsAre("rule"));
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(60));
  EXPECT_EQ(ownPolicies().size(), 100'002U);
}

TEST_F(PolicyFolder, RulesThatAreNotUTF8AreNotWritten) {
  put(ManagedPolicyFolder::ownFileName, rules(R"(["old"])"));
  EXPECT_THROW(folder().writeRules({"\xff"}), ChromePreferencesError);
  EXPECT_THAT(folder().readRules(), ElementsAre("old"));
}

TEST_F(PolicyFolder, TheFileIsReplacedAsAWhole) {
  put(ManagedPolicyFolder::ownFileName, "{}");
  std::ifstream reader(ownFile());  // Stands for a browser that reads meanwhile.
  folder().writeRules({"rule"});
  const std::string seen{std::istreambuf_iterator<char>(reader), {}};
  EXPECT_EQ(seen, "{}");
}

TEST_F(PolicyFolder, ALargeListIsWrittenWhole) {
  const std::vector<std::string> many(20'000, std::string(100, 'x'));
  folder().writeRules(many);
  EXPECT_EQ(folder().readRules(), many);
}

TEST_F(PolicyFolder, RefusesToWriteWhereSomeCannotRead) {
  std::filesystem::create_directories(managed());
  put(ManagedPolicyFolder::ownFileName, "{}");
  ::chmod(managed().c_str(), 0750);
  EXPECT_THROW(folder().writeRules({"rule"}), std::system_error);
  EXPECT_EQ(readFile(ownFile()), "{}");
}

// Taking the rule back

constexpr const char* catchAll = R"(["{\"pattern\":\"*\"}"])";

TEST_F(PolicyFolder, WithdrawingChangesNothingWithoutOwnRules) {
  EXPECT_FALSE(folder().withdrawRule());
  put("10-company.json", rules(catchAll));
  EXPECT_FALSE(folder().withdrawRule());
  put(ManagedPolicyFolder::ownFileName, R"({"ShowHomeButton": true})");
  const auto before = contents(root_.path());
  EXPECT_FALSE(folder().withdrawRule());
  EXPECT_EQ(contents(root_.path()), before);
}

TEST_F(PolicyFolder, WithdrawingRemovesAFileWithNothingElse) {
  put("10-company.json", rules(R"(["company"])"));
  put(ManagedPolicyFolder::ownFileName, rules(catchAll));
  EXPECT_TRUE(folder().withdrawRule());
  EXPECT_FALSE(std::filesystem::exists(ownFile()));
  EXPECT_THAT(folder().readRules(), ElementsAre("company"));
}

TEST_F(PolicyFolder, WithdrawingKeepsOtherPolicies) {
  put(ManagedPolicyFolder::ownFileName,
      R"({"A": 1, "AutoSelectCertificateForUrls": )" + std::string(catchAll) + R"(, "B": [2]})");
  EXPECT_TRUE(folder().withdrawRule());
  EXPECT_EQ(ownPolicies(), nlohmann::json::parse(R"({"A": 1, "B": [2]})"));
}

TEST_F(PolicyFolder, WithdrawingKeepsASitesRuleThatStandsNowhereElse) {
  put("10-company.json", rules(R"(["company"])"));
  put(ManagedPolicyFolder::ownFileName, rules(R"(["site", "{\"pattern\":\"*\"}", "company"])"));
  EXPECT_TRUE(folder().withdrawRule());
  EXPECT_THAT(folder().readRules(), ElementsAre("company", "site"));
}

TEST_F(PolicyFolder, WithdrawingRefusesWhatItCannotRead) {
  put("10-company.json", rules("1"));
  put(ManagedPolicyFolder::ownFileName, rules(catchAll));
  const auto before = contents(root_.path());
  EXPECT_THROW(static_cast<void>(folder().withdrawRule()), ChromePreferencesError);
  put("10-company.json", "{}");
  put(ManagedPolicyFolder::ownFileName, rules("1"));
  EXPECT_THROW(static_cast<void>(folder().withdrawRule()), ChromePreferencesError);
  EXPECT_EQ(readFile(ownFile()), rules("1"));
}

TEST_F(PolicyFolder, WithdrawingDoesNotRemoveALink) {
  put("target", rules(catchAll));
  std::filesystem::rename(managed() / "target", root_ / "target");
  std::filesystem::create_symlink(root_ / "target", ownFile());
  EXPECT_THROW(static_cast<void>(folder().withdrawRule()), std::system_error);
  EXPECT_TRUE(std::filesystem::is_symlink(ownFile()));
}

TEST_F(PolicyFolder, RejectsAnotherUsersWriting) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "an ordinary user owns the files of their own tests";
  }
  EXPECT_EQ(asAnotherUser([&] { folder().writeRules({"rule"}); }), refused);
  EXPECT_THAT(contents(root_.path()), IsEmpty());
}

}  // namespace
}  // namespace lumaret::tests
