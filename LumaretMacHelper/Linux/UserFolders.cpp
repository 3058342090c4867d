// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/UserFolders.hpp"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <system_error>

namespace lumaret {
namespace {

std::optional<std::filesystem::path> absolutePath(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value == '/' ? std::optional<std::filesystem::path>(value)
                                           : std::nullopt;
}

}  // namespace

std::filesystem::path homeFolder() {
  std::error_code ignored;
  if (auto home = absolutePath("HOME"); home && std::filesystem::is_directory(*home, ignored)) {
    return *std::move(home);
  }
  const passwd* account = ::getpwuid(::geteuid());
  return account != nullptr && account->pw_dir != nullptr ? account->pw_dir : "/";
}

std::filesystem::path dataHomeFolder() {
  return absolutePath("XDG_DATA_HOME").value_or(homeFolder() / ".local/share");
}

std::filesystem::path configHomeFolder() {
  return absolutePath("XDG_CONFIG_HOME").value_or(homeFolder() / ".config");
}

}  // namespace lumaret
