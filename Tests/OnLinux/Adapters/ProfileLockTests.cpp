// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>
#include <string>

#include "LumaretMacHelper/Linux/ProfileLock.hpp"
#include "LumaretMacHelper/POSIX/FileDescriptor.hpp"
#include "Tests/OnLinux/Adapters/PrivateMounts.hpp"
#include "Tests/Support/Cpp/TemporaryFolder.hpp"

namespace lumaret::tests {
namespace {

class ProfileLock : public ::testing::Test {
 protected:
  static std::string host() {
    std::array<char, 256> name{};
    ::gethostname(name.data(), name.size());
    return name.data();
  }

  void lock(const std::string& content) const {
    std::filesystem::create_symlink(content, profile_ / "SingletonLock");
  }
  void lockBy(pid_t process) const { lock(host() + "-" + std::to_string(process)); }

  /// Binds the socket of the lock, as a browser does. It may still listen or not.
  [[nodiscard]] FileDescriptor bindSocket() const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = (profile_ / "socket").string();
    path.copy(address.sun_path, path.size());
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
    EXPECT_EQ(::bind(socket.number(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    std::filesystem::create_symlink(path, profile_ / "SingletonSocket");
    return socket;
  }

  [[nodiscard]] bool isLocked() const { return isProfileLocked(profile_.path()); }

  TemporaryFolder profile_;
};

TEST_F(ProfileLock, AProfileWithoutALockIsFree) { EXPECT_FALSE(isLocked()); }

TEST_F(ProfileLock, AMissingProfileIsFree) { EXPECT_FALSE(isProfileLocked("/no/such/profile")); }

TEST_F(ProfileLock, ALiveProcessOfThisUserAndHostHoldsTheLock) {
  lockBy(::getpid());
  EXPECT_TRUE(isLocked());
}

TEST_F(ProfileLock, ALockOfAnotherHostDoesNotCount) {
  lock("elsewhere-" + std::to_string(::getpid()));
  EXPECT_FALSE(isLocked());
}

TEST_F(ProfileLock, AnotherUsersProcessDoesNotHoldTheLock) {
  if (::geteuid() != 0) {
    lockBy(1);
    EXPECT_FALSE(isLocked());
    return;
  }
  const pid_t other = ::fork();
  if (other == 0) {
    if (::setuid(65534) == 0) {
      ::pause();
    }
    ::_exit(1);
  }
  const auto status = "/proc/" + std::to_string(other) + "/status";
  for (int attempt = 0; attempt < 10'000; ++attempt) {
    if (readFile(status).find("\nUid:\t65534") != std::string::npos) {
      break;
    }
    ::usleep(1000);
  }
  ASSERT_THAT(readFile(status), ::testing::HasSubstr("\nUid:\t65534"));
  lockBy(other);
  EXPECT_FALSE(isLocked());
  ::kill(other, SIGKILL);
  ::waitpid(other, nullptr, 0);
}

TEST_F(ProfileLock, AnEndedProcessDoesNotHoldTheLockEvenBeforeItsParentKnows) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::_exit(0);
  }
  siginfo_t ended{};
  ::waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT);
  lockBy(child);
  EXPECT_FALSE(isLocked());
  ::waitpid(child, nullptr, 0);
  EXPECT_FALSE(isLocked());
}

TEST_F(ProfileLock, AMalformedLinkIsNotALock) {
  for (const std::string& content :
       {std::string("nonsense"), host(), host() + "-", host() + "-12x", host() + "-self",
        host() + "-../" + std::to_string(::getpid()), host() + "--1", std::string("-"),
        host() + "-99999999999999999999", host() + "-0", host() + "-4294967297",
        host() + "-0" + std::to_string(::getpid()), host() + "-+" + std::to_string(::getpid())}) {
    lock(content);
    EXPECT_FALSE(isLocked()) << content;
    std::filesystem::remove(profile_ / "SingletonLock");
  }
}

/// Runs in a child process, with an empty file system mounted on /proc.
template <typename Action>
bool whereProcIsHidden(Action action) {
  const pid_t child = ::fork();
  if (child == 0) {
    PrivateMounts mounts;
    const bool hidden = ::mount("none", "/proc", "tmpfs", 0, nullptr) == 0;
    ::_exit(!hidden ? 2 : action() ? 1 : 0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) == 2) {
    throw std::runtime_error("/proc could not be hidden");
  }
  return WEXITSTATUS(status) == 1;
}

TEST_F(ProfileLock, ALiveProcessHoldsTheLockIfProcIsHidden) {
  lockBy(::getpid());
  EXPECT_TRUE(whereProcIsHidden([this] { return isLocked(); }));
  const FileDescriptor socket = bindSocket();
  EXPECT_FALSE(whereProcIsHidden([this] { return isLocked(); })) << "Nobody listens.";
  ASSERT_EQ(::listen(socket.number(), 1), 0);
  EXPECT_TRUE(whereProcIsHidden([this] { return isLocked(); }));
}

TEST_F(ProfileLock, AnEndedProcessDoesNotHoldTheLockIfProcIsHidden) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::_exit(0);
  }
  ::waitpid(child, nullptr, 0);
  lockBy(child);
  EXPECT_FALSE(whereProcIsHidden([this] { return isLocked(); }));
}

