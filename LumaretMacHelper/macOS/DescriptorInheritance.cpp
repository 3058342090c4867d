// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/POSIX/DescriptorInheritance.hpp"

#include <unistd.h>

#include <system_error>

namespace lumaret {

short inheritStandardStreamsAlone(posix_spawn_file_actions_t& actions) {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (const int error = ::posix_spawn_file_actions_addinherit_np(&actions, stream); error != 0) {
      throw std::system_error(error, std::generic_category());
    }
  }
  return POSIX_SPAWN_CLOEXEC_DEFAULT;
}

}  // namespace lumaret
