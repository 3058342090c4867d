// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <new>

#include "LumaretMacHelper/ChromeLauncher.hpp"
#include "Tests/Core/FakeSystem.hpp"
#include "Tests/Support/Cpp/Contracts.hpp"
#include "Tests/Support/Cpp/Messages.hpp"

namespace lumaret::tests {
namespace {

using testing::ElementsAre;
using Error = CertificateSelectorError;

const std::string installedTest = "isExecutableFile /opt/Chrome Example/chrome";
const std::string runningTest = "isApplicationRunning com.google.Chrome";
const std::string refresh = "run and await /opt/Chrome Example/chrome [--refresh-platform-policy]";
const std::string openWindow = "run /opt/Chrome Example/chrome [--new-window]";

std::string openWindowAt(const std::string& address) {
  return "run /opt/Chrome Example/chrome [--new-window, " + address + "]";
}

class Launcher : public testing::Test {
 protected:
  std::optional<Error> errorOfOpening(const std::optional<URL>& destination = std::nullopt) {
    system.calls.clear();
    return selectorErrorOf([&] { launcher.open(destination); });
  }

  /// What is started, once Chrome is found and asked whether it runs.
  Texts startedFor(const std::optional<URL>& destination) {
    EXPECT_EQ(errorOfOpening(destination), std::nullopt);
    EXPECT_EQ(system.calls.at(0), installedTest);
    EXPECT_EQ(system.calls.at(1), runningTest);
    return {system.calls.begin() + 2, system.calls.end()};
  }

  FakeSystem system;
  ChromeLauncher launcher{"/opt/Chrome Example/chrome", std::make_shared<FakeServices>(system)};
};

TEST_F(Launcher, StartsNothingWithoutAnExecutable) {
  EXPECT_TRUE(launcher.isChromeInstalled());
  system.isInstalled = false;
  system.isRunning = true;
  EXPECT_FALSE(launcher.isChromeInstalled());
  EXPECT_EQ(errorOfOpening(URL{"https://a.example", "https"}), Error::chromeNotInstalled());
  EXPECT_THAT(system.calls, ElementsAre(installedTest));
}

TEST_F(Launcher, OpensAWindowPerhapsAtAnAddress) {
  EXPECT_THAT(startedFor(std::nullopt), ElementsAre(openWindow));
  for (const char* scheme : {"http", "https", "HTTPS", "hTTp"}) {
    const std::string address = std::string(scheme) + "://A.Example/Ä b?q=1#top";
    EXPECT_THAT(startedFor(URL{address, scheme}), ElementsAre(openWindowAt(address)));
  }
}

TEST_F(Launcher, AwaitsTheRefreshOfARunningChromeAndNotTheWindow) {
  system.isRunning = true;
  launcher.open();
  EXPECT_THAT(system.calls, ElementsAre(installedTest, runningTest, refresh, openWindow));
  EXPECT_THAT(startedFor(URL{"http:a", "http"}), ElementsAre(refresh, openWindowAt("http:a")));
}

TEST_F(Launcher, RejectsAnyOtherSchemeAfterTheRefresh) {
  using Scheme = std::optional<std::string>;
  for (const Scheme& scheme : {Scheme("ftp"), Scheme("file"), Scheme("javascript"),
                               Scheme("httpss"), Scheme("xhttp"), Scheme(""), Scheme()}) {
    for (const bool isRunning : {false, true}) {
      system.isRunning = isRunning;
      EXPECT_EQ(errorOfOpening(URL{"https://a.example", scheme}),
                Error::chromeLaunchFailed(messages::unsupportedScheme));
      EXPECT_EQ(system.calls.back(), isRunning ? refresh : runningTest);
    }
  }
}

TEST_F(Launcher, EndsAtAFailureWithItsText) {
  system.isRunning = true;
  for (const std::string& call : {openWindow, refresh, runningTest}) {
    system.fail(call, ChromeProcessError::unsuccessfulExit(3));
    EXPECT_EQ(errorOfOpening(),
              Error::chromeLaunchFailed(messages::told(messages::unsuccessfulExit, "3")));
    system.fail(call, std::bad_alloc());
    EXPECT_EQ(errorOfOpening(), Error::chromeLaunchFailed(std::bad_alloc().what()));
    system.fail(call, Error::keychainFailure(-61));
    EXPECT_EQ(errorOfOpening(), Error::keychainFailure(-61));
    system.fail(call, 7);
    EXPECT_EQ(errorOfOpening(), Error::chromeLaunchFailed("Unknown error."));
    EXPECT_EQ(system.calls.back(), call);
  }
}

}  // namespace
}  // namespace lumaret::tests
