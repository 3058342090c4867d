// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace lumaret {

/// A folder of Chrome's managed policies. Chrome reads every regular file in it, whatever its
/// ending, and for one key takes the value of the file whose name sorts last. The tool keeps its
/// rules in a file of its own with a name that sorts after what administrators usually choose.
class ManagedPolicyFolder {
 public:
  static constexpr const char* ownFileName = "zz-lumaret-macos-helper.json";

  /// The folder need not exist.
  explicit ManagedPolicyFolder(std::filesystem::path folder);

  /// The rules in force; no value anywhere is an empty list. Throws ChromePreferencesError when
  /// they cannot be told for sure: the value in force is no list of texts, the tool's own file is
  /// no JSON object, or another file is none but speaks of rules, since Chrome's reader forgives
  /// more than this one. Throws std::system_error when a file cannot be read, or may not be: see
  /// readPolicyFile.
  [[nodiscard]] std::vector<std::string> readRules() const;

  /// Puts the rules into the tool's own file and keeps what else it holds. The file is replaced as
  /// a whole, by one that belongs to this process's user and that all may read; see
  /// replacePolicyFile. Throws std::system_error or ChromePreferencesError; the file is then as it
  /// was.
  void writeRules(const std::vector<std::string>& rules) const;

  /// Whether the browser of every user finds the folder's files; see isOpenToEveryUser.
  [[nodiscard]] bool isOpenToEveryUser() const;

  /// Makes the folder's entries permanent; false when that failed.
  [[nodiscard]] bool synchronize() const;

 private:
  [[nodiscard]] std::filesystem::path ownFile() const { return folder_ / ownFileName; }

  std::filesystem::path folder_;
};

}  // namespace lumaret
