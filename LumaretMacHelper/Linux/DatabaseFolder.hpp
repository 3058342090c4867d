// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace lumaret {

/// The folder of the certificate database that Chrome for Linux uses: `~/.pki/nssdb` if it exists,
/// or else `pki/nssdb` in the user's data folder.
std::filesystem::path databaseFolder();

/// A file that cannot be examined does not count as missing.
bool isDatabaseMissing(const std::filesystem::path& folder);

/// Whether a file is cut short, which NSS would not notice, or something other than a regular file,
/// for which it might wait forever.
bool isDatabaseDamaged(const std::filesystem::path& folder);

}  // namespace lumaret
