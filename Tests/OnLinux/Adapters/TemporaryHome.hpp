// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>

#include "Tests/Support/Cpp/TemporaryFolder.hpp"

namespace lumaret::tests {

/// A private home folder, without the variables that lead elsewhere.
class TemporaryHome : public TemporaryFolder {
 public:
  TemporaryHome() {
    ::setenv("HOME", path().c_str(), 1);
    for (const char* name : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "CHROME_CONFIG_HOME",
                             "CHROME_USER_DATA_DIR", "LANG", "LC_ALL", "LC_COLLATE"}) {
      ::unsetenv(name);
    }
  }
};

}  // namespace lumaret::tests
