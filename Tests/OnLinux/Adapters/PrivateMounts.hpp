// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

namespace lumaret::tests {

/// Mounts empty folders over those of browsers and their policies, and over that of locks, for this
/// process only.
class PrivateMounts {
 public:
  PrivateMounts() {
    // A child of a process that has entered gets mounts apart from its parent's.
    static pid_t inside = 0;
    if (inside != ::getpid()) {
      enter();
      inside = ::getpid();
    }
    for (const char* folder : {"/opt", "/etc/opt", "/etc/chromium", "/run"}) {
      if (std::filesystem::is_directory(folder)) {
        check(::mount("none", folder, "tmpfs", 0, "mode=0755"));
        mounted_.emplace_back(folder);
      }
    }
  }
  PrivateMounts(const PrivateMounts&) = delete;
  PrivateMounts& operator=(const PrivateMounts&) = delete;
  ~PrivateMounts() {
    for (const std::string& folder : mounted_) {
      ::umount2(folder.c_str(), MNT_DETACH);
    }
  }

  void makeReadOnly() const {
    for (const std::string& folder : mounted_) {
      check(::mount("none", folder.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr));
    }
  }

 private:
  static void check(int result) {
    if (result != 0) {
      throw std::system_error(errno, std::generic_category(), "private mounts");
    }
  }

  static void enter() {
    const std::string user = std::to_string(::geteuid());
    const std::string group = std::to_string(::getegid());
    if (::geteuid() == 0) {
      check(::unshare(CLONE_NEWNS));
    } else {
      check(::unshare(CLONE_NEWUSER | CLONE_NEWNS));
      std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
      std::ofstream("/proc/self/setgroups") << "deny";
      std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
    }
    check(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr));
  }

  std::vector<std::string> mounted_;
};

}  // namespace lumaret::tests
