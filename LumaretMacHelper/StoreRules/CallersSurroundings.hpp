// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace lumaret {

/// Discards what this process inherited from the caller for whom root started it. Call this before
/// anything is done for the caller.
///
/// Clears the environment, changes to the root folder, sets the umask, and closes every open file
/// except the standard streams. Gives every signal its default disposition and blocks it: none
/// interrupts or stops this process from now on, except SIGKILL and SIGSTOP, which the caller
/// cannot send to root. Takes the usual priority for the processor and the disk, any processor, and
/// exact timers. Raises the limits for memory, the stack, processor time, open files and the size
/// of files as far as root may.
void leaveCallersSurroundings();

}  // namespace lumaret
