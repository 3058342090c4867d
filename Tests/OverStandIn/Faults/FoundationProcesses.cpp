// SPDX-License-Identifier: Apache-2.0
// Foundation's NSFileManager and NSTask, linked in the place of the functions that start real
// processes: a call is traced, and answered as the test asked for. Chrome is installed unless
// NSFileManager fails. An NSTask that fails has ended with that status; one that answers with
// nothing could not be started.

#include <cerrno>
#include <system_error>

#include "LumaretMacHelper/POSIX/Process.hpp"
#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"

namespace lumaret {
namespace {

std::int32_t launch(const std::filesystem::path& executable,
                    const std::vector<std::string>& arguments, const char* awaited) {
  std::string commandLine = executable.string();
  for (const std::string& argument : arguments) {
    commandLine += ", " + argument;
  }
  const standin::Call call("NSTask", commandLine + awaited);
  if (!call.answersItself() && !call.fails()) {
    throw std::system_error(ENOENT, std::generic_category(), executable.string());
  }
  return call.fails() ? call.status() : 0;
}

}  // namespace

bool isExecutableFile(const std::filesystem::path& path) {
  const standin::Call call("NSFileManager", path.string());
  return !call.fails();
}

void startProcess(const std::filesystem::path& executable,
                  const std::vector<std::string>& arguments, StandardOutput /*output*/) {
  launch(executable, arguments, "");
}

std::int32_t runProcess(const std::filesystem::path& executable,
                        const std::vector<std::string>& arguments, StandardOutput /*output*/) {
  return launch(executable, arguments, ", awaited");
}

}  // namespace lumaret
