// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include "LumaretMacHelper/POSIX/FileDescriptor.hpp"
#include "LumaretMacHelper/POSIX/Process.hpp"
#include "LumaretMacHelper/POSIX/StandardStreams.hpp"
#include "LumaretMacHelper/POSIX/SystemCalls.hpp"
#include "LumaretMacHelper/PlatformFunctions.hpp"

namespace lumaret::tests {
namespace {

/// Starts a child process whose standard output is this descriptor, or closed if it is negative.
/// There the action runs, and the number of the error that it throws becomes the status.
template <typename Action>
pid_t start(int descriptor, Action action) {
  const pid_t child = ::fork();
  if (child == 0) {
    if (descriptor < 0) {
      ::close(STDOUT_FILENO);
    } else {
      ::dup2(descriptor, STDOUT_FILENO);
    }
    prepareStandardStreams();
    int status = 0;
    try {
      action();
    } catch (const std::system_error& error) {
      status = error.code().value();
    }
    ::_exit(status);
  }
  return child;
}

int statusOf(pid_t child) {
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

/// What the action writes to standard output, which is a pipe that does not block.
template <typename Action>
std::string outputOf(Action action) {
  std::array<int, 2> pipe{};
  checked(::pipe2(pipe.data(), O_CLOEXEC));
  checked(::fcntl(pipe[1], F_SETFL, O_NONBLOCK));
  const FileDescriptor readEnd(pipe[0]);
  const pid_t child = start(pipe[1], action);
  ::close(pipe[1]);
  std::string output;
  std::array<char, 4096> buffer{};
  while (const ssize_t count = checked(::read(pipe[0], buffer.data(), buffer.size()))) {
    output.append(buffer.data(), static_cast<std::size_t>(count));
  }
  EXPECT_EQ(statusOf(child), 0);
  return output;
}

TEST(StandardOutput, IsWrittenWhole) {
  const std::string text(1'000'000, 'x');  // Much more than the pipe holds.
  EXPECT_EQ(outputOf([&text] { writeStandardOutput(text); }), text);
}

TEST(StandardOutput, ReportsErrorsAndRaisesNoSignal) {
  const auto statusOfWriting = [](int descriptor) {
    return statusOf(start(descriptor, [] { writeStandardOutput("x"); }));
  };
  EXPECT_EQ(statusOfWriting(-1), EBADF);
  EXPECT_EQ(statusOfWriting(FileDescriptor(::open("/dev/full", O_WRONLY)).number()), ENOSPC);
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC), 0);
  ::close(pipe[0]);
  EXPECT_EQ(statusOfWriting(pipe[1]), EPIPE);
  ::close(pipe[1]);
}

TEST(StandardOutput, GivesItsNumberToNoOtherFileWhenClosed) {
  EXPECT_EQ(statusOf(start(-1,
                           [] {
                             const FileDescriptor file(::open("/dev/null", O_WRONLY));
                             require(file.number() > STDERR_FILENO, std::errc::file_exists, "");
                           })),
            0);
}

/// A library may print through the descriptor, or through a buffer that it flushes later.
TEST(StandardOutput, HoldsNothingThatALibraryPrints) {
  EXPECT_EQ(outputOf([] {
              std::printf("buffered before\n");
              checked(::write(STDOUT_FILENO, "at once\n", 8));
              writeStandardOutput("result\n");
              std::printf("buffered after\n");
              std::fflush(stdout);
            }),
            "result\n");
}

TEST(StandardOutput, IsInheritedOnlyByAProcessThatShall) {
  EXPECT_EQ(outputOf([] {
              const int kept = callersStandardOutput();
              require(kept > STDERR_FILENO && ::fcntl(kept, F_GETFD) == FD_CLOEXEC,
                      std::errc::file_exists, "");
              runProcess("/bin/echo", {"inherited"}, callersStandardOutput());
              runProcess("/bin/echo", {"apart"});
            }),
            "inherited\n");
}

}  // namespace
}  // namespace lumaret::tests
