#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <system_error>
#include <thread>

#include "ChromeLauncher.hpp"
#include "Process.hpp"
#include "TemporaryFolder.hpp"

namespace lumaret {
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

  static std::int32_t awaitedStatus(const std::filesystem::path& executable) {
    try {
      runProcess(executable, {}, true);
    } catch (const ChromeProcessError& error) {
      return error.status();
    }
    return 0;
  }

  static std::error_code startError(const std::filesystem::path& executable) {
    try {
      runProcess(executable, {}, false);
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
  runProcess(executable, {"--new-window", "", "a b", "$HOME `x` \"'\\", "\xff\n"}, true);
  EXPECT_EQ(output(), "<--new-window><><a b><$HOME `x` \"'\\><\xff\n>");
}

TEST_F(Process, AwaitsItsEnd) {
  runProcess(script("sleep 0.2; echo done >\"${0%/*}/output\""), {}, true);
  EXPECT_EQ(output(), "done\n");
}

TEST_F(Process, DoesNotAwaitItsEndUnlessAsked) {
  // The script goes on only when this test has gone on.
  const auto executable =
      script("while [ ! -e \"${0%/*}/go\" ]; do sleep 0.01; done; echo done >\"${0%/*}/output\"");
  runProcess(executable, {}, false);
  EXPECT_EQ(output(), "");
  writeFile(folder_ / "go", "");
  EXPECT_EQ(awaitedOutput(), "done\n");
}

TEST_F(Process, NobodyLooksAtTheStatusOfOneThatIsNotAwaited) {
  EXPECT_NO_THROW(runProcess(script("echo done >\"${0%/*}/output\"; exit 3"), {}, false));
  EXPECT_EQ(awaitedOutput(), "done\n");
}

TEST_F(Process, ReportsAnotherStatusThanZero) {
  EXPECT_EQ(awaitedStatus(script("exit 3")), 3);
  EXPECT_EQ(awaitedStatus(script("exit 255")), 255);
  EXPECT_EQ(awaitedStatus(script("exit 0")), 0);
}

TEST_F(Process, ReportsTheSignalThatEndedIt) {
  EXPECT_EQ(awaitedStatus(script("kill -KILL $$")), SIGKILL);
}

TEST_F(Process, ReportsTheStatusToACallerThatIgnoresItsChildren) {
  std::signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(awaitedStatus(script("exit 3")), 3);
}

TEST_F(Process, CannotStartWhatIsNotThereOrNotExecutable) {
  EXPECT_EQ(startError("/no/such/file"), std::errc::no_such_file_or_directory);
  EXPECT_EQ(startError(script("", 0644)), std::errc::permission_denied);
  writeFile(folder_ / "empty", "");
  ::chmod((folder_ / "empty").c_str(), 0755);
  EXPECT_EQ(startError(folder_ / "empty"), std::errc::executable_format_error);
}

TEST_F(Process, InheritsNoOpenFileButTheStandardStreams) {
  const int leaked = ::open("/dev/null", O_RDONLY);  // Without close-on-exec, as a caller might.
  ASSERT_GT(leaked, STDERR_FILENO);
  const auto executable = script("[ -e /proc/self/fd/" + std::to_string(leaked) +
                                 " ] && echo leaked >\"${0%/*}/output\"; "
                                 "[ -e /proc/self/fd/2 ] && echo kept >>\"${0%/*}/output\"");
  runProcess(executable, {}, true);
  EXPECT_EQ(output(), "kept\n");
}

TEST_F(Process, WhatItPrintsMayGoWhereItsErrorsGo) {
  const auto executable = script("echo printed; echo reported >&2");
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  runProcess(executable, {}, true, StandardOutput::toStandardError);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "printed\nreported\n");

  ::testing::internal::CaptureStdout();
  runProcess(executable, {}, true);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "printed\n");
}

TEST_F(Process, InheritsNoIgnoredBrokenPipe) {
  std::signal(SIGPIPE, SIG_IGN);
  // The shell's own child tells whether a pipe without a reader ends it.
  runProcess(script("grep SigIgn /proc/self/status >\"${0%/*}/output\""), {}, true);
  const auto ignored = std::stoull(output().substr(output().find('\t')), nullptr, 16);
  EXPECT_EQ(ignored & (1ULL << (SIGPIPE - 1)), 0U);
}

TEST_F(Process, HasAGroupOfItsOwnUnlessAwaited) {
  const auto executable =
      script("ps -o pgid= -p $$ >\"${0%/*}/group\"; mv \"${0%/*}/group\" \"${0%/*}/output\"");
  runProcess(executable, {}, true);
  EXPECT_EQ(std::stoi(output()), ::getpgrp());
  std::filesystem::remove(folder_ / "output");
  runProcess(executable, {}, false);
  EXPECT_NE(std::stoi(awaitedOutput()), ::getpgrp());
}

TEST_F(Process, OnlyARegularFileThatMayBeExecutedIsExecutable) {
  EXPECT_TRUE(isExecutableFile(script("")));
  EXPECT_FALSE(isExecutableFile(script("", 0644)));
  EXPECT_FALSE(isExecutableFile(folder_.path()));
  EXPECT_FALSE(isExecutableFile("/no/such/file"));
  EXPECT_FALSE(isExecutableFile(""));
  EXPECT_TRUE(isExecutableFile(script("", 0755)));
  std::filesystem::create_symlink("script", folder_ / "link");
  EXPECT_TRUE(isExecutableFile(folder_ / "link"));
  std::filesystem::create_symlink("nothing", folder_ / "dangling");
  EXPECT_FALSE(isExecutableFile(folder_ / "dangling"));
}

}  // namespace
}  // namespace lumaret
