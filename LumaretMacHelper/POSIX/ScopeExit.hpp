// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utility>

namespace lumaret {

/// Calls a function at the end of the scope.
template <typename Function>
class ScopeExit {
 public:
  explicit ScopeExit(Function function) : function_(std::move(function)) {}
  ScopeExit(const ScopeExit&) = delete;
  ScopeExit& operator=(const ScopeExit&) = delete;
  ~ScopeExit() { function_(); }

 private:
  Function function_;
};

}  // namespace lumaret
