// Foundation's NSFileManager and NSTask, in the place of the functions that start real processes:
// a call is traced, and answered as the test asked for. Chrome is installed unless NSFileManager
// fails. An NSTask that fails has ended with that status; one that answers with nothing could not
// be started.

#include <cerrno>
#include <system_error>

#include "Call.hpp"
#include "ChromeLauncher.hpp"
#include "Process.hpp"

namespace lumaret {

bool isExecutableFile(const std::filesystem::path& path) {
  const standin::Call call("NSFileManager", path.string());
  return !call.fails();
}

void runProcess(const std::filesystem::path& executable, const std::vector<std::string>& arguments,
                bool waitUntilExit, StandardOutput /*output*/) {
  std::string commandLine = executable.string();
  for (const std::string& argument : arguments) {
    commandLine += ", " + argument;
  }
  const standin::Call call("NSTask", commandLine + (waitUntilExit ? ", awaited" : ""));
  if (!call.answersItself() && !call.fails()) {
    throw std::system_error(ENOENT, std::generic_category(), executable.string());
  }
  if (waitUntilExit && call.fails()) {
    throw ChromeProcessError::unsuccessfulExit(call.status());
  }
}

}  // namespace lumaret
