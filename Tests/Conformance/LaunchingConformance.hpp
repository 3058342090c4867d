// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "LumaretMacHelper/ChromeLauncher.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"
#include "Tests/Support/Cpp/Messages.hpp"
#include "Tests/Support/Cpp/ShellCommands.hpp"
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
  LaunchingConformance() {
    std::string name = (std::filesystem::temp_directory_path() / "lumaret.XXXXXX").string();
    folder_ = ::mkdtemp(name.data());
  }
  ~LaunchingConformance() override { std::filesystem::remove_all(folder_); }

  [[nodiscard]] std::filesystem::path file(const std::string& name) const { return folder_ / name; }

  std::filesystem::path script(const std::string& commands) {
    const auto path = file("Google Chrome");
    std::ofstream(path) << "#!/bin/sh\ncd \"$(dirname \"$0\")\"\n" << commands << '\n';
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    return path;
  }

  [[nodiscard]] std::string written(const std::string& name = "log") const {
    std::ifstream stream(file(name));
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  /// Waits for the effect of a process that runs on its own.
  template <typename Condition>
  static void await(Condition condition) {
    for (int attempt = 0; attempt < 1000 && !condition(); ++attempt) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_TRUE(condition());
  }

  /// Runs the commands and waits for their end. Returns their status if they failed.
  std::optional<int> failure(const std::string& commands) {
    const auto error = thrownBy<ChromeProcessError>(
        [&] { environment_.run(script(commands), {}, /*waitUntilExit=*/true); });
    return error ? std::optional(error->status()) : std::nullopt;
  }

  Desktop desktop_;
  SystemChromeLaunchEnvironment environment_;

 private:
  std::filesystem::path folder_;
};

TYPED_TEST_SUITE_P(LaunchingConformance);

TYPED_TEST_P(LaunchingConformance, ChromeIsReportedAsRunningWhileItRuns) {
  EXPECT_FALSE(this->environment_.isApplicationRunning("com.google.Chrome"));
  this->desktop_.startChrome();
  EXPECT_TRUE(this->environment_.isApplicationRunning("com.google.Chrome"));
  EXPECT_FALSE(this->environment_.isApplicationRunning("com.example.Other"));
  this->desktop_.stopChrome();
  EXPECT_FALSE(this->environment_.isApplicationRunning("com.google.Chrome"));
}

TYPED_TEST_P(LaunchingConformance, OnlyAFileThatMayBeExecutedIsExecutable) {
  const auto path = this->script("");
  EXPECT_TRUE(this->environment_.isExecutableFile(path));
  std::filesystem::permissions(path, std::filesystem::perms::owner_read);
  EXPECT_FALSE(this->environment_.isExecutableFile(path));
  EXPECT_FALSE(this->environment_.isExecutableFile(this->file("missing")));
}

TYPED_TEST_P(LaunchingConformance, ArgumentsArriveUnchanged) {
  const auto path = this->script(R"(printf '<%s>' "$@" > log)");
  this->environment_.run(path, {"--new-window", "", "a b", "\"'$HOME`*", "\xc3\xa1"}, true);
  EXPECT_EQ(this->written(), "<--new-window><><a b><\"'$HOME`*><\xc3\xa1>");
}

TYPED_TEST_P(LaunchingConformance, AnAwaitedProcessHasEndedOnReturn) {
  EXPECT_EQ(this->failure("sleep 0.2; echo done > log"), std::nullopt);
  EXPECT_EQ(this->written(), "done\n");
}

TYPED_TEST_P(LaunchingConformance, AnAwaitedProcessThatFailsIsAnErrorWithItsStatus) {
  EXPECT_EQ(this->failure("exit 3"), 3);
  EXPECT_EQ(this->failure("exit 255"), 255);
}

TYPED_TEST_P(LaunchingConformance, AnAwaitedProcessThatASignalEndsIsAnErrorWithItsNumber) {
  EXPECT_EQ(this->failure("kill -TERM $$"), SIGTERM);
  EXPECT_EQ(this->failure("kill -KILL $$"), SIGKILL);
}

