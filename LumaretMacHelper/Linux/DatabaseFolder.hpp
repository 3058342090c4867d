// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace lumaret {

/// The folder of the certificate database that Chrome for Linux uses: `~/.pki/nssdb` if it exists,
/// or else `pki/nssdb` in the user's data folder.
std::filesystem::path databaseFolder();

/// Whether the folder contains no database. A file that cannot be examined does not count as
/// missing.
bool isDatabaseMissing(const std::filesystem::path& folder);

/// Whether the database is damaged in a way that NSS would not notice, or would wait for without an
/// end: a file is cut short, or something other than a regular file is in its place.
bool isDatabaseDamaged(const std::filesystem::path& folder);

}  // namespace lumaret
