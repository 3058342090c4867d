// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace lumaret {

/// Whether this user may execute the file. As for the file manager of macOS, a folder that may be
/// searched counts too.
bool isExecutableFile(const std::filesystem::path& path);

enum class StandardOutput : std::uint8_t {
  inherited,  // from the tool's caller, whom the tool's own result reaches too
  toStandardError,
};

// A process that is started here gets the standard streams of the tool's caller, unless the
// function says otherwise, the tool's environment and working directory, and none of its other open
// files. Every signal has its default disposition, and none is blocked.

/// Starts a process in its own process group, so a signal that ends the tool does not end it too,
/// and does not wait for it. Throws std::system_error if it cannot be started.
void startProcess(const std::filesystem::path& executable,
                  const std::vector<std::string>& arguments,
                  StandardOutput output = StandardOutput::inherited);

/// Runs a process and waits until it ends, without a time limit. Returns its exit status, or the
/// number of the signal that ended it. Throws std::system_error if it cannot be started or awaited.
std::int32_t runProcess(const std::filesystem::path& executable,
                        const std::vector<std::string>& arguments,
                        StandardOutput output = StandardOutput::inherited);

/// Like runProcess, but apart from the tool's caller: in a new session, without a terminal, and
/// with /dev/null as its standard streams.
std::int32_t runUnseen(const std::filesystem::path& executable,
                       const std::vector<std::string>& arguments);

}  // namespace lumaret
