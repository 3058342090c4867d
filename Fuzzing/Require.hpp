// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the process if the condition is false. The fuzzer reports that.
#define REQUIRE(condition)                                                                     \
  do {                                                                                         \
    if (!(condition)) {                                                                        \
      std::fprintf(stderr, "%s:%d: this does not hold: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                            \
    }                                                                                          \
  } while (false)
