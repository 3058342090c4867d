// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/POSIX/FileDescriptor.hpp"

namespace lumaret {

/// A folder of Chrome's managed policies. Chrome reads every regular file in it, whatever its
/// suffix, and for one key takes the value from the file that sorts last. The tool's own file has a
/// name that sorts after those that administrators usually choose. Time and memory are proportional
/// to the files' size, however many keys they have.
class ManagedPolicyFolder {
 public:
  static constexpr const char* ownFileName = "zz-lumaret-macos-helper.json";
  using RulesByFile = std::vector<std::pair<std::filesystem::path, std::vector<std::string>>>;

  /// The folder need not exist.
  explicit ManagedPolicyFolder(std::filesystem::path folder);

  /// Waits until no other process of root is changing policies, and keeps others waiting until the
  /// descriptor is closed. Whoever reads rules in order to write them takes a turn first, or a rule
  /// that somebody writes in between is lost. The lock is on /run/lumaret-macos-helper, which only
  /// root may open, so no other user can hold it. Throws std::system_error, also if that folder
  /// belongs to another user or is open to others.
  [[nodiscard]] static FileDescriptor takeTurn();

  /// The rules in force; empty if no file has a value. Throws ChromePreferencesError if they are
  /// uncertain: the value in force is not a list of strings, the tool's own file is not a JSON
  /// object, or another file is not one and Chrome, which accepts more, may still find rules in it.
  /// Throws std::system_error if a file cannot be read, or must not be: see readPolicyFile. Both
  /// name the file at fault.
  [[nodiscard]] std::vector<std::string> readRules() const;

  /// The files with a value for the rules, and that value, in the order in which a later one wins.
  /// One that is overruled and not a list of strings counts as empty. Throws like readRules.
  [[nodiscard]] RulesByFile readRulesByFile() const;

  /// Writes the rules to the tool's own file and keeps the other policies in it: see
  /// replacePolicyFile. Throws ChromePreferencesError or std::system_error, also if some user's
  /// browser could not find the file (see isOpenToEveryUser); the file is then unchanged.
  void writeRules(const std::vector<std::string>& rules) const;

  /// Takes the rule for every site back. Afterwards the rules of the other files are in force, and
  /// those for particular sites that only the tool's own file has. The other policies in that file
  /// are kept; if nothing is left in it, it is removed. Returns false if the file has no rules, so
  /// nothing was changed. Throws like readRules and writeRules; the file is then unchanged.
  [[nodiscard]] bool withdrawRule() const;

  /// Makes the folder's entries permanent. Returns false if that failed.
  [[nodiscard]] bool synchronize() const;

 private:
  [[nodiscard]] std::filesystem::path ownFile() const { return folder_ / ownFileName; }

  std::filesystem::path folder_;
};

}  // namespace lumaret
