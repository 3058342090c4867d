// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/StoreRules/CallersSurroundings.hpp"

#include <linux/ioprio.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

#include "LumaretMacHelper/PlatformFunctions.hpp"

namespace lumaret {
namespace {

/// Blocks every signal, so that no terminal can stop this process while others wait for it.
void blockSignals() {
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    static_cast<void>(std::signal(signal, SIG_DFL));  // Refused for those that have no other.
  }
  sigset_t all;
  ::sigfillset(&all);
  ::sigprocmask(SIG_SETMASK, &all, nullptr);
}

void raiseLimits() {
  for (const auto resource :
       {RLIMIT_AS, RLIMIT_CPU, RLIMIT_DATA, RLIMIT_FSIZE, RLIMIT_NOFILE, RLIMIT_STACK}) {
    struct rlimit limit = {};
    ::getrlimit(resource, &limit);
    // No system allows an unlimited number of open files.
    const rlim_t wanted = resource == RLIMIT_NOFILE ? 1024 : RLIM_INFINITY;
    if (limit.rlim_max < wanted) {
      const struct rlimit raised = {wanted, wanted};
      if (::setrlimit(resource, &raised) == 0) {
        continue;
      }
    }
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(resource, &limit);
  }
}

/// Takes the usual share of the processor and of the disk, and timers that end in time.
void takeTurnsAsOthersDo() {
  const sched_param ordinary{};
  ::sched_setscheduler(0, SCHED_OTHER, &ordinary);
  ::setpriority(PRIO_PROCESS, 0, 0);
  cpu_set_t processors;
  std::memset(&processors, 0xff, sizeof processors);
  ::sched_setaffinity(0, sizeof processors, &processors);
  ::syscall(SYS_ioprio_set, IOPRIO_WHO_PROCESS, 0, IOPRIO_PRIO_VALUE(IOPRIO_CLASS_NONE, 0));
  constexpr unsigned long nanoseconds = 50'000;  // The kernel's value for the first process.
  ::prctl(PR_SET_TIMERSLACK, nanoseconds);
}

}  // namespace

void leaveCallersSurroundings() {
  blockSignals();
  prepareStandardStreams();
  ::closefrom(STDERR_FILENO + 1);
  ::clearenv();
  // No home folder is used. Without this variable, the account database would be asked for one.
  ::setenv("HOME", "/", 1);
  ::umask(S_IWGRP | S_IWOTH);
  if (::chdir("/") != 0) {
    std::abort();
  }
  raiseLimits();
  takeTurnsAsOthersDo();
}

}  // namespace lumaret
