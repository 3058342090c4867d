#include "ChromeInstallation.hpp"
#include "ChromeLauncher.hpp"
#include "Process.hpp"
#include "ProfileLock.hpp"

namespace lumaret {

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
  runProcess(executableURL, arguments, waitUntilExit, StandardOutput::toStandardError);
}

}  // namespace lumaret
