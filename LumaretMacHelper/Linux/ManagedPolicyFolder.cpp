// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/ManagedPolicyFolder.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/Linux/PolicyFile.hpp"
#include "LumaretMacHelper/POSIX/SystemCalls.hpp"

namespace lumaret {
namespace {

bool isBlank(const std::string& text) {
  return text.find_first_not_of(" \t\r\n") == std::string::npos;
}

/// The file's policies if they have a value for the rules, or else nothing.
std::optional<PolicyText> textWithRules(const std::string& text, bool isOwnFile) {
  std::optional<PolicyText> policies = PolicyText::parse(text);
  if (!policies && (isOwnFile ? !isBlank(text) : PolicyText::maySpeakOfRules(text))) {
    throw ChromePreferencesError();
  }
  return policies && policies->hasRules() ? std::move(policies) : std::nullopt;
}

/// Whether it is a dangling link or one that leads to itself, which is not a file. After any other
/// error it is unknown what Chrome finds there.
bool leadsNowhere(const std::error_code& error) {
  return error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory ||
         error == std::errc::too_many_symbolic_link_levels;
}

/// Sorted by the bytes of their names. In this order, Chrome lets a later file win.
std::vector<std::filesystem::path> regularFiles(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> files;
  std::error_code error;
  const std::filesystem::directory_iterator entries(folder, error);
  if (error == std::errc::no_such_file_or_directory) {
    return files;
  }
  if (error) {
    throw std::system_error(error, folder.string());
  }
  for (const auto& entry : entries) {
    if (entry.is_regular_file(error)) {
      files.push_back(entry.path());
    } else if (error && !leadsNowhere(error)) {
      throw std::system_error(error, entry.path().string());
    }
  }
  std::sort(files.begin(), files.end(),
            [](const auto& left, const auto& right) { return left.native() < right.native(); });
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

std::vector<std::string> ManagedPolicyFolder::rulesIn(
    const std::vector<std::filesystem::path>& files) const {
  // Even a file that another overrules is checked: it comes into force if the other is removed.
  std::optional<PolicyText> effective;
  for (const auto& file : files) {
    if (auto policies = textWithRules(readPolicyFile(file).value_or(""), file == ownFile())) {
      effective = std::move(policies);
    }
  }
  return effective ? effective->rules() : std::vector<std::string>();
}

PolicyText ManagedPolicyFolder::ownPolicies() const {
  const std::string text = readPolicyFile(ownFile()).value_or("");
  std::optional<PolicyText> policies = PolicyText::parse(isBlank(text) ? "{}" : text);
  if (!policies) {
    throw ChromePreferencesError();
  }
  return *std::move(policies);
}

void ManagedPolicyFolder::replaceOwnFile(const std::string& text) const {
  require(isOpenToEveryUser(folder_), std::errc::permission_denied, folder_.c_str());
  replacePolicyFile(ownFile(), text);
}

std::vector<std::string> ManagedPolicyFolder::readRules() const {
  return rulesIn(regularFiles(folder_));
}

std::vector<std::pair<std::filesystem::path, std::vector<std::string>>>
ManagedPolicyFolder::rulesByFile() const {
  std::vector<std::pair<std::filesystem::path, std::vector<std::string>>> found;
  std::string fault;  // of the last one
  for (const auto& file : regularFiles(folder_)) {
    std::optional<PolicyText> policies;
    try {
      policies = textWithRules(readPolicyFile(file).value_or(""), file == ownFile());
      if (policies) {
        found.emplace_back(file, std::vector<std::string>());
        found.back().second = policies->rules();
        fault.clear();
      }
    } catch (const ChromePreferencesError&) {
      fault = file.string() + (policies ? " does not list its rules." : " is not a JSON object.");
      if (!policies) {
        break;
      }
    }
  }
  if (!fault.empty()) {
    throw std::runtime_error(fault);
  }
  return found;
}

void ManagedPolicyFolder::writeRules(const std::vector<std::string>& rules) const {
  replaceOwnFile(ownPolicies().withRules(rules));
}

bool ManagedPolicyFolder::withdrawRule() const {
  const PolicyText policies = ownPolicies();
  if (!policies.hasRules()) {
    return false;
  }
  std::vector<std::filesystem::path> others = regularFiles(folder_);
  others.erase(std::remove(others.begin(), others.end(), ownFile()), others.end());
  const std::vector<std::string> rules =
      ChromeCertificatePolicyService::withdrawingRule(policies.rules(), rulesIn(others));
  if (!rules.empty()) {
    replaceOwnFile(policies.withRules(rules));
  } else if (const auto text = policies.withoutRules()) {
    replaceOwnFile(*text);
  } else {
    removePolicyFile(ownFile());
  }
  return true;
}

bool ManagedPolicyFolder::synchronize() const { return synchronizeFolder(folder_); }

}  // namespace lumaret
