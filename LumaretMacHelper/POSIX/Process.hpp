// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace lumaret {

/// Whether this user may execute the file. As for the file manager of macOS, a folder that may be
/// searched counts, too: starting it is what fails.
bool isExecutableFile(const std::filesystem::path& path);

enum class StandardOutput : std::uint8_t {
  /// What the process prints goes to the tool's caller, as if it were the tool's own result.
  inherited,
  /// What the process prints goes where its errors go.
  toStandardError,
};

// A process that is started here gets the standard streams that the tool's caller gave it, unless
// the function says otherwise, the tool's environment and working directory, and none of its other
// open files. It begins with the default disposition of every signal and with none blocked. Nothing
// of the tool itself changes for it.

/// Starts a process and does not wait for it. It gets a process group of its own, so that what ends
/// the tool does not end it. Throws std::system_error when it cannot be started.
void startProcess(const std::filesystem::path& executable,
                  const std::vector<std::string>& arguments,
                  StandardOutput output = StandardOutput::inherited);

/// Runs a process to its end, however long that takes. Returns its exit status; the number of the
/// signal, where a signal ended it. Throws std::system_error when it cannot be started or awaited.
std::int32_t runProcess(const std::filesystem::path& executable,
                        const std::vector<std::string>& arguments,
                        StandardOutput output = StandardOutput::inherited);

/// Runs a process to its end like runProcess, but nothing that it prints is seen: its standard
/// input is this text, its other streams lead nowhere, and it has a session of its own, without a
/// terminal. It need not read the text to its end.
std::int32_t runUnseen(const std::filesystem::path& executable,
                       const std::vector<std::string>& arguments, std::string_view input);

}  // namespace lumaret
