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

// Until the streams are prepared, results go to the usual descriptor.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
int resultDescriptor = STDOUT_FILENO;

/// Reserves the caller's standard output for results. The libraries and modules of this process may
/// print, and their output must not be taken for a result. If no descriptor is left for this,
/// nothing that would print can be opened or loaded either.
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
      // The caller made the stream non-blocking for itself, and thereby for this process.
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
      // open(2) returns the lowest free number. The stream is opened in the wrong direction, so
      // that using it still fails.
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
