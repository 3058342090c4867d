// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>
#include <utility>

#include "LumaretMacHelper/POSIX/FileDescriptor.hpp"
#include "LumaretMacHelper/POSIX/Process.hpp"
#include "LumaretMacHelper/POSIX/StandardStreams.hpp"
#include "LumaretMacHelper/PlatformFunctions.hpp"

namespace lumaret::tests {
namespace {

/// Runs an action in a child process whose standard output is this descriptor. Returns its status,
/// which is the error of a write that failed.
template <typename Action>
pid_t withStandardOutput(int descriptor, Action action) {
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

/// Runs an action in a child process. Returns its standard output and its status.
template <typename Action>
std::pair<std::string, int> outputOf(Action action) {
  std::array<int, 2> pipe{};
  if (::pipe2(pipe.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category());
  }
  const pid_t child = withStandardOutput(pipe[1], action);
  ::close(pipe[1]);
  const FileDescriptor readEnd(pipe[0]);
  std::string output;
  std::array<char, 4096> buffer{};
  for (ssize_t count = 0; (count = ::read(pipe[0], buffer.data(), buffer.size())) > 0;) {
    output.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return {output, statusOf(child)};
}

TEST(StandardOutput, IsWrittenWholeIntoAPipeThatDoesNotBlock) {
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC), 0);
  ASSERT_EQ(::fcntl(pipe[1], F_SETFL, O_NONBLOCK), 0);
  const std::string text(1'000'000, 'x');  // Much more than the pipe holds.
  const pid_t child = withStandardOutput(pipe[1], [&text] { writeStandardOutput(text); });
  ::close(pipe[1]);
  const FileDescriptor readEnd(pipe[0]);

  std::size_t received = 0;
  std::array<char, 4096> buffer{};
  while (const ssize_t count = ::read(readEnd.number(), buffer.data(), buffer.size())) {
    ASSERT_GT(count, 0);
    received += static_cast<std::size_t>(count);
  }
  EXPECT_EQ(received, text.size());
  EXPECT_EQ(statusOf(child), 0);
}

TEST(StandardOutput, CannotBeWrittenWhenItIsFull) {
  const FileDescriptor full(::open("/dev/full", O_WRONLY));
  EXPECT_EQ(statusOf(withStandardOutput(full.number(), [] { writeStandardOutput("x"); })), ENOSPC);
}

TEST(StandardOutput, CannotBeWrittenWhenItIsClosed) {
  EXPECT_EQ(statusOf(withStandardOutput(-1, [] { writeStandardOutput("x"); })), EBADF);
}

TEST(StandardOutput, GivesItsNumberToNoOtherFileWhenItIsClosed) {
  EXPECT_EQ(statusOf(withStandardOutput(-1,
                                        [] {
                                          const FileDescriptor file(::open("/dev/null", O_WRONLY));
                                          if (file.number() <= STDERR_FILENO) {
                                            throw std::system_error(EEXIST,
                                                                    std::generic_category());
                                          }
                                        })),
            0);
}

TEST(StandardOutput, CannotBeWrittenWithoutAReaderAndRaisesNoSignal) {
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC), 0);
  ::close(pipe[0]);
  EXPECT_EQ(statusOf(withStandardOutput(pipe[1], [] { writeStandardOutput("x"); })), EPIPE);
  ::close(pipe[1]);
}

/// A library may print through the descriptor, or through a buffer that it flushes later.
TEST(StandardOutput, HoldsNothingThatALibraryPrints) {
  const auto [output, status] = outputOf([] {
    std::printf("buffered before\n");
    EXPECT_EQ(::write(STDOUT_FILENO, "at once\n", 8), 8);
    writeStandardOutput("result\n");
    std::printf("buffered after\n");
    std::fflush(stdout);
  });
  EXPECT_EQ(output, "result\n");
  EXPECT_EQ(status, 0);
}

TEST(StandardOutput, IsInheritedByNoProcessThatALibraryStarts) {
  EXPECT_EQ(outputOf([] {
              const int kept = callersStandardOutput();
              if (kept <= STDERR_FILENO || ::fcntl(kept, F_GETFD) != FD_CLOEXEC) {
                throw std::system_error(EEXIST, std::generic_category());
              }
            }).second,
            0);
}

TEST(StandardOutput, IsThatOfAStartedProcessThatInheritsIt) {
  const auto [output, status] =
      outputOf([] { runProcess("/usr/bin/id", {"-u"}, callersStandardOutput()); });
  EXPECT_EQ(output, std::to_string(::getuid()) + "\n");
  EXPECT_EQ(status, 0);
  EXPECT_EQ(outputOf([] { runProcess("/usr/bin/id", {"-u"}); }).first, "");
}

}  // namespace
}  // namespace lumaret::tests
