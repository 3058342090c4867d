// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "LumaretMacHelper/Linux/PolicyText.hpp"
#include "LumaretMacHelper/POSIX/FileDescriptor.hpp"

namespace lumaret {

/// A folder of Chrome's managed policies. Chrome reads every regular file in it, whatever its
/// suffix. For one key, it takes the value from the file whose name sorts last. The tool keeps its
/// rules in its own file. The name of that file sorts after the names that administrators usually
/// choose.
class ManagedPolicyFolder {
 public:
  static constexpr const char* ownFileName = "zz-lumaret-macos-helper.json";

  /// The folder need not exist.
  explicit ManagedPolicyFolder(std::filesystem::path folder);

  /// Waits until no other process of root's changes policies, and keeps others waiting until the
  /// descriptor is closed. Whoever reads rules in order to write them takes a turn first, or a rule
  /// that somebody writes in between is lost. It is a lock on /run/lumaret-macos-helper, a folder
  /// that only root may open, so no other user can hold it. Throws std::system_error, also if the
  /// folder belongs to another user or is open to others.
  [[nodiscard]] static FileDescriptor takeTurn();

  /// The rules in force. The list is empty if no file has a value. Throws ChromePreferencesError if
  /// the rules are uncertain: the value in force is not a list of strings, the tool's own file is
  /// not a JSON object, or another file is not one and Chrome, which accepts more, may still find
  /// rules in it. Throws std::system_error if a file cannot be read, or must not be: see
  /// readPolicyFile.
  [[nodiscard]] std::vector<std::string> readRules() const;

  /// Writes the rules to the tool's own file and keeps the other policies in it. The file is
  /// replaced as a whole: see replacePolicyFile. Throws std::system_error, also if some user's
  /// browser could not find the file (see isOpenToEveryUser), or ChromePreferencesError; the file
  /// is then unchanged.
  void writeRules(const std::vector<std::string>& rules) const;

  /// Takes the rule for every site back. Afterwards the rules of the other files are in force, and
  /// those for particular sites that only the tool's own file has. The other policies in that file
  /// are kept; if there is nothing left in it, it is removed. Returns false if the tool's own file
  /// has no rules, so nothing was changed. Throws like readRules and writeRules; the file is then
  /// unchanged.
  [[nodiscard]] bool withdrawRule() const;

  /// Makes the folder's entries permanent. Returns false if that failed.
  [[nodiscard]] bool synchronize() const;

 private:
  [[nodiscard]] std::filesystem::path ownFile() const { return folder_ / ownFileName; }
  [[nodiscard]] std::vector<std::filesystem::path> files() const;
  [[nodiscard]] std::vector<std::string> rulesIn(
      const std::vector<std::filesystem::path>& files) const;
  [[nodiscard]] PolicyText ownPolicies() const;
  void replaceOwnFile(const std::string& text) const;

  std::filesystem::path folder_;
};

}  // namespace lumaret
