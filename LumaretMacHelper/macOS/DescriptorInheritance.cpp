// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/POSIX/DescriptorInheritance.hpp"

#include "LumaretMacHelper/POSIX/SystemCalls.hpp"

namespace lumaret {

short inheritStandardStreamsAlone(posix_spawn_file_actions_t& actions) {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    requireSuccess(::posix_spawn_file_actions_addinherit_np(&actions, stream));
  }
  return POSIX_SPAWN_CLOEXEC_DEFAULT;
}

}  // namespace lumaret
