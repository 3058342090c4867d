// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace lumaret {

/// Whether this user may execute the file. As for the file manager of macOS, a folder that may be
/// searched counts too.
bool isExecutableFile(const std::filesystem::path& path);

// A process that is started here inherits standard input and standard error, its standard output is
// a duplicate of the given descriptor, and no other file is open in it. It has the tool's
// environment and working directory. Every signal has its default disposition, and none is blocked.

/// Starts a process in its own process group, so a signal that ends the tool does not end it too,
/// and does not wait for it. Throws std::system_error if it cannot be started.
void startProcess(const std::filesystem::path& executable,
                  const std::vector<std::string>& arguments, int output = STDOUT_FILENO);

/// Runs a process and waits until it ends, without a time limit. Returns its exit status, or the
/// number of the signal that ended it. Throws std::system_error if it cannot be started or awaited.
/// Afterwards this process no longer ignores SIGCHLD.
std::int32_t runProcess(const std::filesystem::path& executable,
                        const std::vector<std::string>& arguments, int output = STDOUT_FILENO);

/// Like runProcess, but apart from the tool's caller: in a new session, without a terminal, and
/// with /dev/null as its standard streams.
std::int32_t runUnseen(const std::filesystem::path& executable,
                       const std::vector<std::string>& arguments);

}  // namespace lumaret
