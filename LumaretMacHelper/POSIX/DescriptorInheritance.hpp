// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <spawn.h>

namespace lumaret {

/// Lets a process that is about to be spawned inherit no open descriptor except the standard
/// streams. The descriptors of this process stay as they are. POSIX has no call for this, so each
/// system defines the function. Returns the flags that the process's spawn attributes need for it,
/// or 0. Throws std::system_error.
short inheritStandardStreamsAlone(posix_spawn_file_actions_t& actions);

}  // namespace lumaret
