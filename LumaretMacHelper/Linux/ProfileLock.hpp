// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace lumaret {

/// Whether a browser holds the profile, so that a second start over it would hand its command line
/// to that browser and end. Chrome's lock is a link to "host-pid"; it outlives a crash, so the
/// process must be alive, this user's and on this host, and it must not be certain that nobody
/// listens at the socket that is named beside the lock: a socket that refuses, none, or something
/// that is no socket is what a crash left. Where /proc is hidden, whether the process may be sent a
/// signal decides.
bool isProfileLocked(const std::filesystem::path& userDataFolder);

}  // namespace lumaret
