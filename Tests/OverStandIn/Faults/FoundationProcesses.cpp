// SPDX-License-Identifier: Apache-2.0
// Foundation's NSFileManager and NSTask, linked in place of the functions that start real
// processes. Chrome is installed unless NSFileManager fails. An NSTask that fails has ended with
// that status. An NSTask that succeeds with nothing could not be started.

#include <system_error>

#include "LumaretMacHelper/POSIX/Process.hpp"
#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"

namespace lumaret {
namespace {

std::int32_t launch(const char* function, const std::string& executable,
                    const std::vector<std::string>& arguments) {
  std::string commandLine = executable;
  for (const std::string& argument : arguments) {
    commandLine += ", " + argument;
  }
  const standin::Call call(commandLine, function);
  if (!call.answersItself() && !call.fails()) {
    throw std::system_error(std::make_error_code(std::errc::no_such_file_or_directory), executable);
  }
  return call.status();
}

}  // namespace

bool isExecutableFile(const std::filesystem::path& path) {
  return !standin::Call(path.string(), "NSFileManager").fails();
}

void startProcess(const std::filesystem::path& executable,
                  const std::vector<std::string>& arguments, int /*output*/) {
  launch("NSTask", executable, arguments);
}

std::int32_t runProcess(const std::filesystem::path& executable,
                        const std::vector<std::string>& arguments, int /*output*/) {
  return launch("NSTask.waitUntilExit", executable, arguments);
}

}  // namespace lumaret
