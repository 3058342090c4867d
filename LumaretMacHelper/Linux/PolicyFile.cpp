// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/PolicyFile.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "LumaretMacHelper/POSIX/FileDescriptor.hpp"

namespace lumaret {
namespace {

constexpr mode_t readableByAll = S_IRUSR | S_IRGRP | S_IROTH;

/// Throws the last error of the system when the result tells of one.
template <typename Result>
Result check(Result result, const std::filesystem::path& path) {
  if (result < 0) {
    throw std::system_error(errno, std::generic_category(), path.string());
  }
  return result;
}

void writeAll(const FileDescriptor& file, std::string_view bytes,
              const std::filesystem::path& path) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(file.number(), bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) {
      continue;
    }
    bytes.remove_prefix(static_cast<std::size_t>(check(written, path)));
  }
}

/// Returns 0, or the error. The umask is put aside, not mended afterwards: a run that ended in
/// between would leave a folder that no browser can enter, and the next one would find it made.
int makeOneFolder(const std::filesystem::path& folder) {
  const mode_t mask = ::umask(0);
  const int error = ::mkdir(folder.c_str(), 0755) == 0 ? 0 : errno;
  ::umask(mask);
  return error;
}

/// Makes the folder and those above it that are missing. A dangling link on the way exists, and yet
/// nothing can be made below it: that is an error.
void makeFolder(const std::filesystem::path& folder) {
  int error = makeOneFolder(folder);
  if (error == ENOENT && folder.has_relative_path()) {
    makeFolder(folder.parent_path());
    error = makeOneFolder(folder);
  }
  if (error != 0 && error != EEXIST) {
    throw std::system_error(error, std::generic_category(), folder.string());
  }
}

