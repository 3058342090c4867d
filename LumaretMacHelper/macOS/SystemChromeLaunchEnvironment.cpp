// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/POSIX/Process.hpp"
#include "LumaretMacHelper/POSIX/StandardStreams.hpp"
#include "LumaretMacHelper/PlatformFunctions.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"
#include "LumaretMacHelper/macOS/RunningApplications.hpp"

namespace lumaret {

std::filesystem::path chromeExecutable() {
  return "/Applications/Google Chrome.app/Contents/MacOS/Google Chrome";
}

ChromeLauncher::ChromeLauncher()
    : ChromeLauncher(defaultExecutableURL(), std::make_shared<SystemChromeLaunchEnvironment>()) {}

bool SystemChromeLaunchEnvironment::isExecutableFile(const std::filesystem::path& path) const {
  return lumaret::isExecutableFile(path);
}

bool SystemChromeLaunchEnvironment::isApplicationRunning(
    const std::string& bundleIdentifier) const {
  return hasRunningApplication(bundleIdentifier);
}

void SystemChromeLaunchEnvironment::run(const std::filesystem::path& executableURL,
                                        const std::vector<std::string>& arguments,
                                        bool waitUntilExit) const {
  if (!waitUntilExit) {
    startProcess(executableURL, arguments, callersStandardOutput());
  } else if (const auto status = runProcess(executableURL, arguments, callersStandardOutput());
             status != 0) {
    throw ChromeProcessError::unsuccessfulExit(status);
  }
}

}  // namespace lumaret
