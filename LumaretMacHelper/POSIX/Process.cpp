// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/POSIX/Process.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <optional>
#include <system_error>

#include "LumaretMacHelper/POSIX/DescriptorInheritance.hpp"
#include "LumaretMacHelper/POSIX/StandardStreams.hpp"

// POSIX leaves this declaration to the program. glibc declares it as well.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables,readability-redundant-declaration)
extern char** environ;

namespace lumaret {
namespace {

enum class ProcessGroup : std::uint8_t { ofTheTool, itsOwn, ofASessionOfItsOwn };

void check(int error) {
  if (error != 0) {
    throw std::system_error(error, std::generic_category());
  }
}

class SpawnFileActions {
 public:
  /// Without a destination, the process reads nothing and its output is discarded.
  explicit SpawnFileActions(std::optional<StandardOutput> output) : SpawnFileActions() {
    if (output) {
      check(::posix_spawn_file_actions_adddup2(&actions_, destinationOf(*output), STDOUT_FILENO));
    } else {
      for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        check(::posix_spawn_file_actions_addopen(&actions_, stream, "/dev/null", O_RDWR, 0));
      }
    }
    flags_ = inheritStandardStreamsAlone(actions_);
  }
  SpawnFileActions(const SpawnFileActions&) = delete;
  SpawnFileActions& operator=(const SpawnFileActions&) = delete;
  ~SpawnFileActions() { ::posix_spawn_file_actions_destroy(&actions_); }

  [[nodiscard]] const posix_spawn_file_actions_t* get() const { return &actions_; }
  /// The flags that the spawn attributes of the same process need.
  [[nodiscard]] short flags() const { return flags_; }

 private:
  // The other constructor delegates to this one, so if it throws, the destructor runs.
  SpawnFileActions() { check(::posix_spawn_file_actions_init(&actions_)); }
  static int destinationOf(StandardOutput output) {
    return output == StandardOutput::inherited ? callersStandardOutput() : STDERR_FILENO;
  }

  posix_spawn_file_actions_t actions_{};
  short flags_ = 0;
};

class SpawnAttributes {
 public:
  /// The tool's caller may have ignored or blocked signals, and the tool itself ignores broken
  /// pipes. A process that it starts must not inherit that.
  SpawnAttributes(ProcessGroup group, short furtherFlags) : SpawnAttributes() {
    sigset_t signals;
    sigfillset(&signals);  // Unqualified, as below: on macOS these two are macros.
    check(::posix_spawnattr_setsigdefault(&attributes_, &signals));
    sigemptyset(&signals);
    check(::posix_spawnattr_setsigmask(&attributes_, &signals));
    int flags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | furtherFlags;
    if (group == ProcessGroup::itsOwn) {
      check(::posix_spawnattr_setpgroup(&attributes_, 0));
      flags |= POSIX_SPAWN_SETPGROUP;
    } else if (group == ProcessGroup::ofASessionOfItsOwn) {
      flags |= POSIX_SPAWN_SETSID;
    }
    check(::posix_spawnattr_setflags(&attributes_, static_cast<short>(flags)));
  }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;
  ~SpawnAttributes() { ::posix_spawnattr_destroy(&attributes_); }

  [[nodiscard]] const posix_spawnattr_t* get() const { return &attributes_; }

 private:
  SpawnAttributes() { check(::posix_spawnattr_init(&attributes_)); }

  posix_spawnattr_t attributes_{};
};

pid_t spawn(const std::filesystem::path& executable, const std::vector<std::string>& arguments,
            const SpawnFileActions& fileActions, ProcessGroup group) {
  // posix_spawn takes pointers to writable strings, but does not write to them.
  std::vector<char*> argv = {const_cast<char*>(executable.c_str())};
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);

  const SpawnAttributes attributes(group, fileActions.flags());
  pid_t process = 0;
  const int error = ::posix_spawn(&process, executable.c_str(), fileActions.get(), attributes.get(),
                                  argv.data(), environ);
  if (error != 0) {
    throw std::system_error(error, std::generic_category(), executable.string());
  }
  return process;
}

/// If a process ignores SIGCHLD, as its caller may have arranged, the kernel drops the exit status
/// of its children.
class KeptExitStatuses {
 public:
  KeptExitStatuses() {
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    ::sigaction(SIGCHLD, &action, &before_);
  }
  KeptExitStatuses(const KeptExitStatuses&) = delete;
  KeptExitStatuses& operator=(const KeptExitStatuses&) = delete;
  ~KeptExitStatuses() { ::sigaction(SIGCHLD, &before_, nullptr); }

 private:
  struct sigaction before_ = {};
};

std::int32_t awaitEnd(pid_t process) {
  int status = 0;
  while (::waitpid(process, &status, 0) < 0) {
    if (errno != EINTR) {
      throw std::system_error(errno, std::generic_category());
    }
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status);
}

}  // namespace

bool isExecutableFile(const std::filesystem::path& path) {
  return ::access(path.c_str(), X_OK) == 0;
}

void startProcess(const std::filesystem::path& executable,
                  const std::vector<std::string>& arguments, StandardOutput output) {
  spawn(executable, arguments, SpawnFileActions(output), ProcessGroup::itsOwn);
}

std::int32_t runProcess(const std::filesystem::path& executable,
                        const std::vector<std::string>& arguments, StandardOutput output) {
  const KeptExitStatuses untilAwaited;
  return awaitEnd(spawn(executable, arguments, SpawnFileActions(output), ProcessGroup::ofTheTool));
}

std::int32_t runUnseen(const std::filesystem::path& executable,
                       const std::vector<std::string>& arguments) {
  const KeptExitStatuses untilAwaited;
  return awaitEnd(spawn(executable, arguments, SpawnFileActions(std::nullopt),
                        ProcessGroup::ofASessionOfItsOwn));
}

}  // namespace lumaret
