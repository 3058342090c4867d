// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace lumaret {

/// The largest policy file that is read or written, in bytes. A policy of 100,000 rules has 50 MB.
inline constexpr std::size_t largestPolicyFile = 64UL << 20;

/// The file's bytes; nothing when there is no such file.
///
/// Whatever name leads to it, a file counts only if every user may read it, as the browser of every
/// user does: its permissions say so, and where a symbolic link leads to it, so do those of all
/// folders on the way to it. Otherwise what only root may read would be published by storing it.
/// Throws std::system_error for any other file, also for one that is larger than
/// `largestPolicyFile` or no regular file, such as a pipe.
std::optional<std::string> readPolicyFile(const std::filesystem::path& file);

/// Puts a file with these bytes in the place of whatever file is there, and makes the bytes
/// permanent. It belongs to this process's user, every user may read it and nobody else may write
/// it, whatever the old file, the umask and access-control lists of the folder say. A missing
/// folder is made, for all to read.
///
/// The bytes are staged beside the folder, where Chrome does not look, and renamed in. A process
/// that is killed meanwhile leaves the old file or the new one, and perhaps the staged one. A
/// symbolic link is not replaced. Throws std::system_error; the old file is then in its place, and
/// the staged one is gone.
void replacePolicyFile(const std::filesystem::path& file, const std::string& bytes);

/// Whether every user may look for files in the folder: each folder on the way to it lets them
/// through, by its name and behind links. A folder that is missing does not count.
bool isOpenToEveryUser(const std::filesystem::path& folder);

/// Makes the names in a folder permanent; false when that failed.
bool synchronizeFolder(const std::filesystem::path& folder);

}  // namespace lumaret
