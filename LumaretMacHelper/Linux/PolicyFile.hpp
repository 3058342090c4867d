#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace lumaret {

/// The file's bytes; nothing when there is no such file. Throws std::system_error, also for what is
/// no regular file, such as a pipe.
std::optional<std::string> readPolicyFile(const std::filesystem::path& file);

/// Gives the file these bytes and makes them permanent. Every user may read it, whatever the umask
/// says: it is their browser's. A file that is there keeps its owner and its permissions. A missing
/// folder is made.
///
/// The bytes are staged beside the folder, where Chrome does not look, and renamed in. Where that
/// is not allowed but writing the file is, it is rewritten in place; a process that is killed
/// meanwhile leaves the old text or the new one. Throws std::system_error, and then the file is as
/// it was.
void writePolicyFile(const std::filesystem::path& file, const std::string& bytes);

/// Makes the names in a folder permanent; false when that failed.
bool synchronizeFolder(const std::filesystem::path& folder);

}  // namespace lumaret
