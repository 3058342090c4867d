// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace lumaret {

/// Whether a browser holds the profile. If one does, a second start with this profile hands its
/// command line to that browser and ends.
///
/// Chrome's lock is a link to "host-pid", which outlives a crash. So the process must be alive, on
/// this host, and this user's, and the socket beside the lock must not be certainly abandoned:
/// after a crash it refuses connections, is missing, or is not a socket. If /proc is hidden, the
/// process counts if it may be sent a signal.
bool isProfileLocked(const std::filesystem::path& userDataFolder);

}  // namespace lumaret
