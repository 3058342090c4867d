// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace lumaret {

/// Loads the PKCS#11 modules that a certificate database names, in its order, into an NSS that was
/// started without them. Leaves out one that cannot be loaded, and one whose path does not lead to
/// a regular file, since NSS would wait for a pipe forever.
void loadTokenModules(const std::filesystem::path& databaseFolder);

}  // namespace lumaret
