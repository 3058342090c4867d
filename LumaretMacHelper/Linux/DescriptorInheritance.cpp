// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/POSIX/DescriptorInheritance.hpp"

#include "LumaretMacHelper/POSIX/SystemCalls.hpp"

namespace lumaret {

short inheritStandardStreamsAlone(posix_spawn_file_actions_t& actions) {
  requireSuccess(::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1));
  return 0;
}

}  // namespace lumaret
