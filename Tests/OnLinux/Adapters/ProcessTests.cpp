// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <iterator>
#include <sstream>
#include <system_error>
#include <thread>

#include "LumaretMacHelper/POSIX/Process.hpp"
#include "Tests/Support/Cpp/ShellCommands.hpp"
#include "Tests/Support/Cpp/TemporaryFolder.hpp"

namespace lumaret::tests {
namespace {

class Process : public ::testing::Test {
 protected:
  [[nodiscard]] std::filesystem::path script(const std::string& body, mode_t mode = 0755) const {
    const auto path = folder_ / "script";
    writeFile(path, "#!/bin/sh\n" + body + "\n");
    ::chmod(path.c_str(), mode);
    return path;
  }

  [[nodiscard]] std::string output() const { return readFile(folder_ / "output"); }

  [[nodiscard]] std::string awaitedOutput() const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (output().empty() && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return output();
  }

  static std::error_code startError(const std::filesystem::path& executable) {
    try {
      startProcess(executable, {});
    } catch (const std::system_error& error) {
      EXPECT_THAT(error.what(), ::testing::StartsWith(executable.string() + ": "));
      return error.code();
    }
    return {};
  }

  TemporaryFolder folder_;
};

TEST_F(Process, HandsEachArgumentOverUnchanged) {
  const auto executable = script(R"(printf '<%s>' "$@" >"${0%/*}/output")");
  runProcess(executable, {"--new-window", "", "a b", "$HOME `x` \"'\\", "\xff\n"});
  EXPECT_EQ(output(), "<--new-window><><a b><$HOME `x` \"'\\><\xff\n>");
}

TEST_F(Process, AwaitsItsEnd) {
  runProcess(script("sleep 0.2; echo done >\"${0%/*}/output\""), {});
  EXPECT_EQ(output(), "done\n");
}

/// The wait has no time limit. This stands for any that somebody might set.
TEST_F(Process, AwaitsItsEndHoweverLate) {
  EXPECT_EQ(runProcess(script("sleep 6; echo done >\"${0%/*}/output\"; exit 3"), {}), 3);
  EXPECT_EQ(output(), "done\n");
}

TEST_F(Process, DoesNotAwaitItsEndUnlessAsked) {
  // The script goes on only after this test creates the file.
  const auto executable = script(awaitFile("${0%/*}/go") + "echo done >\"${0%/*}/output\"");
  startProcess(executable, {});
  EXPECT_EQ(output(), "");
  writeFile(folder_ / "go", "");
  EXPECT_EQ(awaitedOutput(), "done\n");
}

TEST_F(Process, MayFailUnnoticedUnlessAwaited) {
  EXPECT_NO_THROW(startProcess(script("echo done >\"${0%/*}/output\"; exit 3"), {}));
  EXPECT_EQ(awaitedOutput(), "done\n");
}

TEST_F(Process, ReportsItsExitStatus) {
  EXPECT_EQ(runProcess(script("exit 3"), {}), 3);
  EXPECT_EQ(runProcess(script("exit 255"), {}), 255);
  EXPECT_EQ(runProcess(script("exit 0"), {}), 0);
}

TEST_F(Process, ReportsTheSignalThatEndedIt) {
  EXPECT_EQ(runProcess(script("kill -KILL $$"), {}), SIGKILL);
}

TEST_F(Process, ReportsItsStatusEvenIfChildrenWereIgnored) {
  std::signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(runProcess(script("exit 3"), {}), 3);
}

TEST_F(Process, CannotStartAFileThatIsMissingOrNotExecutable) {
  EXPECT_EQ(startError("/no/such/file"), std::errc::no_such_file_or_directory);
  EXPECT_EQ(startError(script("", 0644)), std::errc::permission_denied);
  writeFile(folder_ / "empty", "");
  ::chmod((folder_ / "empty").c_str(), 0755);
  EXPECT_EQ(startError(folder_ / "empty"), std::errc::executable_format_error);
}

TEST_F(Process, InheritsNoOpenFileButTheStandardStreams) {
  const int leaked = ::open("/dev/null", O_RDONLY);  // Without close-on-exec, as by a caller.
  ASSERT_GT(leaked, STDERR_FILENO);
  const auto executable = script("[ -e /proc/self/fd/" + std::to_string(leaked) +
                                 " ] && echo leaked >\"${0%/*}/output\"; "
                                 "[ -e /proc/self/fd/2 ] && echo kept >>\"${0%/*}/output\"");
  runProcess(executable, {});
  EXPECT_EQ(output(), "kept\n");
  EXPECT_EQ(::fcntl(leaked, F_GETFD), 0) << "This process does not change its own descriptor.";
  ::close(leaked);
}

TEST_F(Process, InheritsNoOpenFileAboveTheLimitEither) {
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  const int leaked = ::fcntl(STDERR_FILENO, F_DUPFD, 500);
  ASSERT_GE(leaked, 500);
  const rlimit lower = {100, limit.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &lower), 0);
  const auto executable =
      script("ls /proc/self/fd >\"${0%/*}/listed\"; mv \"${0%/*}/listed\" \"${0%/*}/output\"");
  runProcess(executable, {});
  ::setrlimit(RLIMIT_NOFILE, &limit);
  ::close(leaked);
  EXPECT_THAT(output(), ::testing::Not(::testing::HasSubstr("500")));
}

TEST_F(Process, MayPrintToStandardErrorInPlaceOfStandardOutput) {
  const auto executable = script("echo printed; echo reported >&2");
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  runProcess(executable, {}, STDERR_FILENO);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "printed\nreported\n");

  ::testing::internal::CaptureStdout();
  runProcess(executable, {});
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "printed\n");
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
  const auto expectNone = [](const std::string& status) {
    // The C library lets every process that it spawns ignore its two internal signals.
    EXPECT_THAT(status, ::testing::MatchesRegex("SigBlk:\t0000000000000000\n"
                                                "SigIgn:\t0000000[01]80000000\n|"
                                                "SigBlk:\t0000000000000000\n"
                                                "SigIgn:\t0000000000000000\n"));
  };
  // No shell reports them, because a shell may unblock signals itself.
  ::testing::internal::CaptureStdout();
  runProcess("/bin/grep", {"-E", "^Sig(Ign|Blk)", "/proc/self/status"});
  expectNone(::testing::internal::GetCapturedStdout());
  startProcess("/bin/cp", {"/proc/self/status", (folder_ / "output").string()});
  const std::string status = awaitedOutput();
  expectNone(status.substr(status.find("SigBlk"), status.find("SigCgt") - status.find("SigBlk")));
  ::sigprocmask(SIG_SETMASK, &before, nullptr);
  for (const int signal : signals) {
    std::signal(signal, SIG_DFL);
  }
}

TEST_F(Process, HasAGroupOfItsOwnUnlessAwaited) {
  const auto executable =
      script("ps -o pgid= -p $$ >\"${0%/*}/group\"; mv \"${0%/*}/group\" \"${0%/*}/output\"");
  runProcess(executable, {});
  EXPECT_EQ(std::stoi(output()), ::getpgrp());
  std::filesystem::remove(folder_ / "output");
  startProcess(executable, {});
  EXPECT_NE(std::stoi(awaitedOutput()), ::getpgrp());
}

TEST_F(Process, RunUnseenReadsAndPrintsNothing) {
  const auto executable =
      script("cat >\"${0%/*}/output\"; echo printed; echo reported >&2; exit 3");
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(runUnseen(executable, {}), 3);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(output(), "");
}

TEST_F(Process, RunUnseenHasNoTerminalAndNoOtherFile) {
  const auto executable = script(
      "ls /proc/self/fd >\"${0%/*}/listed\"; ps -o sid= -p $$ >>\"${0%/*}/listed\";"
      "mv \"${0%/*}/listed\" \"${0%/*}/output\"");
  const int leaked = ::open("/dev/null", O_RDONLY);
  runUnseen(executable, {});
  ::close(leaked);
  std::istringstream listed(output());
  std::vector<int> numbers{std::istream_iterator<int>(listed), {}};
  ASSERT_EQ(numbers.size(), 5U) << "The three streams, the listed folder, and the session";
  EXPECT_NE(numbers.back(), ::getsid(0));
}

TEST_F(Process, WhatMayBeExecutedOrSearchedIsExecutable) {
  EXPECT_TRUE(isExecutableFile(script("")));
  EXPECT_FALSE(isExecutableFile(script("", 0644)));
  EXPECT_TRUE(isExecutableFile(folder_.path())) << "This folder may be searched.";
  EXPECT_FALSE(isExecutableFile("/no/such/file"));
  EXPECT_FALSE(isExecutableFile(""));
  EXPECT_TRUE(isExecutableFile(script("", 0755)));
  std::filesystem::create_symlink("script", folder_ / "link");
  EXPECT_TRUE(isExecutableFile(folder_ / "link"));
  std::filesystem::create_symlink("nothing", folder_ / "dangling");
  EXPECT_FALSE(isExecutableFile(folder_ / "dangling"));
}

}  // namespace
}  // namespace lumaret::tests