TEST_F(ProfileLock, AMalformedLinkIsNotALockIfProcIsHidden) {
  for (const std::string& content :
       {host() + "-0", host() + "--1", host() + "-", host() + "-4294967297",
        host() + "-0" + std::to_string(::getpid())}) {
    lock(content);
    EXPECT_FALSE(whereProcIsHidden([this] { return isLocked(); })) << content;
    std::filesystem::remove(profile_ / "SingletonLock");
  }
}

TEST_F(ProfileLock, ARegularFileIsNotALock) {
  writeFile(profile_ / "SingletonLock", host() + "-" + std::to_string(::getpid()));
  EXPECT_FALSE(isLocked());
}

TEST_F(ProfileLock, AListeningSocketConfirmsTheLock) {
  lockBy(::getpid());
  const FileDescriptor socket = bindSocket();
  ASSERT_EQ(::listen(socket.number(), 1), 0);
  EXPECT_TRUE(isLocked());
}

TEST_F(ProfileLock, ASocketWithoutAListenerMeansThatTheBrowserCrashed) {
  lockBy(::getpid());
  static_cast<void>(bindSocket());
  EXPECT_FALSE(isLocked());
}

TEST_F(ProfileLock, AMissingSocketMeansThatTheBrowserCrashed) {
  lockBy(::getpid());
  std::filesystem::create_symlink("/no/such/socket", profile_ / "SingletonSocket");
  EXPECT_FALSE(isLocked());
}

/// Something other than a socket, either behind the link to the socket or in place of the link.
class NoSocket : public ProfileLock, public ::testing::WithParamInterface<std::string> {
 protected:
  void make(const std::filesystem::path& place) const {
    if (GetParam() == "file") {
      writeFile(place, "");
    } else if (GetParam() == "folder") {
      std::filesystem::create_directory(place);
    } else if (GetParam() == "pipe") {
      ASSERT_EQ(::mkfifo(place.c_str(), 0600), 0);
    } else {
      std::filesystem::create_symlink("/dev/null", place);
    }
  }
};

TEST_P(NoSocket, MeansThatTheBrowserCrashed) {
  lockBy(::getpid());
  make(profile_ / "elsewhere");
  std::filesystem::create_symlink(profile_ / "elsewhere", profile_ / "SingletonSocket");
  EXPECT_FALSE(isLocked());
}

TEST_P(NoSocket, MeansThatTheBrowserCrashedInPlaceOfTheLinkToo) {
  lockBy(::getpid());
  make(profile_ / "SingletonSocket");
  EXPECT_FALSE(isLocked());
}

TEST_P(NoSocket, MeansThatTheBrowserCrashedWhateverItsPermissions) {
  lockBy(::getpid());
  make(profile_ / "elsewhere");
  if (GetParam() != "device") {
    ::chmod((profile_ / "elsewhere").c_str(), 0);
  }
  std::filesystem::create_symlink(profile_ / "elsewhere", profile_ / "SingletonSocket");
  EXPECT_FALSE(isLocked());
}

INSTANTIATE_TEST_SUITE_P(OfAnyKind, NoSocket,
                         ::testing::Values<std::string>("file", "folder", "pipe", "device"),
                         [](const auto& kind) { return kind.param; });

TEST_F(ProfileLock, ASocketInPlaceOfTheLinkBelongsToAnOldBrowser) {
  lockBy(::getpid());
  const FileDescriptor socket = bindSocket();
  std::filesystem::rename(profile_ / "socket", profile_ / "SingletonSocket");
  EXPECT_FALSE(isLocked());
  ASSERT_EQ(::listen(socket.number(), 1), 0);
  EXPECT_TRUE(isLocked());
}

TEST_F(ProfileLock, ASocketThatCannotBeAskedLeavesTheLockInForce) {
  lockBy(::getpid());
  const FileDescriptor socket = bindSocket();
  const auto folder = profile_ / std::string(100, 'x');
  std::filesystem::create_directory(folder);
  std::filesystem::rename(profile_ / "socket", folder / "socket");
  std::filesystem::remove(profile_ / "SingletonSocket");
  std::filesystem::create_symlink(folder / "socket", profile_ / "SingletonSocket");
  EXPECT_TRUE(isLocked()) << "Its path is too long.";
  std::filesystem::remove(profile_ / "SingletonSocket");
  std::filesystem::create_symlink("SingletonSocket", profile_ / "SingletonSocket");
  EXPECT_TRUE(isLocked()) << "The link leads to itself.";
}

}  // namespace
}  // namespace lumaret::tests
