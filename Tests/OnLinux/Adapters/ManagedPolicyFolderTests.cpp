// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

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
  PolicyFolder() { std::filesystem::create_directories(managed()); }

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
  static mode_t mode(const std::filesystem::path& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    return status.st_mode & 07777;
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

  /// Runs an action in a process of its own, as another user where root runs the tests. Returns 0,
  /// or `refused` when the system refused.
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

TEST_F(PolicyFolder, AFileInTheFoldersPlaceIsAnError) {
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

TEST_F(PolicyFolder, LinksAreFollowedAndSubfoldersAreNot) {
  writeFile(root_ / "elsewhere", rules(R"(["linked"])"));
  std::filesystem::create_symlink(root_ / "elsewhere", managed() / "link");
  std::filesystem::create_symlink(root_ / "nothing", managed() / "zz-dangling");
  put("zz-folder/file.json", rules(R"(["below"])"));
  EXPECT_THAT(folder().readRules(), ElementsAre("linked"));
}

TEST_F(PolicyFolder, ALinkThatCannotBeFollowedIsAnErrorAndOneWithoutAnEndIsNothing) {
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

TEST_F(PolicyFolder, AValueThatIsNoListOfTextsCannotBeRead) {
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

TEST_F(PolicyFolder, AnEmptyOwnFileIsNoValue) {
  put(ManagedPolicyFolder::ownFileName, "");
  EXPECT_THAT(folder().readRules(), IsEmpty());
  folder().writeRules({"rule"});
  EXPECT_THAT(folder().readRules(), ElementsAre("rule"));
}

TEST_F(PolicyFolder, AnOwnFileThatIsNoObjectCannotBeRead) {
  for (const char* text : {"[]", "null", "\"text\"", "{", "{} {}", "not JSON", "{\"a\": 1,}"}) {
    put(ManagedPolicyFolder::ownFileName, text);
    SCOPED_TRACE(text);
    expectUnreadable();
    EXPECT_THROW(folder().writeRules({"rule"}), ChromePreferencesError);
    EXPECT_EQ(readFile(ownFile()), text);
  }
}

TEST_F(PolicyFolder, AnotherFileThatIsNoObjectIsSkippedWhereItCannotSpeakOfRules) {
  put("a.json", "{\"HomepageLocation\": 1,}");
  put("b.json", "");
  put("c.bin", std::string("\0\xff\xfe", 3));
  EXPECT_THAT(folder().readRules(), IsEmpty());
}

TEST_F(PolicyFolder, AnotherFileThatIsNoObjectButSpeaksOfRulesCannotBeOverlooked) {
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

TEST_F(PolicyFolder, WhatIsWrittenIsInForce) {
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

TEST_F(PolicyFolder, NoFileIsLeftBesideIt) {
  folder().writeRules({"rule"});
  folder().writeRules({"rule"});
  EXPECT_EQ(contents(root_.path()).size(), 1U);
}

TEST_F(PolicyFolder, EveryUserMayReadItWhateverTheUmask) {
  const mode_t before = ::umask(077);
  const ManagedPolicyFolder missing(root_ / "new/policies/managed");
  missing.writeRules({"rule"});
  ::umask(before);
  EXPECT_EQ(mode(root_ / "new"), 0755U);
  EXPECT_EQ(mode(root_ / "new/policies/managed"), 0755U);
  EXPECT_EQ(mode(root_ / "new/policies/managed" / ManagedPolicyFolder::ownFileName), 0644U);
}

TEST_F(PolicyFolder, AnOwnFileKeepsItsPermissionsAndOwner) {
  put(ManagedPolicyFolder::ownFileName, "{}");
  ::chmod(ownFile().c_str(), 0664);
  if (::geteuid() == 0) {
    ASSERT_EQ(::chown(ownFile().c_str(), anotherUser, anotherUser), 0);
  }
  struct stat before {};
  ::stat(ownFile().c_str(), &before);
  folder().writeRules({"rule"});
  struct stat after {};
  ::stat(ownFile().c_str(), &after);
  EXPECT_EQ(after.st_uid, before.st_uid);
  EXPECT_EQ(after.st_gid, before.st_gid);
  EXPECT_EQ(after.st_mode, before.st_mode);
}

TEST_F(PolicyFolder, AnOwnFileKeepsItsAccessControlList) {
  put(ManagedPolicyFolder::ownFileName, "{}");
  // Version 2; then each entry's tag, permissions and identifier: the owner, user 65534, the owning
  // group, the mask and all others, who may not read.
  const std::string list(
      "\x02\0\0\0"
      "\x01\0\x06\0\xff\xff\xff\xff"
      "\x02\0\x06\0\xfe\xff\0\0"
      "\x04\0\x04\0\xff\xff\xff\xff"
      "\x10\0\x06\0\xff\xff\xff\xff"
      "\x20\0\0\0\xff\xff\xff\xff",
      44);
  constexpr const char* name = "system.posix_acl_access";
  if (::setxattr(ownFile().c_str(), name, list.data(), list.size(), 0) != 0) {
    GTEST_SKIP() << "no access-control lists here";
  }
  folder().writeRules({"rule"});
  std::string kept(100, '\0');
  const ssize_t size = ::getxattr(ownFile().c_str(), name, kept.data(), kept.size());
  ASSERT_EQ(size, 44);
  kept.resize(44);
  std::string readableByAll = list;
  readableByAll[38] = '\x04';
  EXPECT_EQ(kept, readableByAll);
}

TEST_F(PolicyFolder, AFolderThatLeadsElsewhereIsWrittenThere) {
  std::filesystem::create_directories(root_ / "elsewhere/real");
  std::filesystem::create_directory_symlink(root_ / "elsewhere/real", root_ / "linked");
  const ManagedPolicyFolder linked(root_ / "linked");
  linked.writeRules({"rule"});
  EXPECT_THAT(ManagedPolicyFolder(root_ / "elsewhere/real").readRules(), ElementsAre("rule"));
}

TEST_F(PolicyFolder, ADanglingLinkAnywhereOnTheWayIsAnErrorAndNothingIsMadeBehindIt) {
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

TEST_F(PolicyFolder, EveryMissingFolderOnTheWayIsMade) {
  const ManagedPolicyFolder folder(root_ / "a/b/c");
  folder.writeRules({"rule"});
  EXPECT_THAT(folder.readRules(), ElementsAre("rule"));
}

TEST_F(PolicyFolder, WhatNestsDeeperThanChromeReadsIsNoObject) {
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

TEST_F(PolicyFolder, TheFileIsReplacedAsAWhole) {
  put(ManagedPolicyFolder::ownFileName, "{}");
  std::ifstream reader(ownFile());  // A browser that is reading meanwhile.
  folder().writeRules({"rule"});
  const std::string seen{std::istreambuf_iterator<char>(reader), {}};
  EXPECT_EQ(seen, "{}");
}

TEST_F(PolicyFolder, ALargeListIsWrittenWhole) {
  const std::vector<std::string> many(20'000, std::string(100, 'x'));
  folder().writeRules(many);
  EXPECT_EQ(folder().readRules(), many);
}

/// What a user meets to whom an administrator gave the file and nothing else.
class GrantedPolicyFile : public PolicyFolder {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) {
      GTEST_SKIP() << "only root can give a file away";
    }
  }

  /// Writes a list as the user to whom the file belongs.
  [[nodiscard]] int write(const std::vector<std::string>& list) const {
    EXPECT_EQ(::chown(ownFile().c_str(), anotherUser, anotherUser), 0);
    return asAnotherUser([&] { folder().writeRules(list); });
  }
};

TEST_F(GrantedPolicyFile, IsRewrittenInPlaceByAShorterText) {
  put(ManagedPolicyFolder::ownFileName, rules("[]") + std::string(500, ' '));
  EXPECT_EQ(write({"new"}), 0);
  EXPECT_EQ(readFile(ownFile()), "{\n  \"AutoSelectCertificateForUrls\": [\n    \"new\"\n  ]\n}\n");
}

TEST_F(GrantedPolicyFile, IsRewrittenInPlaceByALongerText) {
  put(ManagedPolicyFolder::ownFileName, "{}");
  EXPECT_EQ(write({std::string(5000, 'x')}), 0);
  EXPECT_THAT(folder().readRules(), ElementsAre(std::string(5000, 'x')));
}

TEST_F(GrantedPolicyFile, IsNotWrittenThroughALink) {
  writeFile(root_ / "precious", "{}");
  ASSERT_EQ(::chown((root_ / "precious").c_str(), anotherUser, anotherUser), 0);
  std::filesystem::create_symlink(root_ / "precious", ownFile());
  EXPECT_EQ(write({"new"}), refused);
  EXPECT_EQ(readFile(root_ / "precious"), "{}");
}

TEST_F(PolicyFolder, AUserWithoutAnyGrantIsRefused) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "an ordinary user owns what his tests make";
  }
  EXPECT_EQ(asAnotherUser([&] { folder().writeRules({"rule"}); }), refused);
  EXPECT_THAT(contents(root_.path()), IsEmpty());
}

}  // namespace
}  // namespace lumaret::tests
