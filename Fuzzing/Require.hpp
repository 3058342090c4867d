// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the process, which the fuzzer reports, when the condition does not hold.
#define REQUIRE(condition)                                                                     \
  do {                                                                                         \
    if (!(condition)) {                                                                        \
      std::fprintf(stderr, "%s:%d: this does not hold: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                            \
    }                                                                                          \
  } while (false)