/// Keeps runs that would meet in one file apart until the descriptor is closed. A lock for writing
/// takes a descriptor for writing, so that nobody else can keep readers out; a writer waits only so
/// long, for whoever may read the file may hold a lock.
void awaitLock(const FileDescriptor& file, short type, const std::filesystem::path& path) {
  struct flock wholeFile {};
  wholeFile.l_type = type;
  wholeFile.l_whence = SEEK_SET;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (::fcntl(file.number(), F_OFD_SETLK, &wholeFile) != 0) {
    if (errno != EAGAIN && errno != EACCES) {
      return;  // The file system has no locks.
    }
    if (std::chrono::steady_clock::now() > deadline) {
      throw std::system_error(std::make_error_code(std::errc::timed_out), path.string());
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

/// Puts signals off: one that ends the process in the middle of a long write leaves half of it.
class SignalsPutOff {
 public:
  SignalsPutOff() {
    sigset_t all;
    ::sigfillset(&all);
    ::sigprocmask(SIG_BLOCK, &all, &before_);
  }
  SignalsPutOff(const SignalsPutOff&) = delete;
  SignalsPutOff& operator=(const SignalsPutOff&) = delete;
  ~SignalsPutOff() { ::sigprocmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

/// A file under a name of its own, which goes unless it is renamed.
class StagedFile {
 public:
  explicit StagedFile(const std::filesystem::path& folder)
      : path_(folder / ".lumaret-macos-helper.XXXXXX"),
        descriptor_(check(::mkostemp(path_.data(), O_CLOEXEC), folder)) {}
  StagedFile(const StagedFile&) = delete;
  StagedFile& operator=(const StagedFile&) = delete;
  ~StagedFile() {
    if (!path_.empty()) {
      ::unlink(path_.c_str());
    }
  }

  void write(std::string_view bytes) {
    writeAll(descriptor_, bytes, path_);
    check(::fsync(descriptor_.number()), path_);
  }

  /// Owner, permissions and access-control list of the file that is to be replaced. A link is not:
  /// whoever put it there wanted the file that it leads to.
  void takeAccessFrom(const std::filesystem::path& file) {
    struct stat status {};
    if (::lstat(file.c_str(), &status) != 0) {
      if (errno != ENOENT) {
        check(-1, file);
      }
      check(::fchmod(descriptor_.number(), readableByAll | S_IWUSR), path_);
      return;
    }
    if (S_ISLNK(status.st_mode)) {
      throw std::system_error(std::make_error_code(std::errc::too_many_symbolic_link_levels),
                              file.string());
    }
    check(::fchown(descriptor_.number(), status.st_uid, status.st_gid), path_);
    constexpr const char* accessList = "system.posix_acl_access";
    std::array<char, 4096> list{};
    const ssize_t size = ::getxattr(file.c_str(), accessList, list.data(), list.size());
    if (size > 0) {
      check(::fsetxattr(descriptor_.number(), accessList, list.data(),
                        static_cast<std::size_t>(size), 0),
            path_);
    } else if (errno != ENODATA && errno != EOPNOTSUPP) {
      check(size, file);
    }
    // After the list, whose entry for all others it may have to open.
    check(::fchmod(descriptor_.number(), (status.st_mode & 0777) | readableByAll), path_);
  }

  void renameTo(const std::filesystem::path& file) {
    check(::rename(path_.c_str(), file.c_str()), file);
    path_.clear();
  }

 private:
  std::string path_;
  FileDescriptor descriptor_;
};

void replaceFile(const std::filesystem::path& file, std::string_view bytes) {
  // Where the folder is a link, beside the folder that it leads to: a file is renamed within one
  // file system.
  StagedFile staged(std::filesystem::canonical(file.parent_path()).parent_path());
  staged.write(bytes);
  staged.takeAccessFrom(file);
  staged.renameTo(file);
}

/// One write that covers the old text, blanks at its end where the new one is shorter, and only
/// then the new length: the file is whole at any moment, but for a kill in the middle of a long
/// write. Room is reserved first, so that a full disk is found before anything changes.
void rewriteInPlace(const std::filesystem::path& file, const std::string& bytes) {
  const FileDescriptor descriptor(
      check(::open(file.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC), file));
  awaitLock(descriptor, F_WRLCK, file);
  struct stat status {};
  check(::fstat(descriptor.number(), &status), file);
  const auto length = static_cast<off_t>(bytes.size());
  if (::fallocate(descriptor.number(), FALLOC_FL_KEEP_SIZE, 0, length) != 0 &&
      errno != EOPNOTSUPP) {
    check(-1, file);
  }
  std::string padded = bytes;
  if (status.st_size > length) {
    padded.resize(static_cast<std::size_t>(status.st_size), '\n');
  }
  const SignalsPutOff untilWritten;
  writeAll(descriptor, padded, file);
  check(::ftruncate(descriptor.number(), length), file);
  check(::fsync(descriptor.number()), file);
}

bool isRefusal(const std::error_code& error) {
  return error == std::errc::permission_denied || error == std::errc::operation_not_permitted;
}

}  // namespace

std::optional<std::string> readPolicyFile(const std::filesystem::path& file) {
  const FileDescriptor descriptor(::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!descriptor && errno == ENOENT) {
    return std::nullopt;
  }
  struct stat status {};
  check(::fstat(check(descriptor.number(), file), &status), file);
  if (!S_ISREG(status.st_mode)) {
    throw std::system_error(std::make_error_code(std::errc::not_supported), file.string());
  }
  awaitLock(descriptor, F_RDLCK, file);
  std::string bytes;
  std::array<char, 65536> buffer{};
  while (true) {
    const ssize_t count = ::read(descriptor.number(), buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (check(count, file) == 0) {
      return bytes;
    }
    bytes.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

void writePolicyFile(const std::filesystem::path& file, const std::string& bytes) {
  try {
    makeFolder(file.parent_path());
    replaceFile(file, bytes);
  } catch (const std::system_error& error) {
    if (!isRefusal(error.code())) {
      throw;
    }
    rewriteInPlace(file, bytes);
  }
}

bool synchronizeFolder(const std::filesystem::path& folder) {
  const FileDescriptor descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return descriptor && ::fsync(descriptor.number()) == 0;
}

}  // namespace lumaret
