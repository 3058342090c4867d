// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

namespace lumaret::tests {

/// A platform without anything: no identities, no rules, no Chrome. Its standard output and error
/// are the process's own.
struct FakePlatform {
  /// What listing the identities does; throws what the test wants.
  std::function<void()> onListing = [] {};
};

FakePlatform& fakePlatform();

}  // namespace lumaret::tests
