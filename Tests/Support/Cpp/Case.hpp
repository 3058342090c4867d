// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>
#include <string>

namespace lumaret::tests {

/// A value of a parameterized test and the name under which the test is listed.
template <typename Value>
struct Case {
  std::string name;
  Value value;
};

template <typename Value>
void PrintTo(const Case<Value>& test, std::ostream* out) {
  *out << test.name;
}

inline constexpr auto caseName = [](const auto& test) { return test.param.name; };

}  // namespace lumaret::tests
