// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace lumaret {

/// Whether a browser holds the profile, so that a second start over it would hand its command line
/// to that browser and end. Chrome's lock is a link to "host-pid"; it outlives a crash, so the
/// process must be alive, this user's and on this host, and where the lock's socket is named beside
/// it, somebody must listen there.
bool isProfileLocked(const std::filesystem::path& userDataFolder);

}  // namespace lumaret
