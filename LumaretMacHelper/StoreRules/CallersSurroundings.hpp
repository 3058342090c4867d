// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace lumaret {

/// Puts away what this process got from whoever had root start it, before anything is done for
/// them: the environment; the working folder; the umask; every open file but the standard streams;
/// the disposition and the mask of signals, none of which interrupts or stops this process from now
/// on (but SIGKILL and SIGSTOP, which the caller cannot send to root); a low priority for the
/// processor or the disk, the choice of a processor and inexact timers; and the limits for memory,
/// the stack, time, open files and the size of files, as far as root may raise them.
void leaveCallersSurroundings();

}  // namespace lumaret
