// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/POSIX/DescriptorInheritance.hpp"

#include <unistd.h>

#include <system_error>

namespace lumaret {

short inheritStandardStreamsAlone(posix_spawn_file_actions_t& actions) {
  if (const int error = ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
      error != 0) {
    throw std::system_error(error, std::generic_category());
  }
  return 0;
}

}  // namespace lumaret
