// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/PolicyFile.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <system_error>

#include "LumaretMacHelper/POSIX/FileDescriptor.hpp"
#include "LumaretMacHelper/POSIX/ScopeExit.hpp"
#include "LumaretMacHelper/POSIX/SystemCalls.hpp"

namespace lumaret {
namespace {

/// Returns 0, or the error. The umask is cleared for the call, since a run that is killed before it
/// mends the permissions would leave a folder that no browser can enter, and the next run would
/// keep it. chmod undoes an inherited default ACL.
int makeOneFolder(const std::filesystem::path& folder) {
  const mode_t mask = ::umask(0);
  const int error = ::mkdir(folder.c_str(), 0755) == 0 ? 0 : errno;
  ::umask(mask);
  return error == 0 && ::chmod(folder.c_str(), 0755) != 0 ? errno : error;
}

/// Creates the folder and its missing parents. Throws if there is a dangling link on the path.
void makeFolder(const std::filesystem::path& folder) {
  int error = makeOneFolder(folder);
  if (error == ENOENT && folder.has_relative_path()) {
    makeFolder(folder.parent_path());
    error = makeOneFolder(folder);
  }
  requireSuccess(error == EEXIST ? 0 : error, folder.c_str());
}

/// Lets every user read the file and only its owner write it, once a group or an ACL that the
/// folder hands down to new files is removed.
void openToEveryUser(int file, const char* path) {
  checked(::fchown(file, ::geteuid(), ::getegid()), path);
  if (::fremovexattr(file, "system.posix_acl_access") != 0 && errno != EOPNOTSUPP) {
    requireSuccess(errno == ENODATA ? 0 : errno, path);
  }
  checked(::fchmod(file, S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH), path);
}

mode_t modeOf(const FileDescriptor& file, const std::filesystem::path& path) {
  struct stat status = {};
  checked(::fstat(checked(file.number(), path.c_str()), &status), path.c_str());
  return status.st_mode;
}

/// Opens a file for reading if an ordinary user may read it. The folders on the path to a link's
/// target are opened one by one, so each is the one that was checked, even if names change
/// meanwhile.
FileDescriptor openAsEveryUserMay(const std::filesystem::path& file) {
  constexpr int reading = O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC;
  FileDescriptor opened;
  if (!std::filesystem::is_symlink(file)) {
    opened = FileDescriptor(::open(file.c_str(), reading));
  } else {
    const std::filesystem::path target = std::filesystem::canonical(file).relative_path();
    opened = FileDescriptor(::open("/", O_PATH | O_CLOEXEC));
    for (auto name = target.begin(); name != target.end(); ++name) {
      require((modeOf(opened, file) & S_IXOTH) != 0, std::errc::permission_denied, file.c_str());
      const bool isLast = std::next(name) == target.end();
      opened = FileDescriptor(::openat(opened.number(), name->c_str(),
                                       isLast ? reading : O_PATH | O_NOFOLLOW | O_CLOEXEC));
    }
  }
  const mode_t mode = modeOf(opened, file);
  require(S_ISREG(mode), std::errc::not_supported, file.c_str());
  require((mode & S_IROTH) != 0, std::errc::permission_denied, file.c_str());
  return opened;
}

std::string readWhole(const FileDescriptor& file, const std::filesystem::path& path) {
  std::string bytes;
  std::array<char, 4096> buffer{};
  while (true) {
    const ssize_t count = ::read(file.number(), buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (checked(count, path.c_str()) == 0) {
      return bytes;
    }
    bytes.append(buffer.data(), static_cast<std::size_t>(count));
    require(bytes.size() <= largestPolicyFile, std::errc::file_too_large, path.c_str());
  }
}

/// Whoever created a link wanted another file to be used. Replacing or removing it would undo that.
void refuseLink(const std::filesystem::path& file) {
  require(!std::filesystem::is_symlink(file), std::errc::too_many_symbolic_link_levels,
          file.c_str());
}

}  // namespace

std::optional<std::string> readPolicyFile(const std::filesystem::path& file) {
  try {
    return readWhole(openAsEveryUserMay(file), file);
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) {
      return std::nullopt;
    }
    throw;
  }
}

void replacePolicyFile(const std::filesystem::path& file, const std::string& bytes) {
  require(bytes.size() <= largestPolicyFile, std::errc::file_too_large, file.c_str());
  makeFolder(file.parent_path());
  refuseLink(file);
  // Beside the target of a folder that is a link: a file is only renamed within one file system.
  std::string staged =
      std::filesystem::canonical(file.parent_path()).parent_path() / ".lumaret-macos-helper.XXXXXX";
  const FileDescriptor descriptor(checked(::mkostemp(staged.data(), O_CLOEXEC), staged.c_str()));
  const ScopeExit removeStaged([&] { ::unlink(staged.c_str()); });
  writeAll(descriptor.number(), bytes, staged.c_str());
  openToEveryUser(descriptor.number(), staged.c_str());
  checked(::fsync(descriptor.number()), staged.c_str());
  checked(::rename(staged.c_str(), file.c_str()), file.c_str());
  staged.clear();  // Nothing is left to remove.
}

void removePolicyFile(const std::filesystem::path& file) {
  refuseLink(file);
  std::filesystem::remove(file);
}

bool isOpenToEveryUser(const std::filesystem::path& folder) {
  std::error_code missing;
  for (std::filesystem::path place : {folder, std::filesystem::weakly_canonical(folder, missing)}) {
    for (mode_t wanted = S_IROTH | S_IXOTH;; wanted = S_IXOTH) {
      struct stat status = {};
      if (::stat(place.c_str(), &status) != 0 ? errno != ENOENT
                                              : (status.st_mode & wanted) != wanted) {
        return false;
      }
      if (!place.has_relative_path()) {
        break;
      }
      place = place.parent_path();
    }
  }
  return true;
}

}  // namespace lumaret
