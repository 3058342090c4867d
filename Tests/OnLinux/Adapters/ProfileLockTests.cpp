// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <string>

#include "LumaretMacHelper/Linux/ProfileLock.hpp"
#include "LumaretMacHelper/POSIX/FileDescriptor.hpp"
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

  /// The socket beside the lock, as a browser leaves it: bound, whether or not it still listens.
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

TEST_F(ProfileLock, NonsenseIsNotALock) {
  for (const std::string& content :
       {std::string("nonsense"), host(), host() + "-", host() + "-12x", host() + "-self",
        host() + "-../" + std::to_string(::getpid()), host() + "--1", std::string("-"),
        host() + "-99999999999999999999"}) {
    lock(content);
    EXPECT_FALSE(isLocked()) << content;
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
  { const FileDescriptor closed = bindSocket(); }
  EXPECT_FALSE(isLocked());
}

TEST_F(ProfileLock, AMissingSocketMeansThatTheBrowserCrashed) {
  lockBy(::getpid());
  std::filesystem::create_symlink("/no/such/socket", profile_ / "SingletonSocket");
  EXPECT_FALSE(isLocked());
}

}  // namespace
}  // namespace lumaret::tests
