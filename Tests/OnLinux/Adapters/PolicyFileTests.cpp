// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <csignal>
#include <system_error>

#include "LumaretMacHelper/Linux/PolicyFile.hpp"
#include "Tests/OnLinux/Adapters/PrivateMachine.hpp"

namespace lumaret::tests {
namespace {

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
    return ::getxattr(path.c_str(), "system.posix_acl_access", nullptr, 0) >= 0;
  }

  static void expectRejected(const std::filesystem::path& file) {
    EXPECT_THROW(static_cast<void>(readPolicyFile(file)), std::system_error);
  }

  PrivateMounts mounts_;
  std::filesystem::path managed_ = "/opt/policies/managed";
  std::filesystem::path file_ = managed_ / "own.json";
};

TEST_F(PolicyFile, IsWorldReadableWhateverTheUmask) {
  for (const mode_t mask : {002U, 022U, 027U, 077U}) {
    ::umask(mask);
    replacePolicyFile("/opt/new/policies/managed/own.json", "{}");
    for (const char* folder : {"/opt/new", "/opt/new/policies", "/opt/new/policies/managed"}) {
      EXPECT_EQ(mode(folder), 0755U) << mask;
    }
    EXPECT_EQ(mode("/opt/new/policies/managed/own.json"), 0644U) << mask;
    std::filesystem::remove_all("/opt/new");
  }
}

TEST_F(PolicyFile, IsReplacedByANewFileWithItsOwnOwnerAndPermissions) {
  writeFile(file_, "old");
  std::filesystem::create_hard_link(file_, "/opt/second");
  ::chmod(file_.c_str(), 0666);
  giveList(file_, "system.posix_acl_access");
  if (::geteuid() == 0) {
    static_cast<void>(::chown(file_.c_str(), 65534, 65534));
  }
  replacePolicyFile(file_, "new");
  EXPECT_EQ(readPolicyFile(file_), "new");
  EXPECT_EQ(readFile("/opt/second"), "old");
  EXPECT_EQ(contents("/opt").size(), 2U);
  EXPECT_EQ(mode(file_), 0644U);
  EXPECT_EQ(statusOf(file_).st_uid, ::geteuid());
  EXPECT_EQ(statusOf(file_).st_gid, ::getegid());
  EXPECT_FALSE(hasList(file_));
}

TEST_F(PolicyFile, InheritsNoAccessControlList) {
  if (!giveList("/opt/policies", "system.posix_acl_default")) {
    GTEST_SKIP() << "this file system has no access control lists";
  }
  for (const std::filesystem::path folder : {"/opt/policies/managed", "/opt/policies/new"}) {
    replacePolicyFile(folder / "own.json", "{}");
    EXPECT_EQ(mode(folder), 0755U);
    EXPECT_TRUE(isOpenToEveryUser(folder));
    EXPECT_EQ(mode(folder / "own.json"), 0644U);
    EXPECT_FALSE(hasList(folder / "own.json"));
  }
}

TEST_F(PolicyFile, InheritsNoGroupFromItsFolder) {
  ::chmod("/opt/policies", 02755);
  if (::chown("/opt/policies", ::geteuid(), 65534) != 0) {
    GTEST_SKIP() << "only the real root can give a folder to a group";
  }
  replacePolicyFile(file_, "{}");
  EXPECT_EQ(statusOf(file_).st_gid, ::getegid());
}

TEST_F(PolicyFile, IsNeitherReplacedNorRemovedIfItIsALink) {
  writeFile("/opt/elsewhere", "{}");
  std::filesystem::create_symlink("/opt/elsewhere", file_);
  EXPECT_THROW(replacePolicyFile(file_, "new"), std::system_error);
  EXPECT_THROW(removePolicyFile(file_), std::system_error);
  EXPECT_EQ(contents("/opt"),
            (std::map<std::string, std::string>{{"/opt/elsewhere", "{}"}, {file_.string(), "{}"}}));
  EXPECT_TRUE(std::filesystem::is_symlink(file_));
}

