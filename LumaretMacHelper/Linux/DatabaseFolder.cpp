// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/DatabaseFolder.hpp"

#include <algorithm>
#include <array>
#include <fstream>
#include <string>
#include <system_error>

#include "LumaretMacHelper/Linux/UserFolders.hpp"

namespace lumaret {
namespace {

constexpr std::array stores = {"cert9.db", "key4.db"};
constexpr const char* moduleList = "pkcs11.txt";

/// Also true if the path cannot be examined: that does not mean that nothing is there.
bool mayExist(const std::filesystem::path& path) {
  std::error_code error;
  return std::filesystem::symlink_status(path, error).type() !=
         std::filesystem::file_type::not_found;
}

/// Whether the path leads to something other than a regular file. Opening a pipe waits for somebody
/// at its other end, and reading a device may never end.
bool isSomethingElse(const std::filesystem::path& file) {
  std::error_code error;
  const auto type = std::filesystem::status(file, error).type();
  return !error && type != std::filesystem::file_type::regular;
}

/// A SQLite file consists of whole pages, whose size is in its header. SQLite would read the
/// missing part of the last page as zeros.
bool isCutShort(const std::filesystem::path& file) {
  std::array<unsigned char, 18> header{};
  std::ifstream stream(file, std::ios::binary);
  if (!stream.read(reinterpret_cast<char*>(header.data()), header.size())) {
    return false;  // NSS reports what is wrong with it.
  }
  const unsigned pageSize = header[16] * 256U + header[17];
  std::error_code error;
  const auto size = std::filesystem::file_size(file, error);
  return !error && size % (pageSize == 1 ? 65536 : std::max(pageSize, 1U)) != 0;
}

}  // namespace

std::filesystem::path databaseFolder() {
  const auto folder = homeFolder() / ".pki/nssdb";
  std::error_code error;
  // A dangling link counts as missing, as it does for Chrome.
  const bool isMissing =
      std::filesystem::status(folder, error).type() == std::filesystem::file_type::not_found;
  return isMissing ? dataHomeFolder() / "pki/nssdb" : folder;
}

bool isDatabaseMissing(const std::filesystem::path& folder) {
  std::error_code ignored;
  if (mayExist(folder) && !std::filesystem::is_directory(folder, ignored)) {
    return false;
  }
  return std::none_of(stores.begin(), stores.end(),
                      [&](const char* file) { return mayExist(folder / file); }) &&
         !mayExist(folder / moduleList);
}

bool isDatabaseDamaged(const std::filesystem::path& folder) {
  return isSomethingElse(folder / moduleList) ||
         std::any_of(stores.begin(), stores.end(), [&](const std::string& store) {
           // SQLite also opens the files in which an interrupted program left its changes.
           return isSomethingElse(folder / store) ||
                  isSomethingElse(folder / (store + "-journal")) ||
                  isSomethingElse(folder / (store + "-wal")) || isCutShort(folder / store);
         });
}

}  // namespace lumaret
