// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <system_error>

#include "LumaretMacHelper/Linux/PolicyFile.hpp"
#include "Tests/OnLinux/Adapters/PrivateMounts.hpp"
#include "Tests/Support/Cpp/TemporaryFolder.hpp"

namespace lumaret::tests {
namespace {

constexpr const char* accessList = "system.posix_acl_access";
constexpr const char* defaultList = "system.posix_acl_default";

/// An access control list: version 2, and tag, permissions and identifier of each entry. User 65534
/// may do everything, and all others may do nothing.
const std::string listOfSomebody(
    "\x02\0\0\0"
    "\x01\0\x07\0\xff\xff\xff\xff"
    "\x02\0\x07\0\xfe\xff\0\0"
    "\x04\0\x05\0\xff\xff\xff\xff"
    "\x10\0\x07\0\xff\xff\xff\xff"
    "\x20\0\0\0\xff\xff\xff\xff",
    44);

/// The file is in a folder that every user can enter, on a private file system.
class PolicyFile : public ::testing::Test {
 protected:
  PolicyFile() {
    ::umask(022);
    std::filesystem::create_directories(managed_);
  }

  static struct stat statusOf(const std::filesystem::path& path) {
    struct stat status = {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status;
  }
  static mode_t mode(const std::filesystem::path& path) { return statusOf(path).st_mode & 07777; }

  static bool giveList(const std::filesystem::path& path, const char* kind) {
    return ::setxattr(path.c_str(), kind, listOfSomebody.data(), listOfSomebody.size(), 0) == 0;
  }
  static bool hasList(const std::filesystem::path& path) {
    return ::getxattr(path.c_str(), accessList, nullptr, 0) >= 0;
  }

  void expectRefused(const std::filesystem::path& file) const {
    EXPECT_THROW(static_cast<void>(readPolicyFile(file)), std::system_error);
  }

