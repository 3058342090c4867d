// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>
#include <vector>

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

  /// The rules in force. The list is empty if no file has a value. Throws ChromePreferencesError if
  /// the rules are uncertain: the value in force is not a list of strings, the tool's own file is
  /// not a JSON object, or another file is not one and Chrome, which accepts more, may still find
  /// rules in it. Throws std::system_error if a file cannot be read, or must not be: see
  /// readPolicyFile.
  [[nodiscard]] std::vector<std::string> readRules() const;

  /// Writes the rules to the tool's own file and keeps the other policies in it. The file is
  /// replaced as a whole: see replacePolicyFile. Throws std::system_error or
  /// ChromePreferencesError; the file is then unchanged.
  void writeRules(const std::vector<std::string>& rules) const;

  /// Whether every user's browser finds the folder's files: see lumaret::isOpenToEveryUser.
  [[nodiscard]] bool isOpenToEveryUser() const;

  /// Makes the folder's entries permanent. Returns false if that failed.
  [[nodiscard]] bool synchronize() const;

 private:
  [[nodiscard]] std::filesystem::path ownFile() const { return folder_ / ownFileName; }

  std::filesystem::path folder_;
};

}  // namespace lumaret
