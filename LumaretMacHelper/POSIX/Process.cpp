#include "Process.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <system_error>

#include "ChromeLauncher.hpp"

// POSIX leaves this declaration to the program; glibc makes it too.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables,readability-redundant-declaration)
extern char** environ;

namespace lumaret {
namespace {

void check(int error) {
  if (error != 0) {
    throw std::system_error(error, std::generic_category());
  }
}

class SpawnAttributes {
 public:
  SpawnAttributes() { check(::posix_spawnattr_init(&attributes_)); }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;
  ~SpawnAttributes() { ::posix_spawnattr_destroy(&attributes_); }

  /// The tool ignores broken pipes; what it starts must not inherit that.
  void prepare(bool ownProcessGroup) {
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    check(::posix_spawnattr_setsigdefault(&attributes_, &defaults));
    int flags = POSIX_SPAWN_SETSIGDEF;
    if (ownProcessGroup) {
      check(::posix_spawnattr_setpgroup(&attributes_, 0));
      flags |= POSIX_SPAWN_SETPGROUP;
    }
    check(::posix_spawnattr_setflags(&attributes_, static_cast<short>(flags)));
  }

  [[nodiscard]] const posix_spawnattr_t* get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_{};
};

class SpawnFileActions {
 public:
  SpawnFileActions() { check(::posix_spawn_file_actions_init(&actions_)); }
  SpawnFileActions(const SpawnFileActions&) = delete;
  SpawnFileActions& operator=(const SpawnFileActions&) = delete;
  ~SpawnFileActions() { ::posix_spawn_file_actions_destroy(&actions_); }

  void prepare(StandardOutput output) {
    if (output == StandardOutput::toStandardError) {
      check(::posix_spawn_file_actions_adddup2(&actions_, STDERR_FILENO, STDOUT_FILENO));
    }
  }

  [[nodiscard]] const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
};

/// A browser that lives for days must not hold a lock or a pipe that the tool's caller left open.
void keepOpenFilesFromChildren() {
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator("/dev/fd", ignored)) {
    const std::string name = entry.path().filename().string();
    int descriptor = -1;
    std::from_chars(name.data(), name.data() + name.size(), descriptor);
    if (descriptor > STDERR_FILENO) {
      ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    }
  }
}

int awaitExit(pid_t process) {
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
  std::error_code ignored;
  return std::filesystem::is_regular_file(path, ignored) && ::access(path.c_str(), X_OK) == 0;
}

void runProcess(const std::filesystem::path& executable, const std::vector<std::string>& arguments,
                bool waitUntilExit, StandardOutput output) {
  // posix_spawn takes writable texts and does not write them.
  std::vector<char*> argv = {const_cast<char*>(executable.c_str())};
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);

  if (waitUntilExit) {
    // A caller that ignores this signal would have the kernel drop the exit status.
    static_cast<void>(std::signal(SIGCHLD, SIG_DFL));
  }
  keepOpenFilesFromChildren();
  SpawnAttributes attributes;
  attributes.prepare(/*ownProcessGroup=*/!waitUntilExit);
  SpawnFileActions fileActions;
  fileActions.prepare(output);
  pid_t process = 0;
  const int error = ::posix_spawn(&process, executable.c_str(), fileActions.get(), attributes.get(),
                                  argv.data(), environ);
  if (error != 0) {
    throw std::system_error(error, std::generic_category(), executable.string());
  }
  if (waitUntilExit) {
    if (const int status = awaitExit(process); status != 0) {
      throw ChromeProcessError::unsuccessfulExit(status);
    }
  }
}

}  // namespace lumaret
