// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace lumaret {

/// Moves this process out of the control groups of the caller for whom root started it. A caller
/// may own a group, and could freeze the process in it or keep it from getting the processor. In
/// each hierarchy, the process moves to the topmost group that is mounted. If that takes no
/// process, it moves to a group that root makes right below it.
///
/// Stays where there is nothing to leave: in the topmost group that is mounted, and in a hierarchy
/// that is not mounted. Throws std::runtime_error if a group cannot be left, or if /proc/self does
/// not tell which groups there are.
void leaveCallersControlGroups();

}  // namespace lumaret
