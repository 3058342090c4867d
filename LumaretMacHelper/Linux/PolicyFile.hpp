// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace lumaret {

/// The file's bytes; nothing when there is no such file. Throws std::system_error, also for what is
/// no regular file, such as a pipe.
std::optional<std::string> readPolicyFile(const std::filesystem::path& file);

/// Gives the file these bytes and makes them permanent. Every user may read it, whatever the umask
/// says: it is their browser's. A file that is there keeps its owner and its permissions otherwise.
/// A missing folder is made.
///
/// The bytes are staged beside the folder, where Chrome does not look, and renamed in. Where that
/// is not allowed but writing the file is, it is rewritten in place, by one run at a time. A
/// process that is killed meanwhile leaves the old text or the new one, but for a kill in the very
/// middle of a write in place. A link is not replaced and not written through. Throws
/// std::system_error; the file is then as it was, or, where rewriting in place failed at its end,
/// holds the new text.
void writePolicyFile(const std::filesystem::path& file, const std::string& bytes);

/// Makes the names in a folder permanent; false when that failed.
bool synchronizeFolder(const std::filesystem::path& folder);

}  // namespace lumaret
