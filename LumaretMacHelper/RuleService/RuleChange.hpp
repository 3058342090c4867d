// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace lumaret {

/// What a caller of the rule service may ask for: that one browser's rule for every site is stored,
/// or taken back. Nothing else can be expressed, so nothing else has to be refused.
class RuleChange {
 public:
  /// In bytes. The names in a certificate take some hundreds.
  static constexpr std::size_t longestRule = 64UL << 10;

  /// Without a rule, the change takes the browser's rule back. The rule must be one that `activate`
  /// writes, byte for byte, and have at most `longestRule` bytes. Throws std::invalid_argument,
  /// also for an unknown browser. Its message says why.
  RuleChange(std::string_view browser, std::optional<std::string_view> rule);

  /// Waits for root's turn (see ManagedPolicyFolder), makes the change to the rules that are in
  /// force then, and makes it permanent. Throws std::system_error or ChromePreferencesError; then
  /// nothing was changed, or the change was made but may not outlast a power failure.
  void carryOut() const;

  /// Says for a log what was changed, without anything that the caller wrote.
  [[nodiscard]] std::string description() const;

 private:
  std::string browser_;
  std::filesystem::path managedPolicies_;
  std::optional<std::string> rule_;
};

}  // namespace lumaret
