// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/ChromeInstallation.hpp"
#include "LumaretMacHelper/Linux/ProfileLock.hpp"
#include "LumaretMacHelper/POSIX/Process.hpp"
#include "LumaretMacHelper/PlatformFunctions.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"

namespace lumaret {

std::filesystem::path chromeExecutable() { return ChromeInstallation::current().executable; }

ChromeLauncher::ChromeLauncher()
    : ChromeLauncher(defaultExecutableURL(), std::make_shared<SystemChromeLaunchEnvironment>()) {}

bool SystemChromeLaunchEnvironment::isExecutableFile(const std::filesystem::path& path) const {
  return lumaret::isExecutableFile(path);
}

bool SystemChromeLaunchEnvironment::isApplicationRunning(
    const std::string& bundleIdentifier) const {
  return bundleIdentifier == chromeIdentifier &&
         isProfileLocked(ChromeInstallation::current().userDataFolder);
}

void SystemChromeLaunchEnvironment::run(const std::filesystem::path& executableURL,
                                        const std::vector<std::string>& arguments,
                                        bool waitUntilExit) const {
  // If a browser is already running, the new process prints "Opening in existing browser session."
  // So it does not get the caller's standard output, which must contain only the tool's result.
  if (!waitUntilExit) {
    startProcess(executableURL, arguments);
  } else if (const auto status = runProcess(executableURL, arguments); status != 0) {
    throw ChromeProcessError::unsuccessfulExit(status);
  }
}

}  // namespace lumaret
