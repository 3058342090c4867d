// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace lumaret {

/// Loads the PKCS#11 modules that a certificate database names, in its order, into an NSS that was
/// started without them. Leaves out a module that cannot be loaded, and one that is named by a path
/// that does not lead to a regular file: NSS would wait for a pipe without an end.
void loadTokenModules(const std::filesystem::path& databaseFolder);

}  // namespace lumaret
