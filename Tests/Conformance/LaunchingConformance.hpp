// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
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
#include "Tests/Support/Cpp/ShellCommands.hpp"
#include "Tests/Support/Cpp/TemporaryFolder.hpp"
#include "Tests/Support/Cpp/ThrownError.hpp"

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
    writeFile(path, "#!/bin/sh\ncd \"$(dirname \"$0\")\"\n" + commands + '\n');
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    return path;
  }

  [[nodiscard]] std::string log() const { return readFile(folder_ / "log"); }

  /// Runs the commands and waits for their end.
  std::optional<ChromeProcessError> failure(const std::string& commands) {
    return thrownBy<ChromeProcessError>(
        [&] { environment_.run(script(commands), {}, /*waitUntilExit=*/true); });
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

TYPED_TEST_P(LaunchingConformance, FindsOnlyExecutableFiles) {
  const auto path = this->script("");
  EXPECT_TRUE(this->environment_.isExecutableFile(path));
  std::filesystem::permissions(path, std::filesystem::perms::owner_read);
  EXPECT_FALSE(this->environment_.isExecutableFile(path));
  EXPECT_FALSE(this->environment_.isExecutableFile(this->folder_ / "missing"));
}

TYPED_TEST_P(LaunchingConformance, AwaitsTheEndAndItsStatus) {
  EXPECT_EQ(this->failure("sleep 0.2; echo done > log"), std::nullopt);
  EXPECT_EQ(this->log(), "done\n");
  for (const auto& [commands, status] : {std::pair("exit 3", 3),
                                         {"exit 255", 255},
                                         {"kill -TERM $$", SIGTERM},
                                         {"kill -KILL $$", SIGKILL}}) {
    EXPECT_EQ(this->failure(commands), ChromeProcessError::unsuccessfulExit(status)) << commands;
  }
}

TYPED_TEST_P(LaunchingConformance, ReportsAFileThatCannotBeStarted) {
  for (const bool waitUntilExit : {true, false}) {
    EXPECT_TRUE(thrownBy<std::system_error>(
        [&] { this->environment_.run(this->folder_ / "missing", {}, waitUntilExit); }));
  }
}

TYPED_TEST_P(LaunchingConformance, LetsAProcessOutliveWhatStartedIt) {
  const auto path = this->script(awaitFile("go") + "echo done > log; exit 7");
  EXPECT_EXIT(
      {
        this->environment_.run(path, {}, /*waitUntilExit=*/false);
        std::_Exit(0);
      },
      testing::ExitedWithCode(0), "");
  EXPECT_EQ(this->log(), "");
  writeFile(this->folder_ / "go", "");
  for (int attempt = 0; attempt < 1000 && this->log().empty(); ++attempt) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_EQ(this->log(), "done\n");
}

TYPED_TEST_P(LaunchingConformance, PassesArgumentsEnvironmentAndFolderButNoOpenFiles) {
  ::setenv("LUMARET_TEST", "inherited", 1);
  ASSERT_EQ(::dup2(STDIN_FILENO, 47), 47);
  const auto path = this->script("");
  writeFile(path, R"(#!/bin/sh
exec > "$(dirname "$0")/log"; printf '<%s>' "$@"; echo; echo $LUMARET_TEST; pwd; ls /dev/fd)");
  this->environment_.run(path, {"--new-window", "", "a b", "\"'$HOME`*", "\u00e1"}, true);
  ::close(47);
  EXPECT_THAT(this->log(),
              testing::StartsWith("<--new-window><><a b><\"'$HOME`*><\u00e1>\ninherited\n" +
                                  std::filesystem::current_path().string() + "\n"));
  EXPECT_THAT(this->log(), testing::Not(testing::HasSubstr("\n47\n")));
}

REGISTER_TYPED_TEST_SUITE_P(LaunchingConformance, FindsChromeWhileItRuns, FindsOnlyExecutableFiles,
                            AwaitsTheEndAndItsStatus, ReportsAFileThatCannotBeStarted,
                            LetsAProcessOutliveWhatStartedIt,
                            PassesArgumentsEnvironmentAndFolderButNoOpenFiles);

}  // namespace lumaret::tests::conformance
