// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/ProfileLock.hpp"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fstream>
#include <string>
#include <system_error>

#include "LumaretMacHelper/POSIX/FileDescriptor.hpp"

namespace lumaret {
namespace {

/// Empty when it cannot be told.
std::string hostName() {
  std::array<char, HOST_NAME_MAX + 1> name{};
  return ::gethostname(name.data(), name.size()) == 0 ? name.data() : "";
}

/// From the kernel's own account of the process, since a finished one keeps its number until its
/// parent asks.
bool isLiveProcessOfThisUser(const std::string& process) {
  std::ifstream status("/proc/" + process + "/status");
  bool live = false;
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("State:")) {
      live = line.find_first_of("ZX", std::strlen("State:")) == std::string::npos;
    } else if (line.starts_with("Uid:")) {
      return live && std::stoul(line.substr(std::strlen("Uid:"))) == ::geteuid();
    }
  }
  return false;
}

/// A socket that nobody listens on any more is what a crash left.
bool isAbandoned(const std::filesystem::path& socketLink) {
  std::error_code error;
  const std::string target = std::filesystem::read_symlink(socketLink, error).string();
  sockaddr_un address{};
  if (error || target.size() >= sizeof(address.sun_path)) {
    return false;
  }
  address.sun_family = AF_UNIX;
  target.copy(address.sun_path, target.size());
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  return socket &&
         ::connect(socket.number(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
             0 &&
         (errno == ECONNREFUSED || errno == ENOENT);
}

}  // namespace

bool isProfileLocked(const std::filesystem::path& userDataFolder) {
  std::error_code error;
  const std::string lock =
      std::filesystem::read_symlink(userDataFolder / "SingletonLock", error).string();
  const std::size_t dash = lock.rfind('-');  // A host's name may hold some too.
  if (error || dash == std::string::npos) {
    return false;
  }
  const std::string process = lock.substr(dash + 1);
  const bool isNumber =
      !process.empty() && process.find_first_not_of("0123456789") == std::string::npos;
  return isNumber && lock.substr(0, dash) == hostName() && isLiveProcessOfThisUser(process) &&
         !isAbandoned(userDataFolder / "SingletonSocket");
}

}  // namespace lumaret