TEST_F(PolicyFile, IsWrittenIntoALinkedFolderOnAnotherFileSystem) {
  std::filesystem::create_directories("/run/real/managed");
  std::filesystem::create_directory_symlink("/run/real/managed", "/opt/linked");
  replacePolicyFile("/opt/linked/own.json", "{}");
  EXPECT_EQ(readFile("/run/real/managed/own.json"), "{}");
}

TEST_F(PolicyFile, IsNotWrittenBehindADanglingLink) {
  for (const std::filesystem::path link : {"/opt/a", "/opt/b/managed"}) {
    std::filesystem::create_directories(link.parent_path());
    std::filesystem::create_symlink("/opt/gone", link);
    for (const char* file : {"own.json", "below/own.json"}) {
      EXPECT_THROW(replacePolicyFile(link / file, "{}"), std::system_error) << link / file;
    }
  }
  EXPECT_FALSE(std::filesystem::exists("/opt/gone"));
  EXPECT_THAT(contents("/opt"), ::testing::IsEmpty());
}

TEST_F(PolicyFile, RejectsNonWorldReadable) {
  writeFile(file_, "{}");
  for (const mode_t some : {0600U, 0640U, 0000U}) {
    ::chmod(file_.c_str(), some);
    expectRejected(file_);
  }
  ::chmod(file_.c_str(), 0604);
  EXPECT_EQ(readPolicyFile(file_), "{}");
}

TEST_F(PolicyFile, IsReadBehindALinkOnlyWhereEveryUserMayGo) {
  writeFile("/opt/elsewhere/below/file", "{}");
  std::filesystem::create_symlink("elsewhere/below", "/opt/folder");
  std::filesystem::create_symlink("../../folder/file", file_);
  for (const char* place :
       {"/opt", "/opt/elsewhere", "/opt/elsewhere/below", "/opt/elsewhere/below/file"}) {
    ::chmod(place, 0750);
    expectRejected(file_);
    ::chmod(place, 0715);
    EXPECT_EQ(readPolicyFile(file_), "{}");
  }
}

TEST_F(PolicyFile, RejectsWhatIsNotARegularFile) {
  ASSERT_EQ(::mkfifo(file_.c_str(), 0644), 0);
  expectRejected(file_);
  std::filesystem::create_symlink("/dev/zero", managed_ / "zero");
  expectRejected(managed_ / "zero");
}

TEST_F(PolicyFile, IsReadAndWrittenUpToItsLargestSize) {
  replacePolicyFile(file_, std::string(largestPolicyFile, ' '));
  EXPECT_EQ(readPolicyFile(file_)->size(), largestPolicyFile);
  EXPECT_THROW(replacePolicyFile(file_, std::string(largestPolicyFile + 1, ' ')),
               std::system_error);
  EXPECT_EQ(statusOf(file_).st_size, static_cast<off_t>(largestPolicyFile));
  // The file is sparse. Its second size is larger than any memory.
  for (const off_t size :
       {static_cast<off_t>(largestPolicyFile + 1), static_cast<off_t>(1) << 42}) {
    ASSERT_EQ(::truncate(file_.c_str(), size), 0);
    expectRejected(file_);
  }
}

TEST_F(PolicyFile, StaysAtAFailureAndLeavesNothingBehind) {
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

TEST_F(PolicyFile, IsFoundByEveryUserWhoCanEnterBothPathsOfItsFolder) {
  std::filesystem::create_directories("/opt/elsewhere/below");
  std::filesystem::create_directory_symlink("/opt/elsewhere/below", managed_ / "link");
  EXPECT_TRUE(isOpenToEveryUser(managed_ / "link"));
  EXPECT_TRUE(isOpenToEveryUser(managed_ / "missing/below"));
  for (const char* folder : {"/opt", "/opt/policies", "/opt/policies/managed", "/opt/elsewhere"}) {
    ::chmod(folder, 0750);
    EXPECT_FALSE(isOpenToEveryUser(managed_ / "link")) << folder;
    ::chmod(folder, 0711);
    EXPECT_TRUE(isOpenToEveryUser(managed_ / "link")) << folder;
  }
  EXPECT_FALSE(isOpenToEveryUser(managed_));  // The browser must also list the folder.
}

}  // namespace
}  // namespace lumaret::tests
