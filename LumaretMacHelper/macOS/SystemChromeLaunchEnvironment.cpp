#include "ChromeLauncher.hpp"
#include "Process.hpp"
#include "RunningApplications.hpp"

namespace lumaret {

const std::filesystem::path& ChromeLauncher::defaultExecutableURL() {
  static const std::filesystem::path executable =
      "/Applications/Google Chrome.app/Contents/MacOS/Google Chrome";
  return executable;
}

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
  runProcess(executableURL, arguments, waitUntilExit);
}

}  // namespace lumaret
