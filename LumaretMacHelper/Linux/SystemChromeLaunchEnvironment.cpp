// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/ChromeInstallation.hpp"
#include "LumaretMacHelper/Linux/ProfileLock.hpp"
#include "LumaretMacHelper/POSIX/Process.hpp"
#include "LumaretMacHelper/Platform.hpp"

namespace lumaret {

std::filesystem::path chromeExecutable() { return ChromeInstallation::current().executable; }

ChromeLauncher::ChromeLauncher()
    : ChromeLauncher(defaultExecutableURL(), std::make_shared<SystemChromeLaunchEnvironment>()) {}

bool SystemChromeLaunchEnvironment::isExecutableFile(const std::filesystem::path& path) const {
  return lumaret::isExecutableFile(path);
}

bool SystemChromeLaunchEnvironment::isApplicationRunning(
    const std::string& bundleIdentifier) const {
  return bundleIdentifier == "com.google.Chrome" &&
         isProfileLocked(ChromeInstallation::current().userDataFolder);
}

void SystemChromeLaunchEnvironment::run(const std::filesystem::path& executableURL,
                                        const std::vector<std::string>& arguments,
                                        bool waitUntilExit) const {
  // A start that a running browser answers prints a line about that ("Opening in existing browser
  // session."). The tool's standard output holds its result and nothing else.
  constexpr auto output = StandardOutput::toStandardError;
  if (!waitUntilExit) {
    startProcess(executableURL, arguments, output);
  } else if (const auto status = runProcess(executableURL, arguments, output); status != 0) {
    throw ChromeProcessError::unsuccessfulExit(status);
  }
}

}  // namespace lumaret
