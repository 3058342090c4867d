// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace lumaret {

/// Whether this user may execute the file. A folder that may be searched counts too, as it does for
/// the file manager of macOS, but starting it fails.
bool isExecutableFile(const std::filesystem::path& path);

enum class StandardOutput : std::uint8_t {
  /// The process's output goes to the tool's caller, as if it were the tool's own result.
  inherited,
  /// The process's output goes to standard error.
  toStandardError,
};

// A process that is started here gets the standard streams of the tool's caller, unless the
// function says otherwise. It gets the tool's environment and working directory, and none of its
// other open files. Every signal has its default disposition, and none is blocked. The tool's own
// state stays as it is.

/// Starts a process and does not wait for it. The process gets its own process group, so that a
/// signal that ends the tool does not end it too. Throws std::system_error if it cannot be started.
void startProcess(const std::filesystem::path& executable,
                  const std::vector<std::string>& arguments,
                  StandardOutput output = StandardOutput::inherited);

/// Runs a process and waits until it ends, without a time limit. Returns its exit status, or the
/// number of the signal that ended it. Throws std::system_error if it cannot be started or awaited.
std::int32_t runProcess(const std::filesystem::path& executable,
                        const std::vector<std::string>& arguments,
                        StandardOutput output = StandardOutput::inherited);

/// Runs a process like runProcess, but apart from the tool's caller: in a session of its own,
/// without a terminal, and with standard streams that lead to /dev/null.
std::int32_t runUnseen(const std::filesystem::path& executable,
                       const std::vector<std::string>& arguments);

}  // namespace lumaret