TYPED_TEST_P(LaunchingConformance, AFileThatCannotBeStartedIsAnError) {
  for (const bool waitUntilExit : {true, false}) {
    EXPECT_TRUE(thrownBy<std::system_error>(
        [&] { this->environment_.run(this->file("missing"), {}, waitUntilExit); }));
  }
}

TYPED_TEST_P(LaunchingConformance, AProcessThatIsNotAwaitedGoesOnByItself) {
  const auto path = this->script(awaitFile("go") + "echo done > log; exit 7");
  this->environment_.run(path, {}, /*waitUntilExit=*/false);
  EXPECT_EQ(this->written(), "");
  std::ofstream(this->file("go"));
  this->await([&] { return this->written() == "done\n"; });
}

TYPED_TEST_P(LaunchingConformance, AProcessThatIsNotAwaitedOutlivesWhatStartedIt) {
  const auto path = this->script(awaitFile("go") + "echo done > log");
  EXPECT_EXIT(
      {
        this->environment_.run(path, {}, /*waitUntilExit=*/false);
        std::_Exit(0);
      },
      testing::ExitedWithCode(0), "");
  std::ofstream(this->file("go"));
  this->await([&] { return this->written() == "done\n"; });
}

TYPED_TEST_P(LaunchingConformance, EnvironmentAndWorkingFolderAreInherited) {
  ::setenv("LUMARET_TEST", "inherited", 1);
  const auto path = this->script("");
  std::ofstream(path) << "#!/bin/sh\n{ echo $LUMARET_TEST; pwd; } > \"$1\"\n";
  this->environment_.run(path, {this->file("log").string()}, true);
  EXPECT_EQ(this->written(), "inherited\n" + std::filesystem::current_path().string() + "\n");
}

TYPED_TEST_P(LaunchingConformance, OpenFilesAreNotInherited) {
  const int open = ::open("/dev/null", O_RDONLY);
  ASSERT_EQ(::dup2(open, 47), 47);
  EXPECT_EQ(this->failure("test ! -e /dev/fd/47"), std::nullopt);
  ::close(47);
  ::close(open);
}

TYPED_TEST_P(LaunchingConformance, ARunningChromeReloadsItsPoliciesBeforeItOpensAWindow) {
  const auto path = this->script(R"(echo "$@" >> log)");
  const ChromeLauncher launcher(path, std::make_shared<SystemChromeLaunchEnvironment>());
  launcher.open();
  this->await([&] { return this->written() == "--new-window\n"; });
  this->desktop_.startChrome();
  launcher.open(parseURL("https://example.com/"));
  this->await([&] {
    return this->written() ==
           "--new-window\n--refresh-platform-policy\n--new-window https://example.com/\n";
  });
}

TYPED_TEST_P(LaunchingConformance, NoWindowIsOpenedAfterARefreshThatFailed) {
  const ChromeLauncher launcher(this->script(R"(echo "$@" >> log; exit 3)"),
                                std::make_shared<SystemChromeLaunchEnvironment>());
  this->desktop_.startChrome();
  EXPECT_EQ(
      selectorErrorOf([&] { launcher.open(); }),
      CertificateSelectorError::chromeLaunchFailed(messages::told(messages::unsuccessfulExit, 3)));
  EXPECT_EQ(this->written(), "--refresh-platform-policy\n");
}

REGISTER_TYPED_TEST_SUITE_P(
    LaunchingConformance, ChromeIsReportedAsRunningWhileItRuns,
    OnlyAFileThatMayBeExecutedIsExecutable, ArgumentsArriveUnchanged,
    AnAwaitedProcessHasEndedOnReturn, AnAwaitedProcessThatFailsIsAnErrorWithItsStatus,
    AnAwaitedProcessThatASignalEndsIsAnErrorWithItsNumber, AFileThatCannotBeStartedIsAnError,
    AProcessThatIsNotAwaitedGoesOnByItself, AProcessThatIsNotAwaitedOutlivesWhatStartedIt,
    EnvironmentAndWorkingFolderAreInherited, OpenFilesAreNotInherited,
    ARunningChromeReloadsItsPoliciesBeforeItOpensAWindow, NoWindowIsOpenedAfterARefreshThatFailed);

}  // namespace lumaret::tests::conformance
