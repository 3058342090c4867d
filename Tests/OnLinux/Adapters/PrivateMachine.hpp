// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "LumaretMacHelper/POSIX/SystemCalls.hpp"
#include "Tests/Support/Cpp/TemporaryFolder.hpp"

namespace lumaret::tests {

/// A private home folder, without the variables that lead elsewhere.
class TemporaryHome : public TemporaryFolder {
 public:
  TemporaryHome() {
    ::setenv("HOME", path().c_str(), 1);
    for (const char* name : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "CHROME_CONFIG_HOME",
                             "CHROME_USER_DATA_DIR", "LANG", "LC_ALL", "LC_COLLATE"}) {
      ::unsetenv(name);
    }
  }
};

/// Mounts empty folders over those of browsers and their policies, over that of locks, and over
/// the others, for this process only.
class PrivateMounts {
 public:
  explicit PrivateMounts(std::vector<std::string> others = {}) : mounted_(std::move(others)) {
    // A child of a process that has entered gets mounts apart from its parent's.
    static pid_t inside = 0;
    if (inside != ::getpid()) {
      enter();
      inside = ::getpid();
    }
    mounted_.insert(mounted_.end(), {"/opt", "/etc/opt", "/run"});
    if (std::filesystem::is_directory("/etc/chromium")) {
      mounted_.emplace_back("/etc/chromium");
    }
    for (const std::string& folder : mounted_) {
      checked(::mount("none", folder.c_str(), "tmpfs", 0, "mode=0755"), folder.c_str());
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
      checked(::mount("none", folder.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr));
    }
  }

 private:
  static void enter() {
    const std::string user = std::to_string(::geteuid());
    const std::string group = std::to_string(::getegid());
    if (::geteuid() == 0) {
      checked(::unshare(CLONE_NEWNS));
    } else {
      checked(::unshare(CLONE_NEWUSER | CLONE_NEWNS), "a private user namespace");
      std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
      std::ofstream("/proc/self/setgroups") << "deny";
      std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
    }
    checked(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr));
  }

  std::vector<std::string> mounted_;
};

}  // namespace lumaret::tests
