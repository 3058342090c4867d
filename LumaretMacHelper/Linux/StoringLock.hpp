// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "LumaretMacHelper/POSIX/FileDescriptor.hpp"

namespace lumaret {

/// Held by root from reading the rules to storing them: no other run of root's then does either, so
/// that no rule is lost between the two. Nobody else can hold it, since it is a lock on
/// /run/lumaret-macos-helper, a folder that only root may open.
class StoringLock {
 public:
  /// Makes the folder if it is missing, and waits up to a minute for whoever holds the lock. Throws
  /// std::system_error, also where the folder belongs to another user or is open to others.
  StoringLock();

 private:
  FileDescriptor folder_;
};

}  // namespace lumaret
