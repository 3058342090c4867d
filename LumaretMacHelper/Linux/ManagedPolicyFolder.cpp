// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/ManagedPolicyFolder.hpp"

#include <algorithm>
#include <optional>
#include <system_error>
#include <utility>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/Linux/PolicyFile.hpp"
#include "LumaretMacHelper/Linux/PolicyText.hpp"

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

/// A dangling link, or one that leads to itself, is not a file. After any other error it is unknown
/// what Chrome finds there.
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

std::vector<std::string> ManagedPolicyFolder::readRules() const {
  // Every file is checked, even one that another overrules: it comes into force as soon as the
  // other is removed.
  std::optional<PolicyText> effective;
  for (const auto& file : regularFiles(folder_)) {
    if (auto policies = textWithRules(readPolicyFile(file).value_or(""), file == ownFile())) {
      effective = std::move(policies);
    }
  }
  return effective ? effective->rules() : std::vector<std::string>();
}

void ManagedPolicyFolder::writeRules(const std::vector<std::string>& rules) const {
  const std::string text = readPolicyFile(ownFile()).value_or("");
  const std::optional<PolicyText> policies = PolicyText::parse(isBlank(text) ? "{}" : text);
  if (!policies) {
    throw ChromePreferencesError();
  }
  replacePolicyFile(ownFile(), policies->withRules(rules));
}

bool ManagedPolicyFolder::isOpenToEveryUser() const { return lumaret::isOpenToEveryUser(folder_); }

bool ManagedPolicyFolder::synchronize() const { return synchronizeFolder(folder_); }

}  // namespace lumaret
