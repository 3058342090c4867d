// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <spawn.h>

namespace lumaret {

/// Keeps every open descriptor but the standard streams from a process that is about to be
/// spawned, without touching those of this one. POSIX has no call for it: each system has its own.
/// Returns the flags that the process's spawn attributes need for it, or 0. Throws
/// std::system_error.
short inheritStandardStreamsAlone(posix_spawn_file_actions_t& actions);

}  // namespace lumaret
