// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/POSIX/Process.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "LumaretMacHelper/POSIX/DescriptorInheritance.hpp"
#include "LumaretMacHelper/POSIX/ScopeExit.hpp"
#include "LumaretMacHelper/POSIX/SystemCalls.hpp"

// POSIX leaves this declaration to the program. glibc declares it as well.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables,readability-redundant-declaration)
extern char** environ;

namespace lumaret {
namespace {

/// The caller may have ignored or blocked signals, and the tool itself ignores broken pipes. No
/// process that it starts inherits that.
void resetSignals(posix_spawnattr_t* attributes) {
  sigset_t signals;
  sigfillset(&signals);  // Unqualified, as below: on macOS these two are macros.
  requireSuccess(::posix_spawnattr_setsigdefault(attributes, &signals));
  sigemptyset(&signals);
  requireSuccess(::posix_spawnattr_setsigmask(attributes, &signals));
}

/// `group` is the spawn flag of a new process group or session; 0 for the tool's own. In a new
/// session, all three streams are /dev/null.
pid_t spawn(const std::filesystem::path& executable, const std::vector<std::string>& arguments,
            int output, int group) {
  // posix_spawn takes pointers to writable strings, but does not write to them.
  std::vector<char*> argv = {const_cast<char*>(executable.c_str())};
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions{};
  requireSuccess(::posix_spawn_file_actions_init(&actions));
  const ScopeExit destroyActions([&] { ::posix_spawn_file_actions_destroy(&actions); });
  if (group == POSIX_SPAWN_SETSID) {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      requireSuccess(::posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", O_RDWR, 0));
    }
  } else {
    requireSuccess(::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO));
  }

  posix_spawnattr_t attributes{};
  requireSuccess(::posix_spawnattr_init(&attributes));
  const ScopeExit destroyAttributes([&] { ::posix_spawnattr_destroy(&attributes); });
  resetSignals(&attributes);
  const int flags =
      POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | group | inheritStandardStreamsAlone(actions);
  requireSuccess(::posix_spawnattr_setflags(&attributes, static_cast<short>(flags)));

  pid_t process = 0;
  requireSuccess(
      ::posix_spawn(&process, executable.c_str(), &actions, &attributes, argv.data(), environ),
      executable.c_str());
  return process;
}

std::int32_t spawnAndAwait(const std::filesystem::path& executable,
                           const std::vector<std::string>& arguments, int output, int group) {
  // If the caller has ignored SIGCHLD, the kernel drops the status.
  static_cast<void>(std::signal(SIGCHLD, SIG_DFL));
  const pid_t process = spawn(executable, arguments, output, group);
  int status = 0;
  while (::waitpid(process, &status, 0) < 0) {
    requireSuccess(errno == EINTR ? 0 : errno);
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status);
}

}  // namespace

bool isExecutableFile(const std::filesystem::path& path) {
  return ::access(path.c_str(), X_OK) == 0;
}

void startProcess(const std::filesystem::path& executable,
                  const std::vector<std::string>& arguments, int output) {
  spawn(executable, arguments, output, POSIX_SPAWN_SETPGROUP);
}

std::int32_t runProcess(const std::filesystem::path& executable,
                        const std::vector<std::string>& arguments, int output) {
  return spawnAndAwait(executable, arguments, output, 0);
}

std::int32_t runUnseen(const std::filesystem::path& executable,
                       const std::vector<std::string>& arguments) {
  return spawnAndAwait(executable, arguments, STDOUT_FILENO, POSIX_SPAWN_SETSID);
}

}  // namespace lumaret
