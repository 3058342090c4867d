// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace lumaret::tests {

/// Every call of the fakes of one test, in order.
using CallLog = std::vector<std::string>;

/// A list as a log writes it.
inline std::string listed(const std::vector<std::string>& texts) {
  std::string list = "[";
  for (const std::string& text : texts) {
    list += (list.size() > 1 ? ", " : "") + text;
  }
  return list + "]";
}

}  // namespace lumaret::tests
