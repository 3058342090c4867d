// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "LumaretMacHelper/ChromeLauncher.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"
#include "Tests/Support/Cpp/Contracts.hpp"
#include "Tests/Support/Cpp/TemporaryFolder.hpp"

namespace lumaret::tests::conformance {

/// How the platform starts Chrome. A script replaces Chrome and records how it was started.
///
/// A `Desktop` stands for the session of the current user. At first Chrome does not run:
///     void startChrome()
///         From now on the platform must find that Chrome runs.
///     void stopChrome()
///         From now on the platform must find that Chrome does not run.
template <typename Desktop>
class LaunchingConformance : public testing::Test {
 protected:
  std::filesystem::path script(const std::string& commands) {
    const auto path = folder_ / "Google Chrome";
    writeFile(path, "#!/bin/sh\nfolder=${0%/*}\n" + commands + '\n');
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    return path;
  }

  std::string log() const { return readFile(folder_ / "log"); }

  void awaitLog(const std::string& expected) const {
    for (int attempt = 0; attempt < 1000 && log() != expected; ++attempt) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(log(), expected);
  }

  Desktop desktop_;
  SystemChromeLaunchEnvironment environment_;
  TemporaryFolder folder_;
};

TYPED_TEST_SUITE_P(LaunchingConformance);

TYPED_TEST_P(LaunchingConformance, FindsChromeWhileItRuns) {
  EXPECT_FALSE(this->environment_.isApplicationRunning("com.google.Chrome"));
  this->desktop_.startChrome();
  EXPECT_TRUE(this->environment_.isApplicationRunning("com.google.Chrome"));
  EXPECT_FALSE(this->environment_.isApplicationRunning("com.example.Other"));
  this->desktop_.stopChrome();
  EXPECT_FALSE(this->environment_.isApplicationRunning("com.google.Chrome"));
}

TYPED_TEST_P(LaunchingConformance, FindsExecutableFiles) {
  const auto path = this->script("");
  const auto link = this->folder_ / "link";
  std::filesystem::create_symlink(path, link);
  EXPECT_TRUE(this->environment_.isExecutableFile(path));
  EXPECT_TRUE(this->environment_.isExecutableFile(link));
  std::filesystem::permissions(path, std::filesystem::perms::owner_read);
  EXPECT_FALSE(this->environment_.isExecutableFile(path));
  std::filesystem::remove(path);
  EXPECT_FALSE(this->environment_.isExecutableFile(link));
  EXPECT_FALSE(this->environment_.isExecutableFile(""));
}

TYPED_TEST_P(LaunchingConformance, ReportsFailures) {
  this->environment_.run(this->script("sleep 0.2; echo done >$folder/log"), {}, true);
  EXPECT_EQ(this->log(), "done\n");
  for (const auto& [commands, status] :
       {std::pair("exit 3", 3), {"exit 255", 255}, {"kill -KILL $$", SIGKILL}}) {
    const auto path = this->script(commands);
    const auto error =
        thrownBy<ChromeProcessError>([&] { this->environment_.run(path, {}, true); });
    EXPECT_EQ(error, ChromeProcessError::unsuccessfulExit(status)) << commands;
  }
  for (const bool waitUntilExit : {true, false}) {
    EXPECT_THROW(this->environment_.run(this->folder_ / "missing", {}, waitUntilExit),
                 std::system_error);
  }
}

TYPED_TEST_P(LaunchingConformance, LetsAProcessOutliveItsStarter) {
  const auto path = this->script(
      "for attempt in $(seq 1000); do [ -e $folder/go ] && break; sleep 0.01; done\n"
      "echo done >$folder/log; exit 7");
  EXPECT_EXIT(
      {
        this->environment_.run(path, {}, /*waitUntilExit=*/false);
        std::_Exit(0);
      },
      testing::ExitedWithCode(0), "");
  EXPECT_EQ(this->log(), "");
  writeFile(this->folder_ / "go", "");
  this->awaitLog("done\n");
}

TYPED_TEST_P(LaunchingConformance, PassesArgumentsEnvironmentAndFolderButNoOpenFiles) {
  ::setenv("LUMARET_TEST", "inherited", 1);
  ASSERT_EQ(::dup2(STDIN_FILENO, 47), 47);
  const auto path = this->script(
      R"(exec >$folder/log; printf '<%s>' "$@"; echo; echo $LUMARET_TEST; pwd; ls /dev/fd)");
  this->environment_.run(path, {"--new-window", "", "a b", "\"'\\$HOME`*\n", "\u00e1\xff"}, true);
  ::close(47);
  EXPECT_THAT(this->log(),
              testing::StartsWith("<--new-window><><a b><\"'\\$HOME`*\n><\u00e1\xff>\ninherited\n" +
                                  std::filesystem::current_path().string() + "\n"));
  EXPECT_THAT(this->log(), testing::Not(testing::HasSubstr("\n47\n")));
}

TYPED_TEST_P(LaunchingConformance, PassesStandardInput) {
  const int before = ::dup(STDIN_FILENO);
  for (const bool waitUntilExit : {true, false}) {
    const std::string text = waitUntilExit ? "awaited\n" : "not awaited\n";
    writeFile(this->folder_ / "input", text);
    const int input = ::open((this->folder_ / "input").c_str(), O_RDONLY);
    ::dup2(input, STDIN_FILENO);
    ::close(input);
    this->environment_.run(this->script("cat >$folder/log"), {}, waitUntilExit);
    ::dup2(before, STDIN_FILENO);
    this->awaitLog(text);
  }
  ::close(before);
}

REGISTER_TYPED_TEST_SUITE_P(LaunchingConformance, FindsChromeWhileItRuns, FindsExecutableFiles,
                            ReportsFailures, LetsAProcessOutliveItsStarter,
                            PassesArgumentsEnvironmentAndFolderButNoOpenFiles, PassesStandardInput);

}  // namespace lumaret::tests::conformance
