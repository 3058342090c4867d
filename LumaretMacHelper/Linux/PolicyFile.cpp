#include "PolicyFile.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <utility>

#include "FileDescriptor.hpp"

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

void makeFolder(const std::filesystem::path& folder) {
  if (::mkdir(folder.c_str(), 0755) == 0) {
    check(::chmod(folder.c_str(), 0755), folder);  // The umask had its say.
  } else if (errno == ENOENT && folder.has_relative_path()) {
    makeFolder(folder.parent_path());
    makeFolder(folder);
  } else if (errno != EEXIST) {
    check(-1, folder);
  }
}

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

  /// Owner, permissions and access-control list of the file that is to be replaced.
  void takeAccessFrom(const std::filesystem::path& file) {
    struct stat status {};
    if (::stat(file.c_str(), &status) != 0) {
      check(::fchmod(descriptor_.number(), readableByAll | S_IWUSR), path_);
      return;
    }
    check(::fchown(descriptor_.number(), status.st_uid, status.st_gid), path_);
    check(::fchmod(descriptor_.number(), (status.st_mode & 0777) | readableByAll), path_);
    constexpr const char* accessList = "system.posix_acl_access";
    std::array<char, 4096> list{};
    const ssize_t size = ::getxattr(file.c_str(), accessList, list.data(), list.size());
    if (size > 0) {
      check(::fsetxattr(descriptor_.number(), accessList, list.data(),
                        static_cast<std::size_t>(size), 0),
            path_);
    }
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
  StagedFile staged(file.parent_path().parent_path());
  staged.write(bytes);
  staged.takeAccessFrom(file);
  staged.renameTo(file);
}

/// One write that covers the old text, blanks at its end where the new one is shorter, and only
/// then the new length: the file is whole at any moment. Room is reserved first, so that a full
/// disk is found before anything changes.
void rewriteInPlace(const std::filesystem::path& file, const std::string& bytes) {
  const FileDescriptor descriptor(
      check(::open(file.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC), file));
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
