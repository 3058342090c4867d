// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/POSIX/StandardStreams.hpp"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

#include "LumaretMacHelper/Platform.hpp"

namespace lumaret {
namespace {

// What is written before the streams are prepared goes to the usual place.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
int resultDescriptor = STDOUT_FILENO;

/// Keeps the caller's standard output for results alone: the libraries and modules of this process
/// may print, and what they print must not be taken for a result. Where no descriptor is left for
/// that, nothing can be opened or loaded that would print.
void keepStandardOutputApart() noexcept {
  const int kept = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (kept >= 0) {
    resultDescriptor = kept;
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
  }
}

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
  keepStandardOutputApart();
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));  // A file over its limit is an error too.
}

int callersStandardOutput() noexcept { return resultDescriptor; }

void writeStandardOutput(std::string_view text) {
  if (const int error = writeAll(resultDescriptor, text); error != 0) {
    throw std::system_error(error, std::generic_category(), "Standard output could not be written");
  }
}

void writeStandardError(std::string_view text) noexcept { writeAll(STDERR_FILENO, text); }

}  // namespace lumaret
