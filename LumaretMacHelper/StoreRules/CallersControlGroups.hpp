// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace lumaret {

/// Moves this process from the control groups that it got from whoever had root start it to the
/// topmost one of each hierarchy, or where that takes no process, to one of root's own right below
/// it. A caller may own a group, and could freeze in it what root does for them, or have it wait
/// for the processor.
///
/// Returns without having moved where there is nothing to leave: in the topmost group that is
/// mounted, and of hierarchies of which nothing is. Throws std::runtime_error where a group cannot
/// be left, or /proc/self does not tell which ones there are.
void leaveCallersControlGroups();

}  // namespace lumaret
