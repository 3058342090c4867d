// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/StoreRules/CallersControlGroups.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "LumaretMacHelper/POSIX/FileDescriptor.hpp"

// cgroups(7) and proc(5) describe the files that are read here.

namespace lumaret {
namespace {

struct Mount {
  std::string root;  // The path of the group that is mounted there.
  std::string place;
};

std::vector<std::string> linesOf(const std::string& path) {
  std::ifstream file(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    lines.push_back(line);
  }
  if (lines.empty() || file.bad()) {
    throw std::runtime_error("The caller's control groups are not known: " + path +
                             " could not be read.");
  }
  return lines;
}

/// The mount of the hierarchy with this controller or `name=`, or of version 2 if the argument is
/// empty. If parts of a hierarchy are mounted in several places, the one with the shortest root is
/// the highest.
std::optional<Mount> mountOf(const std::string& controller) {
  std::optional<Mount> found;
  for (const std::string& line : linesOf("/proc/self/mountinfo")) {
    std::istringstream words(line);
    const std::vector<std::string> fields{std::istream_iterator<std::string>(words), {}};
    const std::string& root = fields.at(3);
    const std::string& place = fields.at(4);
    const auto separator = std::find(fields.begin() + 5, fields.end(), "-");
    const std::string& type = fields.at(static_cast<std::size_t>(separator - fields.begin()) + 1);
    const std::string options = "," + fields.back() + ",";
    const bool isIts =
        controller.empty()
            ? type == "cgroup2"
            : type == "cgroup" && options.find("," + controller + ",") != std::string::npos;
    if (isIts && (!found || root.size() < found->root.size())) {
      found = {root, place};
    }
  }
  return found;
}

bool enter(const std::string& group) {
  const FileDescriptor processes(::open((group + "/cgroup.procs").c_str(), O_WRONLY | O_CLOEXEC));
  return processes && ::write(processes.number(), "0", 1) == 1;  // 0 is the process that writes.
}

/// In a container, the topmost group is not the machine's, and takes no process while it
/// distributes resources to the groups below it.
bool enterOneBelow(const std::string& topmost) {
  const std::string own = topmost + "/lumaret-macos-helper";
  return (::mkdir(own.c_str(), 0755) == 0 || errno == EEXIST) && enter(own);
}

}  // namespace

void leaveCallersControlGroups() {
  for (const std::string& line : linesOf("/proc/self/cgroup")) {
    // Each line contains a number, the hierarchy's controllers, and the group's path.
    const auto first = line.find(':') + 1;
    const auto second = line.find(':', first) + 1;
    const std::string controllers = line.substr(first, second - first - 1);
    const std::string path = line.substr(second);
    const auto mount = mountOf(controllers.substr(0, controllers.find(',')));
    if (mount && mount->root != path && !enter(mount->place) &&
        !(errno == EBUSY && enterOneBelow(mount->place))) {
      throw std::system_error(errno, std::generic_category(),
                              "The caller's control group " + path + " could not be left");
    }
  }
}

}  // namespace lumaret
