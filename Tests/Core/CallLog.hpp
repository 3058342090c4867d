// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace lumaret::tests {

/// All calls of the fakes of a test, in order.
using CallLog = std::vector<std::string>;

/// The form of a list in a log.
inline std::string listed(const std::vector<std::string>& texts) {
  std::string list = "[";
  for (const std::string& text : texts) {
    list += (list.size() > 1 ? ", " : "") + text;
  }
  return list + "]";
}

}  // namespace lumaret::tests