  PrivateMounts mounts_;
  std::filesystem::path managed_ = "/opt/policies/managed";
  std::filesystem::path file_ = managed_ / "own.json";
};

TEST_F(PolicyFile, EveryUserMayReadItWhateverTheUmask) {
  ::umask(077);
  replacePolicyFile("/opt/new/policies/managed/own.json", "{}");
  for (const char* folder : {"/opt/new", "/opt/new/policies", "/opt/new/policies/managed"}) {
    EXPECT_EQ(mode(folder), 0755U);
  }
  EXPECT_EQ(mode("/opt/new/policies/managed/own.json"), 0644U);
}

TEST_F(PolicyFile, KeepsNeitherOwnerNorPermissionsOfTheOldFile) {
  writeFile(file_, "old");
  ::chmod(file_.c_str(), 0666);
  giveList(file_, accessList);
  if (::geteuid() == 0) {
    static_cast<void>(::chown(file_.c_str(), 65534, 65534));
  }
  replacePolicyFile(file_, "new");
  EXPECT_EQ(readPolicyFile(file_), "new");
  EXPECT_EQ(mode(file_), 0644U);
  EXPECT_EQ(statusOf(file_).st_uid, ::geteuid());
  EXPECT_EQ(statusOf(file_).st_gid, ::getegid());
  EXPECT_FALSE(hasList(file_));
}

TEST_F(PolicyFile, InheritsNoAccessControlListFromItsFolder) {
  if (!giveList("/opt/policies", defaultList) || !giveList(managed_, defaultList)) {
    GTEST_SKIP() << "this file system has no access control lists";
  }
  replacePolicyFile(file_, "{}");
  EXPECT_EQ(mode(file_), 0644U);
  EXPECT_FALSE(hasList(file_));
}

TEST_F(PolicyFile, IsInANewFolderThatEveryUserCanEnterWhateverAccessControlListIsInherited) {
  if (!giveList("/opt/policies", defaultList)) {
    GTEST_SKIP() << "this file system has no access control lists";
  }
  replacePolicyFile("/opt/policies/new/managed/own.json", "{}");
  EXPECT_EQ(mode("/opt/policies/new"), 0755U);
  EXPECT_EQ(mode("/opt/policies/new/managed"), 0755U);
  EXPECT_TRUE(isOpenToEveryUser("/opt/policies/new/managed"));
}

TEST_F(PolicyFile, InheritsNoGroupFromItsFolder) {
  ::chmod("/opt/policies", 02755);
  if (::chown("/opt/policies", ::geteuid(), 65534) != 0) {
    GTEST_SKIP() << "only the real root can give a folder to a group";
  }
  replacePolicyFile(file_, "{}");
  EXPECT_EQ(statusOf(file_).st_gid, ::getegid());
}

TEST_F(PolicyFile, IsReplacedByANewFile) {
  writeFile(file_, "old");
  std::filesystem::create_hard_link(file_, "/opt/second");
  replacePolicyFile(file_, "new");
  EXPECT_EQ(readFile("/opt/second"), "old");
}

TEST_F(PolicyFile, ThatOnlySomeMayReadIsRefused) {
  writeFile(file_, "{}");
  for (const mode_t some : {0600U, 0640U, 0000U}) {
    ::chmod(file_.c_str(), some);
    expectRefused(file_);
  }
  ::chmod(file_.c_str(), 0604);
  EXPECT_EQ(readPolicyFile(file_), "{}");
}

TEST_F(PolicyFile, BehindALinkCountsIfEveryUserMayReadIt) {
  writeFile("/opt/elsewhere/below/file", "{}");
  std::filesystem::create_symlink("elsewhere/below", "/opt/folder");
  std::filesystem::create_symlink("../../folder/file", file_);
  EXPECT_EQ(readPolicyFile(file_), "{}");
  ::chmod("/opt/elsewhere/below/file", 0640);
  expectRefused(file_);
}

TEST_F(PolicyFile, BehindALinkInAFolderThatOthersCannotEnterIsRefused) {
  writeFile("/opt/elsewhere/below/file", "{}");
  std::filesystem::create_symlink("/opt/elsewhere/below/file", file_);
  for (const char* folder : {"/opt", "/opt/elsewhere", "/opt/elsewhere/below"}) {
    ::chmod(folder, 0750);
    expectRefused(file_);
    ::chmod(folder, 0711);
    EXPECT_EQ(readPolicyFile(file_), "{}");
  }
}

TEST_F(PolicyFile, ThatIsNoRegularFileIsRefused) {
  ASSERT_EQ(::mkfifo(file_.c_str(), 0644), 0);
  expectRefused(file_);
  std::filesystem::create_symlink("/dev/zero", managed_ / "zero");
  expectRefused(managed_ / "zero");
}

TEST_F(PolicyFile, IsReadAndWrittenUpToItsLargestSizeAndNoFurther) {
  replacePolicyFile(file_, std::string(largestPolicyFile, ' '));
  EXPECT_EQ(readPolicyFile(file_)->size(), largestPolicyFile);
  EXPECT_THROW(replacePolicyFile(file_, std::string(largestPolicyFile + 1, ' ')),
               std::system_error);
  EXPECT_EQ(statusOf(file_).st_size, static_cast<off_t>(largestPolicyFile));
  ASSERT_EQ(::truncate(file_.c_str(), static_cast<off_t>(largestPolicyFile + 1)), 0);
  expectRefused(file_);
  // The file is sparse. Its size is larger than any memory.
  ASSERT_EQ(::truncate(file_.c_str(), static_cast<off_t>(1) << 42), 0);
  expectRefused(file_);
}

TEST_F(PolicyFile, OverTheFileSizeLimitIsNotWrittenAndLeavesNothingBehind) {
  writeFile(file_, "old");
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
  struct rlimit before = {};
  ::getrlimit(RLIMIT_FSIZE, &before);
  const struct rlimit ten = {10, before.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &ten);
  EXPECT_THROW(replacePolicyFile(file_, std::string(11, 'x')), std::system_error);
  ::setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(readPolicyFile(file_), "old");
  EXPECT_EQ(contents("/opt").size(), 1U);
}

TEST_F(PolicyFile, AFolderIsOpenIfEveryUserCanEnterItAndItsParents) {
  EXPECT_TRUE(isOpenToEveryUser(managed_));
  EXPECT_TRUE(isOpenToEveryUser(managed_ / "missing/below"));
  for (const char* folder : {"/opt", "/opt/policies", "/opt/policies/managed"}) {
    ::chmod(folder, 0750);
    EXPECT_FALSE(isOpenToEveryUser(managed_)) << folder;
    ::chmod(folder, 0755);
  }
  ::chmod("/opt/policies", 0711);
  EXPECT_TRUE(isOpenToEveryUser(managed_));
  ::chmod(managed_.c_str(), 0711);  // The browser must also list the folder.
  EXPECT_FALSE(isOpenToEveryUser(managed_));
}

TEST_F(PolicyFile, AFolderBehindALinkIsOpenIfBothPathsAre) {
  std::filesystem::create_directories("/opt/elsewhere/below");
  std::filesystem::create_directory_symlink("/opt/elsewhere/below", managed_ / "link");
  EXPECT_TRUE(isOpenToEveryUser(managed_ / "link"));
  for (const char* folder : {"/opt/elsewhere", "/opt/policies"}) {
    ::chmod(folder, 0700);
    EXPECT_FALSE(isOpenToEveryUser(managed_ / "link")) << folder;
    ::chmod(folder, 0755);
  }
}

}  // namespace
}  // namespace lumaret::tests
