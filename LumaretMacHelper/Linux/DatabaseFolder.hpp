// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace lumaret {

/// The folder of the certificate database that Chrome for Linux uses: the old place where it
/// exists, else the one in the data home.
std::filesystem::path databaseFolder();

/// Whether there is no database in the folder. What cannot be looked at is not missing.
bool isDatabaseMissing(const std::filesystem::path& folder);

/// Whether the database has damage that NSS would not notice, or would wait for without an end: a
/// file that lost its end, or something other than a file in the place of one.
bool isDatabaseDamaged(const std::filesystem::path& folder);

}  // namespace lumaret
