// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/POSIX/StandardStreams.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <exception>

#include "LumaretMacHelper/POSIX/SystemCalls.hpp"
#include "LumaretMacHelper/PlatformFunctions.hpp"

namespace lumaret {
namespace {

// Until the streams are prepared, results go to the usual descriptor.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables)
int resultDescriptor = STDOUT_FILENO;

}  // namespace

void prepareStandardStreams() noexcept {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(descriptor, F_GETFD) < 0 && errno == EBADF) {
      // open(2) returns the lowest free number. In the wrong direction, so that using it fails.
      ::open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
  }
  // Reserves the caller's standard output for results, since libraries and modules of this process
  // may print. If no descriptor is left for this, nothing that would print can be loaded either.
  if (const int kept = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1); kept >= 0) {
    resultDescriptor = kept;
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
  }
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));  // A file over its limit is an error too.
}

int callersStandardOutput() noexcept { return resultDescriptor; }

void writeStandardOutput(std::string_view text) {
  writeAll(resultDescriptor, text, "Standard output could not be written");
}

void writeStandardError(std::string_view text) noexcept {
  try {
    writeAll(STDERR_FILENO, text, "");
  } catch (const std::exception&) {
    return;
  }
}

}  // namespace lumaret
