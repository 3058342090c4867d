// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <system_error>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/Linux/ManagedPolicyFolder.hpp"
#include "Tests/Support/Cpp/TemporaryFolder.hpp"

namespace lumaret::tests {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string rules(const std::string& value) {
  return R"({"AutoSelectCertificateForUrls": )" + value + "}";
}

class PolicyFolder : public ::testing::Test {
 protected:
  PolicyFolder() { ::umask(022); }

  void put(const std::string& name, const std::string& text) const {
    writeFile(root_ / "managed" / name, text);
  }
  [[nodiscard]] std::vector<std::string> read() const { return folder_.readRules(); }

  /// Neither reads nor changes such an own file.
  void expectRejected(const std::string& text) const {
    put(own, text);
    EXPECT_THROW(static_cast<void>(read()), ChromePreferencesError) << text;
    EXPECT_THROW(folder_.writeRules({"rule"}), ChromePreferencesError) << text;
    EXPECT_EQ(readFile(ownFile_), text);
  }

  static constexpr const char* own = ManagedPolicyFolder::ownFileName;
  TemporaryFolder root_;
  std::filesystem::path ownFile_ = root_ / "managed" / own;
  ManagedPolicyFolder folder_ = ManagedPolicyFolder(root_ / "managed");
};

TEST_F(PolicyFolder, TheValueInTheFileThatSortsLastIsInForce) {
  put("Z.json", rules(R"(["Z"])"));
  put("a.json", rules(R"(["a"])"));
  EXPECT_THAT(read(), ElementsAre("a"));
  put("b.json~", rules("null"));
  EXPECT_THROW(static_cast<void>(read()), ChromePreferencesError);
  put("managed_policies.json", rules(R"(["usual"])"));
  put("x.json", R"({"HomepageLocation": "https://example.test/"})");
  EXPECT_THAT(read(), ElementsAre("usual"));
  put(own, R"({"AutoSelectCertificateForUrls": 7, "AutoSelectCertificateForUrls": ["own"]})");
  EXPECT_THAT(read(), ElementsAre("own"));
  put("\xc3\xa9.json", rules(R"(["accent"])"));
  EXPECT_THAT(read(), ElementsAre("accent"));
}

TEST_F(PolicyFolder, OnlyRegularFilesCount) {
  std::filesystem::create_directories(root_ / "managed/folder.json");
  put("folder.json/below.json", rules(R"(["below"])"));
  std::filesystem::create_symlink(root_ / "nothing", root_ / "managed/dangling.json");
  std::filesystem::create_symlink("loop.json", root_ / "managed/loop.json");
  EXPECT_THAT(read(), IsEmpty());
  std::filesystem::create_symlink(std::string(300, 'x'), root_ / "managed/too-long.json");
  EXPECT_THROW(static_cast<void>(read()), std::system_error);
  std::filesystem::remove_all(root_ / "managed");
  writeFile(root_ / "managed", "");
  EXPECT_THROW(static_cast<void>(read()), std::system_error);
}

TEST_F(PolicyFolder, TakesABlankOwnFileForEmpty) {
  put(own, " \t\r\n");
  EXPECT_THAT(read(), IsEmpty());
  folder_.writeRules({"rule"});
  EXPECT_EQ(readFile(ownFile_), "{\n  \"AutoSelectCertificateForUrls\": [\n    \"rule\"\n  ]\n}\n");
}

TEST_F(PolicyFolder, RejectsAnOwnFileThatIsNotAnObject) {
  for (const char* text : {"[]", "null", "\"text\"", "{", "{} {}", "not JSON", "{\"a\": 1,}"}) {
    expectRejected(text);
  }
}

TEST_F(PolicyFolder, RejectsAnotherFileThatIsNotAnObjectOnlyIfItMayHoldRules) {
  using namespace std::string_literals;
  put(own, rules(R"(["own"])"));
  for (const std::string& text : {"{\"HomepageLocation\": 1,}"s, ""s, "\0\xff\xfe"s}) {
    put("a.json", text);
    EXPECT_THAT(read(), ElementsAre("own")) << text;
  }
  for (const std::string& text :
       {R"({"AutoSelectCertificateForUrls": ["a"],})"s, R"(["AutoSelectCertificateForUrls"])"s,
        R"({"AutoSelect\u0043ertificateForUrls": ["a"],})"s,
        R"({"AutoSelect\x43ertificateForUrls": ["a"],})"s,
        "{\"AutoSelectCertificateForUrls\": [\"a\"]}\0junk"s}) {
    put("a.json", text);
    EXPECT_THROW(static_cast<void>(read()), ChromePreferencesError) << text;
  }
}

TEST_F(PolicyFolder, RejectsAFileThatNestsDeeperThanChromeReads) {
  const auto nested = [](std::size_t arrays) {
    return R"({"Deep": )" + std::string(arrays, '[') + std::string(arrays, ']') + "}";
  };
  put(own, nested(198));
  EXPECT_THAT(read(), IsEmpty());
  folder_.writeRules({"rule"});
  EXPECT_THAT(read(), ElementsAre("rule"));
  for (const std::size_t arrays : {199UL, 100'000UL}) {
    expectRejected(nested(arrays));
  }
}

TEST_F(PolicyFolder, KeepsOtherPolicies) {
  put(own, R"({"Z": [1.50, -7, 18446744073709551615], // by hand
               "AutoSelectCertificateForUrls": ["old"], "B": {"y": null, "x": "a/b \u00e9"}})");
  folder_.writeRules({"new", "\""});
  EXPECT_EQ(nlohmann::json::parse(readFile(ownFile_)), nlohmann::json::parse(R"(
      {"Z": [1.5, -7, 18446744073709551615], "B": {"y": null, "x": "a/b é"},
       "AutoSelectCertificateForUrls": ["new", "\""]})"));
}

// A quadratic reader or writer takes more than half a minute.
TEST_F(PolicyFolder, KeepsOneHundredThousandOtherPoliciesInTime) {
  std::string policies = "{";
  for (int number = 0; number < 100'000; ++number) {
    policies += (number == 0 ? "\"Policy" : ",\"Policy") + std::to_string(number) + "\":1";
  }
  put(own, policies + "}");
  const auto started = std::chrono::steady_clock::now();
  folder_.writeRules({"rule"});
  EXPECT_THAT(read(), ElementsAre("rule"));
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(20));
  EXPECT_GT(std::filesystem::file_size(ownFile_), policies.size());
}

TEST_F(PolicyFolder, RejectsRulesThatAreNotUTF8) {
  put(own, rules(R"(["old"])"));
  EXPECT_THROW(folder_.writeRules({"\xff"}), ChromePreferencesError);
  EXPECT_THAT(read(), ElementsAre("old"));
}

TEST_F(PolicyFolder, RefusesToWriteWhereSomeCannotRead) {
  put(own, "{}");
  ::chmod((root_ / "managed").c_str(), 0750);
  EXPECT_THROW(folder_.writeRules({"rule"}), std::system_error);
  EXPECT_EQ(readFile(ownFile_), "{}");
}

constexpr const char* catchAll = R"(["{\"pattern\":\"*\"}"])";

TEST_F(PolicyFolder, WithdrawingChangesNothingWithoutOwnRules) {
  put("10-company.json", rules(catchAll));
  EXPECT_FALSE(folder_.withdrawRule());
  put(own, R"({"ShowHomeButton": true})");
  const auto before = contents(root_.path());
  EXPECT_FALSE(folder_.withdrawRule());
  EXPECT_EQ(contents(root_.path()), before);
}

TEST_F(PolicyFolder, WithdrawingKeepsOtherPoliciesAndSites) {
  put("10-company.json", rules(R"(["company"])"));
  put(own, rules(R"(["site", "{\"pattern\":\"*\"}", "company"])"));
  EXPECT_TRUE(folder_.withdrawRule());
  EXPECT_THAT(read(), ElementsAre("company", "site"));
  put(own, R"({"A": 1, "AutoSelectCertificateForUrls": )" + std::string(catchAll) + "}");
  EXPECT_TRUE(folder_.withdrawRule());
  EXPECT_EQ(readFile(ownFile_), "{\n  \"A\": 1\n}\n");
  put(own, rules(catchAll));
  EXPECT_TRUE(folder_.withdrawRule());
  EXPECT_FALSE(std::filesystem::exists(ownFile_));
  EXPECT_THAT(read(), ElementsAre("company"));
}

TEST_F(PolicyFolder, WithdrawingRequiresRulesThatCanBeRead) {
  put("10-company.json", rules("1"));
  for (const char* value : {catchAll, "1"}) {
    put(own, rules(value));
    EXPECT_THROW(static_cast<void>(folder_.withdrawRule()), ChromePreferencesError);
    EXPECT_EQ(readFile(ownFile_), rules(value));
    put("10-company.json", "{}");
  }
}

}  // namespace
}  // namespace lumaret::tests
