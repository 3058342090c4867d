// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>

#include "LumaretMacHelper/Linux/ProfileLock.hpp"
#include "LumaretMacHelper/POSIX/FileDescriptor.hpp"
#include "Tests/OnLinux/Adapters/PrivateMachine.hpp"

namespace lumaret::tests {
namespace {

class ProfileLock : public ::testing::Test {
 protected:
  ProfileLock() {
    if (::unshare(CLONE_NEWUTS) == 0) {  // Root may name this process's host.
      ::sethostname("a-host", 6);
    }
  }

  static std::string host() {
    std::array<char, 256> name{};
    ::gethostname(name.data(), name.size());
    return name.data();
  }

  /// Makes the link, or replaces it.
  void link(const char* name, const std::filesystem::path& target) const {
    std::filesystem::remove(profile_ / name);
    std::filesystem::create_symlink(target, profile_ / name);
  }
  void lockBy(pid_t process) const {
    link("SingletonLock", host() + "-" + std::to_string(process));
  }

  /// Binds the socket of the lock, as a browser does. It may still listen or not.
  [[nodiscard]] FileDescriptor bindSocket() const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = (profile_ / "socket").string();
    path.copy(address.sun_path, path.size());
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
    EXPECT_EQ(::bind(socket.number(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    link("SingletonSocket", path);
    return socket;
  }

  [[nodiscard]] bool isLocked() const { return isProfileLocked(profile_.path()); }

  /// In a child process, with an empty file system mounted on /proc.
  [[nodiscard]] bool isLockedWhereProcIsHidden() const {
    const pid_t child = ::fork();
    if (child == 0) {
      PrivateMounts mounts;
      const bool hidden = ::mount("none", "/proc", "tmpfs", 0, nullptr) == 0;
      ::_exit(!hidden ? 2 : isLocked() ? 1 : 0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) == 2) {
      throw std::runtime_error("/proc could not be hidden");
    }
    return WEXITSTATUS(status) == 1;
  }

  TemporaryFolder profile_;
};

TEST_F(ProfileLock, IsALink) {
  EXPECT_FALSE(isLocked());
  EXPECT_FALSE(isProfileLocked("/no/such/profile"));
  writeFile(profile_ / "SingletonLock", host() + "-" + std::to_string(::getpid()));
  EXPECT_FALSE(isLocked());
}

TEST_F(ProfileLock, IsHeldByALiveProcess) {
  lockBy(::getpid());
  EXPECT_TRUE(isLocked());
  EXPECT_TRUE(isLockedWhereProcIsHidden());
  const pid_t child = ::fork();
  if (child == 0) {
    ::_exit(0);
  }
  siginfo_t ended{};
  ::waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT);
  lockBy(child);
  EXPECT_FALSE(isLocked()) << "a zombie";
  ::waitpid(child, nullptr, 0);
  EXPECT_FALSE(isLocked());
  EXPECT_FALSE(isLockedWhereProcIsHidden());
}

TEST_F(ProfileLock, IsHeldByThisUser) {
  if (::geteuid() != 0) {
    lockBy(1);
    EXPECT_FALSE(isLocked());
    return;
  }
  const pid_t other = ::fork();
  if (other == 0) {
    ::_exit(::setuid(65534) == 0 ? ::raise(SIGSTOP) : 1);
  }
  int status = 0;
  ::waitpid(other, &status, WUNTRACED);
  ASSERT_TRUE(WIFSTOPPED(status));
  lockBy(other);
  EXPECT_FALSE(isLocked());
  ::kill(other, SIGKILL);
  ::waitpid(other, nullptr, 0);
}

TEST_F(ProfileLock, NamesThisHostAndAProcess) {
  const std::string process = std::to_string(::getpid());
  for (const std::string& content :
       {"elsewhere-" + process, std::string("nonsense"), std::string("-"), host(), host() + "-",
        host() + "-12x", host() + "-self", host() + "-../" + process, host() + "--1", host() + "-0",
        host() + "-99999999999999999999", host() + "-4294967297", host() + "-0" + process,
        host() + "-+" + process}) {
    link("SingletonLock", content);
    EXPECT_FALSE(isLocked()) << content;
    EXPECT_FALSE(isLockedWhereProcIsHidden()) << content;
  }
}

TEST_F(ProfileLock, CountsWhileSomebodyListens) {
  lockBy(::getpid());
  for (const bool isOld : {false, true}) {
    const FileDescriptor socket = bindSocket();
    if (isOld) {  // In an old browser's profile, the socket is in place of the link.
      std::filesystem::rename(profile_ / "socket", profile_ / "SingletonSocket");
    }
    EXPECT_FALSE(isLocked());
    EXPECT_FALSE(isLockedWhereProcIsHidden());
    ASSERT_EQ(::listen(socket.number(), 0), 0);
    EXPECT_TRUE(isLocked());
    EXPECT_TRUE(isLockedWhereProcIsHidden()) << "The queue is full.";
    std::filesystem::remove(profile_ / "socket");
  }
  link("SingletonSocket", "/no/such/socket");
  EXPECT_FALSE(isLocked());
}

TEST_F(ProfileLock, DoesNotCountWithAnythingButASocket) {
  lockBy(::getpid());
  writeFile(profile_ / "file", "");
  std::filesystem::create_directory(profile_ / "folder");
  ASSERT_EQ(::mkfifo((profile_ / "pipe").c_str(), 0), 0);
  std::filesystem::create_symlink("/dev/null", profile_ / "device");
  for (const char* name : {"file", "folder", "pipe", "device"}) {
    link("SingletonSocket", profile_ / name);
    EXPECT_FALSE(isLocked()) << name;
    std::filesystem::remove(profile_ / "SingletonSocket");
    std::filesystem::rename(profile_ / name, profile_ / "SingletonSocket");
    EXPECT_FALSE(isLocked()) << name << " in place of the link";
  }
}

TEST_F(ProfileLock, CountsIfTheSocketCannotBeAsked) {
  lockBy(::getpid());
  const FileDescriptor socket = bindSocket();
  const auto folder = profile_ / std::string(100, 'x');
  std::filesystem::create_directory(folder);
  std::filesystem::rename(profile_ / "socket", folder / "socket");
  link("SingletonSocket", folder / "socket");
  EXPECT_TRUE(isLocked()) << "Its path is too long.";
  link("SingletonSocket", "SingletonSocket");
  EXPECT_TRUE(isLocked()) << "The link leads to itself.";
}

}  // namespace
}  // namespace lumaret::tests
