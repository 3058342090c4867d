// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/StoringLock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>

namespace lumaret {
namespace {

constexpr const char* place = "/run/lumaret-macos-helper";

std::system_error failure(int error) { return {error, std::generic_category(), place}; }

/// Throws the error in errno unless the call succeeded.
void check(bool succeeded) {
  if (!succeeded) {
    throw failure(errno);
  }
}

}  // namespace

StoringLock::StoringLock() {
  check(::mkdir(place, S_IRWXU) == 0 || errno == EEXIST);
  folder_ = FileDescriptor(::open(place, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  check(static_cast<bool>(folder_));
  struct stat status = {};
  check(::fstat(folder_.number(), &status) == 0);
  if (status.st_uid != ::geteuid() || (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    throw failure(EPERM);
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (::flock(folder_.number(), LOCK_EX | LOCK_NB) != 0) {
    check(errno == EWOULDBLOCK || errno == EINTR);
    if (std::chrono::steady_clock::now() > deadline) {
      throw failure(ETIMEDOUT);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace lumaret
