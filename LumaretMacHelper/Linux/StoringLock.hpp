// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "LumaretMacHelper/POSIX/FileDescriptor.hpp"

namespace lumaret {

/// Root holds this lock from reading the rules to storing them. No other run of root does either
/// meanwhile, so no rule is lost in between. Nobody else can hold it: it is a lock on
/// /run/lumaret-macos-helper, a folder that only root may open.
class StoringLock {
 public:
  /// Creates the folder if it is missing, and waits up to a minute for the lock. Throws
  /// std::system_error, also if the folder belongs to another user or is open to others.
  StoringLock();

 private:
  FileDescriptor folder_;
};

}  // namespace lumaret
