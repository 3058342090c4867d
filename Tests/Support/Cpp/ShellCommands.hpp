// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace lumaret::tests {

/// Shell commands that wait until the file exists. After some ten seconds the shell gives up and
/// fails, so that it does not outlive a failed test for long. The shell expands the path.
inline std::string awaitFile(const std::string& path) {
  return "attempts=0; until [ -e \"" + path +
         "\" ]; do attempts=$((attempts + 1)); [ $attempts -lt 1000 ] || exit 1; sleep 0.01; "
         "done; ";
}

}  // namespace lumaret::tests
