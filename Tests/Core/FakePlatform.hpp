// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

namespace lumaret::tests {

/// A platform without identities, rules or Chrome. Its standard output and standard error are those
/// of the process.
struct FakePlatform {
  /// Runs when the identities are listed. A test may let it throw an exception.
  std::function<void()> onListing = [] {};
};

FakePlatform& fakePlatform();

}  // namespace lumaret::tests
