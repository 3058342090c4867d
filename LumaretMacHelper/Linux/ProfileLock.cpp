// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/ProfileLock.hpp"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <cstring>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "LumaretMacHelper/POSIX/FileDescriptor.hpp"

namespace lumaret {
namespace {

/// Empty if it is unknown.
std::string hostName() {
  std::array<char, HOST_NAME_MAX + 1> name{};
  return ::gethostname(name.data(), name.size()) == 0 ? name.data() : "";
}

/// The process number in decimal, as the kernel writes it; nothing for any other text.
std::optional<pid_t> processNumber(std::string_view text) {
  pid_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isWhole = error == std::errc() && end == text.data() + text.size();
  return isWhole && number > 0 && text.front() != '0' ? std::optional(number) : std::nullopt;
}

/// /proc alone tells whether the process is a zombie and, if this process is root, whose it is. If
/// /proc is hidden, a process that may be sent a signal counts as this user's live one.
bool isLiveProcessOfThisUser(pid_t process) {
  if (::kill(process, 0) != 0) {
    return false;
  }
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  bool live = !status && !std::ifstream("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("State:")) {
      live = line.find_first_of("ZX", std::strlen("State:")) == std::string::npos;
    } else if (line.starts_with("Uid:")) {
      return live && std::stoul(line.substr(std::strlen("Uid:"))) == ::geteuid();
    }
  }
  return live;
}

/// Whether it is certain that nobody listens at the browser's socket. If anything is unknown, it is
/// not certain.
bool isAbandoned(const std::filesystem::path& socketLink) {
  std::error_code error;
  auto place = socketLink.parent_path() / std::filesystem::read_symlink(socketLink, error);
  if (error == std::errc::invalid_argument) {
    place = socketLink;  // Not a link, but the socket of an old browser.
  } else if (error) {
    return false;
  }
  const auto type = std::filesystem::status(place, error).type();
  if (type != std::filesystem::file_type::socket) {
    return type != std::filesystem::file_type::none && type != std::filesystem::file_type::unknown;
  }
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (place.native().size() >= sizeof(address.sun_path)) {
    return false;
  }
  place.native().copy(address.sun_path, place.native().size());
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
  const std::size_t dash = lock.rfind('-');  // A host name may contain dashes too.
  if (error || dash == std::string::npos) {
    return false;
  }
  const auto process = processNumber(std::string_view(lock).substr(dash + 1));
  return process && lock.substr(0, dash) == hostName() && isLiveProcessOfThisUser(*process) &&
         !isAbandoned(userDataFolder / "SingletonSocket");
}

}  // namespace lumaret
