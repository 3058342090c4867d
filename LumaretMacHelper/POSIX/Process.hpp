#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace lumaret {

/// A regular file that this user may execute.
bool isExecutableFile(const std::filesystem::path& path);

enum class StandardOutput {
  inherited,
  /// What the process prints goes where its errors go.
  toStandardError,
};

/// Starts a process with the tool's own standard streams, environment and working directory, and
/// none of its other open files. Where it is not awaited it gets a process group of its own, so
/// that what ends the tool does not end it. Throws std::system_error when it cannot be started, and
/// ChromeProcessError when it was awaited and ended with another status than 0; one that a signal
/// ended has the signal's number as its status.
void runProcess(const std::filesystem::path& executable, const std::vector<std::string>& arguments,
                bool waitUntilExit, StandardOutput output = StandardOutput::inherited);

}  // namespace lumaret
