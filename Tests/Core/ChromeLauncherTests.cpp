// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "LumaretMacHelper/ChromeLauncher.hpp"
#include "Tests/Core/CallLog.hpp"
#include "Tests/Support/Cpp/Messages.hpp"
#include "Tests/Support/Cpp/ThrownError.hpp"

namespace lumaret::tests {
namespace {

using testing::ElementsAre;
using Error = CertificateSelectorError;

const std::string executable = "/opt/Chrome Example/chrome";

/// Logs every call before its hook runs.
class FakeEnvironment final : public ChromeLaunchEnvironment {
 public:
  [[nodiscard]] bool isExecutableFile(const std::filesystem::path& path) const override {
    log_.push_back("isExecutableFile " + path.string());
    return installed;
  }

  [[nodiscard]] bool isApplicationRunning(const std::string& bundleIdentifier) const override {
    log_.push_back("isApplicationRunning " + bundleIdentifier);
    if (onRunningTest) {
      onRunningTest();
    }
    return running;
  }

  void run(const std::filesystem::path& executableURL, const std::vector<std::string>& arguments,
           bool waitUntilExit) const override {
    log_.push_back((waitUntilExit ? "run and await " : "run ") + executableURL.string() + " " +
                   listed(arguments));
    if (const auto& hook = waitUntilExit ? onRefresh : onOpen) {
      hook();
    }
  }

  [[nodiscard]] const CallLog& log() const { return log_; }

  bool installed = true;
  bool running = false;
  std::function<void()> onRunningTest;
  std::function<void()> onRefresh;
  std::function<void()> onOpen;

 private:
  mutable CallLog log_;
};

const std::string installedTest = "isExecutableFile " + executable;
const std::string runningTest = "isApplicationRunning com.google.Chrome";
const std::string refresh = "run and await " + executable + " [--refresh-platform-policy]";
const std::string openWindow = "run " + executable + " [--new-window]";

std::string openWindowAt(const std::string& address) {
  return "run " + executable + " [--new-window, " + address + "]";
}

class Launcher : public testing::Test {
 protected:
  std::optional<Error> errorOfOpening(const std::optional<URL>& destination = std::nullopt) {
    return selectorErrorOf([&] { launcher.open(destination); });
  }

