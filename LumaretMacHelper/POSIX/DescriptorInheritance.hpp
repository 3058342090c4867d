// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <spawn.h>

namespace lumaret {

/// Lets a process that is about to be spawned inherit the standard streams and no other descriptor.
/// POSIX has no call for this. Returns the spawn flags that it takes, or 0. Throws
/// std::system_error.
short inheritStandardStreamsAlone(posix_spawn_file_actions_t& actions);

}  // namespace lumaret
