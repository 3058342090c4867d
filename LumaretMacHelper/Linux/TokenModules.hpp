// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace lumaret {

/// Loads the PKCS#11 modules that a certificate database names, in its order, into an NSS that was
/// started without them. One that cannot be loaded is left out, and so is one whose library is
/// named by a path that leads to no regular file: NSS would wait for a pipe without an end.
void loadTokenModules(const std::filesystem::path& databaseFolder);

}  // namespace lumaret
