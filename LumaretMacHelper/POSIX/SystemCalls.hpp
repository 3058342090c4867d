// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string_view>
#include <system_error>

namespace lumaret {

/// Returns the result of a system call. If it is negative, throws the error in errno, with this
/// text before the system's.
template <typename Result>
Result checked(Result result, const char* subject) {
  if (result < 0) {
    throw std::system_error(errno, std::generic_category(), subject);
  }
  return result;
}

/// Writes every byte. Throws like checked().
inline void writeAll(int descriptor, std::string_view bytes, const char* subject) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
    if (written < 0 && errno == EAGAIN) {
      // Another process made the descriptor non-blocking for itself, and thereby for this one.
      pollfd writable = {descriptor, POLLOUT, 0};
      ::poll(&writable, 1, -1);
    } else if (written >= 0 || errno != EINTR) {
      bytes.remove_prefix(static_cast<std::size_t>(checked(written, subject)));
    }
  }
}

}  // namespace lumaret
