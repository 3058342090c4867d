// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace lumaret {

/// The largest policy file that is read or written, in bytes. A policy of 100,000 rules has 50 MB.
inline constexpr std::size_t largestPolicyFile = 64UL << 20;

/// The file's bytes; nothing if there is no such file.
///
/// Only world-readable files are read, so storing never publishes a private one: the permissions of
/// the file and, if it is reached by a symbolic link, of every folder on the path to it must let
/// every user in. Throws std::system_error for any other file, for one that is larger than
/// `largestPolicyFile`, and for one that is not a regular file, such as a pipe.
std::optional<std::string> readPolicyFile(const std::filesystem::path& file);

/// Replaces the file, or creates it, and makes the bytes permanent. The new file belongs to this
/// process's user, every user may read it, and nobody else may write it, whatever the old file, the
/// umask and the folder's ACLs say. Missing folders are created, readable for every user.
///
/// The bytes are staged beside the folder, where Chrome does not look, and the staged file is
/// renamed. A killed process leaves the old file or the new one, and perhaps the staged one. Throws
/// std::system_error, also if there is a symbolic link in the file's place; the old file is then
/// still in its place, and the staged one is gone.
void replacePolicyFile(const std::filesystem::path& file, const std::string& bytes);

/// Removes the file, if there is one. Throws std::system_error, also for a symbolic link.
void removePolicyFile(const std::filesystem::path& file);

/// Whether every user may list the folder and enter it and each folder on the path to it, both as
/// the path is written and with its links resolved. Missing folders do not count.
bool isOpenToEveryUser(const std::filesystem::path& folder);

}  // namespace lumaret
