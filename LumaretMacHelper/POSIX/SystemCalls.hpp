// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string_view>
#include <system_error>

namespace lumaret {

/// Throws this error, unless it is 0, with the subject, if there is one, before the system's text.
inline void requireSuccess(int error, const char* subject = nullptr) {
  if (error != 0) {
    const std::error_code code(error, std::generic_category());
    throw subject != nullptr ? std::system_error(code, subject) : std::system_error(code);
  }
}

/// Throws this error unless the condition holds.
inline void require(bool condition, std::errc error, const char* subject) {
  requireSuccess(condition ? 0 : static_cast<int>(error), subject);
}

/// Returns the result of a system call. If it is negative, throws the error in errno.
template <typename Result>
Result checked(Result result, const char* subject = nullptr) {
  if (result < 0) {
    requireSuccess(errno, subject);
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
