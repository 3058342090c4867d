// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <system_error>
#include <thread>

#include "LumaretMacHelper/POSIX/FileDescriptor.hpp"
#include "LumaretMacHelper/POSIX/Process.hpp"
#include "LumaretMacHelper/POSIX/StandardStreams.hpp"
#include "LumaretMacHelper/POSIX/SystemCalls.hpp"
#include "LumaretMacHelper/PlatformFunctions.hpp"
#include "Tests/Support/Cpp/Contracts.hpp"
#include "Tests/Support/Cpp/TemporaryFolder.hpp"

namespace lumaret::tests {
namespace {

// The conformance suite shows the rest.
class Process : public ::testing::Test {
 protected:
  [[nodiscard]] std::filesystem::path script(const std::string& commands) const {
    const auto path = folder_ / "script";
    writeFile(path, commands);
    ::chmod(path.c_str(), 0755);
    return path;
  }

  TemporaryFolder folder_;
};

TEST_F(Process, NamesAFileThatCannotStart) {
  const auto expectError = [](const std::filesystem::path& executable, std::errc expected) {
    const auto error = thrownBy<std::system_error>([&] { startProcess(executable, {}); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), expected);
    EXPECT_THAT(error->what(), ::testing::StartsWith(executable.string() + ": "));
  };
  expectError("/no/such/file", std::errc::no_such_file_or_directory);
  expectError(folder_.path(), std::errc::permission_denied);
  expectError(script(""), std::errc::executable_format_error);
}

TEST_F(Process, ReportsItsStatusWhereChildrenAreIgnored) {
  std::signal(SIGCHLD, SIG_IGN);
  // The wait has no time limit. This stands for any that somebody might set.
  EXPECT_EQ(runProcess(script("#!/bin/sh\nsleep 6; exit 3"), {}), 3);
}

TEST_F(Process, InheritsNoOpenFileAboveTheLimitEither) {
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  const int leaked = ::fcntl(STDERR_FILENO, F_DUPFD, 500);
  ASSERT_GE(leaked, 500);
  const rlimit lower = {100, limit.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &lower), 0);
  ::testing::internal::CaptureStdout();
  runProcess("/bin/ls", {"/proc/self/fd"});
  ::setrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_EQ(::fcntl(leaked, F_GETFD), 0) << "This process does not change its own descriptor.";
  ::close(leaked);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "0\n1\n2\n3\n");  // 3 is the listed folder.
}

TEST_F(Process, BeginsWithEverySignalAtItsDefaultAndNoneBlocked) {
  // These stand for all signals that a caller may have ignored or blocked.
  const auto signals = {SIGPIPE, SIGHUP, SIGINT, SIGTERM, SIGCHLD, SIGUSR1, SIGRTMIN + 1};
  sigset_t blocked;
  ::sigemptyset(&blocked);
  for (const int signal : signals) {
    std::signal(signal, SIG_IGN);
    ::sigaddset(&blocked, signal);
  }
  sigset_t before;
  ::sigprocmask(SIG_BLOCK, &blocked, &before);
  // No shell reports them, because a shell may unblock signals itself.
  ::testing::internal::CaptureStdout();
  runProcess("/bin/grep", {"-E", "^Sig(Ign|Blk)", "/proc/self/status"});
  ::sigprocmask(SIG_SETMASK, &before, nullptr);
  for (const int signal : signals) {
    std::signal(signal, SIG_DFL);
  }
  // The C library lets every process that it spawns ignore its two internal signals.
  EXPECT_THAT(::testing::internal::GetCapturedStdout(),
              ::testing::MatchesRegex("SigBlk:\t0000000000000000\n"
                                      "SigIgn:\t0000000([01]8|00)0000000\n"));
}

TEST_F(Process, HasAGroupOfItsOwnUnlessAwaited) {
  const auto executable = script("#!/bin/sh\ncut -d' ' -f5 /proc/$$/stat >$0.1; mv $0.1 $0.group");
  const auto output = folder_ / "script.group";
  runProcess(executable, {});
  EXPECT_EQ(std::stoi(readFile(output)), ::getpgrp());
  std::filesystem::remove(output);
  startProcess(executable, {});
  for (int attempt = 0; attempt < 2000 && !std::filesystem::exists(output); ++attempt) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_NE(std::stoi(readFile(output)), ::getpgrp());
}

TEST_F(Process, RunsUnseenWithoutStreamsTerminalOrOtherFiles) {
  const auto executable = script(
      "#!/bin/sh\n(cat; ls /proc/self/fd; cut -d' ' -f6 /proc/$$/stat) >$0.output\n"
      "echo printed; echo reported >&2; exit 3");
  const int leaked = ::open("/dev/null", O_RDONLY);  // Without close-on-exec, as by a caller.
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(runUnseen(executable, {}), 3);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  ::close(leaked);
  const std::string output = readFile(folder_ / "script.output");
  EXPECT_THAT(output, ::testing::StartsWith("0\n1\n2\n3\n"));
  EXPECT_NE(std::stoi(output.substr(8)), ::getsid(0));
}

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