  std::shared_ptr<FakeEnvironment> environment = std::make_shared<FakeEnvironment>();
  ChromeLauncher launcher{executable, environment};
};

TEST_F(Launcher, ChromeIsInstalledWhenItsExecutableIs) {
  EXPECT_TRUE(launcher.isChromeInstalled());
  environment->installed = false;
  EXPECT_FALSE(launcher.isChromeInstalled());
  EXPECT_THAT(environment->log(), ElementsAre(installedTest, installedTest));
}

TEST_F(Launcher, WithoutAnExecutableNothingElseIsAskedOrStarted) {
  environment->installed = false;
  environment->running = true;
  EXPECT_EQ(errorOfOpening(URL{"https://a.example", "https"}), Error::chromeNotInstalled());
  EXPECT_THAT(environment->log(), ElementsAre(installedTest));
}

TEST_F(Launcher, WithoutADestinationAChromeThatIsNotRunningIsStartedWithOneWindow) {
  launcher.open(std::nullopt);
  EXPECT_THAT(environment->log(), ElementsAre(installedTest, runningTest, openWindow));
}

TEST_F(Launcher, WithADestinationAChromeThatIsNotRunningIsStartedWithOneWindowThere) {
  launcher.open(URL{"http://a.example/", "http"});
  EXPECT_THAT(environment->log(),
              ElementsAre(installedTest, runningTest, openWindowAt("http://a.example/")));
}

TEST_F(Launcher, ARunningChromeIsRefreshedAndAwaitedBeforeTheWindow) {
  environment->running = true;
  launcher.open(std::nullopt);
  EXPECT_THAT(environment->log(), ElementsAre(installedTest, runningTest, refresh, openWindow));
}

TEST_F(Launcher, ARunningChromeIsRefreshedAndAwaitedBeforeTheWindowAtTheDestination) {
  environment->running = true;
  launcher.open(URL{"https://a.example/?q=1#top", "https"});
  EXPECT_THAT(environment->log(), ElementsAre(installedTest, runningTest, refresh,
                                              openWindowAt("https://a.example/?q=1#top")));
}

TEST_F(Launcher, TheDestinationMayBeLeftOut) {
  environment->running = true;
  launcher.open();
  EXPECT_THAT(environment->log(), ElementsAre(installedTest, runningTest, refresh, openWindow));
}

TEST_F(Launcher, AnUpperCaseSchemeIsAcceptedAndTheAddressIsPassedUnchanged) {
  launcher.open(URL{"HTTPS://A.Example/Ä b", "HTTPS"});
  EXPECT_EQ(environment->log().back(), openWindowAt("HTTPS://A.Example/Ä b"));
  launcher.open(URL{"hTTp://A.Example", "hTTp"});
  EXPECT_EQ(environment->log().back(), openWindowAt("hTTp://A.Example"));
}

TEST_F(Launcher, RefusesAnyOtherSchemeAndStartsNothing) {
  for (const char* scheme : {"ftp", "file", "javascript", "httpss", "xhttp", "chrome", ""}) {
    const auto callsBefore = environment->log().size();
    EXPECT_EQ(errorOfOpening(URL{std::string(scheme) + ":a", scheme}),
              Error::chromeLaunchFailed(messages::unsupportedScheme))
        << scheme;
    EXPECT_EQ(environment->log().size(), callsBefore + 2);
    EXPECT_EQ(environment->log().back(), runningTest);
  }
}

TEST_F(Launcher, RefusesARelativeAddressAndStartsNothing) {
  EXPECT_EQ(errorOfOpening(URL{"https/a.example", std::nullopt}),
            Error::chromeLaunchFailed(messages::unsupportedScheme));
  EXPECT_THAT(environment->log(), ElementsAre(installedTest, runningTest));
}

TEST_F(Launcher, RefusesAnAddressOnlyAfterTheRefreshOfARunningChrome) {
  environment->running = true;
  EXPECT_EQ(errorOfOpening(URL{"ftp://a.example", "ftp"}),
            Error::chromeLaunchFailed(messages::unsupportedScheme));
  EXPECT_THAT(environment->log(), ElementsAre(installedTest, runningTest, refresh));
}

TEST_F(Launcher, AFailedRefreshIsReportedInsteadOfARefusedAddress) {
  environment->running = true;
  environment->onRefresh = [] { throw ChromeProcessError::unsuccessfulExit(1); };
  EXPECT_EQ(errorOfOpening(URL{"ftp://a.example", "ftp"}),
            Error::chromeLaunchFailed(messages::told(messages::unsuccessfulExit, 1)));
}

TEST_F(Launcher, ARefreshThatExitsUnsuccessfullyOpensNoWindow) {
  environment->running = true;
  environment->onRefresh = [] { throw ChromeProcessError::unsuccessfulExit(3); };
  EXPECT_EQ(errorOfOpening(),
            Error::chromeLaunchFailed(messages::told(messages::unsuccessfulExit, 3)));
  EXPECT_THAT(environment->log(), ElementsAre(installedTest, runningTest, refresh));
}

TEST_F(Launcher, AnythingElseThatIsThrownIsMappedLikeAnException) {
  environment->running = true;
  environment->onRefresh = [] { throw 7; };
  EXPECT_EQ(errorOfOpening(), Error::chromeLaunchFailed("Unknown error."));
}

TEST_F(Launcher, AnyOtherFailureOfTheRefreshCarriesItsText) {
  environment->running = true;
  const std::system_error noMemory(std::make_error_code(std::errc::not_enough_memory), "fork");
  environment->onRefresh = [&] { throw noMemory; };
  EXPECT_EQ(errorOfOpening(), Error::chromeLaunchFailed(noMemory.what()));
  environment->onRefresh = [] { throw std::logic_error("no text"); };
  EXPECT_EQ(errorOfOpening(), Error::chromeLaunchFailed("no text"));
  environment->onRefresh = [] { throw std::bad_alloc(); };
  EXPECT_EQ(errorOfOpening(), Error::chromeLaunchFailed(std::bad_alloc().what()));
}

TEST_F(Launcher, AFailureToStartTheWindowCarriesItsText) {
  environment->onOpen = [] { throw std::runtime_error("Permission denied"); };
  EXPECT_EQ(errorOfOpening(), Error::chromeLaunchFailed("Permission denied"));
}

TEST_F(Launcher, AFailureToFindRunningApplicationsCarriesItsText) {
  environment->onRunningTest = [] { throw std::runtime_error("No process table"); };
  EXPECT_EQ(errorOfOpening(), Error::chromeLaunchFailed("No process table"));
  EXPECT_THAT(environment->log(), ElementsAre(installedTest, runningTest));
}

TEST_F(Launcher, ASelectorErrorPassesUnchanged) {
  environment->onOpen = [] { throw Error::keychainFailure(-61); };
  EXPECT_EQ(errorOfOpening(), Error::keychainFailure(-61));
}

TEST_F(Launcher, NeverAwaitsTheProcessThatOpensTheWindow) {
  environment->running = true;
  launcher.open(std::nullopt);
  launcher.open(URL{"https://a.example", "https"});
  EXPECT_THAT(environment->log(),
              ElementsAre(installedTest, runningTest, refresh, openWindow, installedTest,
                          runningTest, refresh, openWindowAt("https://a.example")));
}

TEST(ChromeProcess, AnUnsuccessfulExitHasItsStatus) {
  EXPECT_EQ(std::string(ChromeProcessError::unsuccessfulExit(1).what()),
            messages::told(messages::unsuccessfulExit, 1));
  EXPECT_EQ(std::string(ChromeProcessError::unsuccessfulExit(-15).what()),
            messages::told(messages::unsuccessfulExit, -15));
  EXPECT_EQ(ChromeProcessError::unsuccessfulExit(-15).status(), -15);
}

TEST(ChromeProcess, UnsuccessfulExitsAreEqualWhenTheirStatusesAre) {
  EXPECT_TRUE(ChromeProcessError::unsuccessfulExit(3) == ChromeProcessError::unsuccessfulExit(3));
  EXPECT_FALSE(ChromeProcessError::unsuccessfulExit(3) == ChromeProcessError::unsuccessfulExit(-3));
}

}  // namespace
}  // namespace lumaret::tests
