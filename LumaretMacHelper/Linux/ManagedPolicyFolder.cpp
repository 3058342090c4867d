// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/ManagedPolicyFolder.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/Linux/PolicyFile.hpp"
#include "LumaretMacHelper/POSIX/SystemCalls.hpp"

namespace lumaret {
namespace {

using nlohmann::json;
using Rules = std::vector<std::string>;
using RulesByFile = ManagedPolicyFolder::RulesByFile;

/// In levels. Chrome reads no policy from an object that nests deeper (measured with Chromium 156).
constexpr std::size_t maximumDepth = 199;

bool isNestedWithin(const json& value, std::size_t depth) {
  return !value.is_structured() ||
         (depth > 0 && std::all_of(value.begin(), value.end(), [&](const json& member) {
            return isNestedWithin(member, depth - 1);
          }));
}

/// Whether Chrome, which accepts more, may find rules in a text that is not an object here. Escape
/// sequences may spell their name, too.
bool mayHaveRules(const std::string& text) {
  return text.find(rulesPolicy) != std::string::npos || text.find("\\u") != std::string::npos ||
         text.find("\\x") != std::string::npos;
}

/// The file's policies, an object; empty if the file is missing or blank, or is not the tool's own
/// and certainly has no rules. Throws ChromePreferencesError if neither is certain.
json policiesIn(const std::filesystem::path& file) {
  const std::string text = readPolicyFile(file).value_or("");
  if (text.find_first_not_of(" \t\r\n") == std::string::npos) {
    return json::object();
  }
  json policies = json::parse(text, nullptr, /*allow_exceptions=*/false, /*ignore_comments=*/true);
  // The parser takes a zero byte for the end of the text.
  if (text.find('\0') == std::string::npos && policies.is_object() &&
      isNestedWithin(policies, maximumDepth)) {
    return policies;
  }
  if (file.filename() == ManagedPolicyFolder::ownFileName || mayHaveRules(text)) {
    throw ChromePreferencesError(file.string() + " is not a JSON object.");
  }
  return json::object();
}

/// Even a file that another overrules must be readable: it comes into force if the other is
/// removed. Only its rules may be anything.
RulesByFile rulesByFile(const std::vector<std::filesystem::path>& files) {
  std::vector<std::pair<std::filesystem::path, json>> values;
  for (const auto& file : files) {
    json policies = policiesIn(file);
    if (const auto rules = policies.find(rulesPolicy); rules != policies.end()) {
      values.emplace_back(file, std::move(*rules));
    }
  }
  RulesByFile found;
  for (const auto& [file, value] : values) {
    found.emplace_back(file, Rules());
    try {
      found.back().second = value.get<Rules>();
    } catch (const json::exception&) {
      if (found.size() == values.size()) {
        throw ChromePreferencesError(file.string() + " does not list its rules.");
      }
    }
  }
  return found;
}

Rules rulesIn(const std::vector<std::filesystem::path>& files) {
  RulesByFile found = rulesByFile(files);
  return found.empty() ? Rules() : std::move(found.back().second);
}

void replace(const std::filesystem::path& file, const json& policies) {
  const auto folder = file.parent_path();
  require(isOpenToEveryUser(folder), std::errc::permission_denied, folder.c_str());
  try {
    replacePolicyFile(file, policies.dump(2) + "\n");
  } catch (const json::exception&) {
    throw ChromePreferencesError();
  }
}

/// Whether this is the error of a dangling link or of one that leads to itself, which is not a
/// file. After any other error it is unknown what Chrome finds there.
bool leadsNowhere(const std::error_code& error) {
  return error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory ||
         error == std::errc::too_many_symbolic_link_levels;
}

/// Sorted by the bytes of their names, as by Chrome, for which a later file wins.
std::vector<std::filesystem::path> regularFiles(const std::filesystem::path& folder) {
  std::error_code error;
  const std::filesystem::directory_iterator entries(folder, error);
  if (error && error != std::errc::no_such_file_or_directory) {
    throw std::system_error(error, folder.string());
  }
  std::vector<std::filesystem::path> files;
  for (const auto& entry : entries) {
    if (entry.is_regular_file(error)) {
      files.push_back(entry.path());
    } else if (error && !leadsNowhere(error)) {
      throw std::system_error(error, entry.path().string());
    }
  }
  std::ranges::sort(files, {}, [](const auto& file) { return file.native(); });
  return files;
}

}  // namespace

ManagedPolicyFolder::ManagedPolicyFolder(std::filesystem::path folder)
    : folder_(std::move(folder)) {}

FileDescriptor ManagedPolicyFolder::takeTurn() {
  constexpr const char* place = "/run/lumaret-macos-helper";
  requireSuccess(::mkdir(place, S_IRWXU) == 0 || errno == EEXIST ? 0 : errno, place);
  FileDescriptor folder(
      checked(::open(place, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC), place));
  struct stat status = {};
  checked(::fstat(folder.number(), &status), place);
  const bool isOwn = status.st_uid == ::geteuid() && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
  require(isOwn, std::errc::operation_not_permitted, place);
  while (::flock(folder.number(), LOCK_EX) != 0) {
    requireSuccess(errno == EINTR ? 0 : errno, place);
  }
  return folder;
}

Rules ManagedPolicyFolder::readRules() const { return rulesIn(regularFiles(folder_)); }

RulesByFile ManagedPolicyFolder::readRulesByFile() const {
  return rulesByFile(regularFiles(folder_));
}

void ManagedPolicyFolder::writeRules(const std::vector<std::string>& rules) const {
  json policies = policiesIn(ownFile());
  policies[rulesPolicy] = rules;
  replace(ownFile(), policies);
}

bool ManagedPolicyFolder::withdrawRule() const {
  json policies = policiesIn(ownFile());
  if (!policies.contains(rulesPolicy)) {
    return false;
  }
  std::vector<std::filesystem::path> others = regularFiles(folder_);
  std::erase(others, ownFile());
  const Rules rules =
      ChromeCertificatePolicyService::withdrawingRule(rulesIn({ownFile()}), rulesIn(others));
  if (!rules.empty()) {
    policies[rulesPolicy] = rules;
  } else {
    policies.erase(rulesPolicy);
  }
  if (!policies.empty()) {
    replace(ownFile(), policies);
  } else {
    removePolicyFile(ownFile());
  }
  return true;
}

bool ManagedPolicyFolder::synchronize() const {
  const FileDescriptor folder(::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return folder && ::fsync(folder.number()) == 0;
}

}  // namespace lumaret
