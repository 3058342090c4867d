// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

#include "LumaretMacHelper/Platform.hpp"

namespace lumaret {
namespace {

/// Returns 0, or the error that stopped it.
int writeAll(int descriptor, std::string_view text) noexcept {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {
      // The caller made its end of the pipe non-blocking, and with it this one.
      pollfd writable = {descriptor, POLLOUT, 0};
      ::poll(&writable, 1, -1);
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

}  // namespace

void prepareStandardStreams() noexcept {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(descriptor, F_GETFD) < 0 && errno == EBADF) {
      // open(2) takes the lowest free number. The wrong direction keeps each use an error.
      ::open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
  }
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));  // A file over its limit is an error too.
}

void writeStandardOutput(std::string_view text) {
  if (const int error = writeAll(STDOUT_FILENO, text); error != 0) {
    throw std::system_error(error, std::generic_category(), "Standard output could not be written");
  }
}

void writeStandardError(std::string_view text) noexcept { writeAll(STDERR_FILENO, text); }

}  // namespace lumaret
