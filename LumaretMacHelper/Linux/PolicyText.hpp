// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace lumaret {

/// The contents of a policy file: one JSON object in UTF-8, in which Chrome allows comments.
/// Reading and writing take time and memory in proportion to the text, however many keys it has.
class PolicyText {
 public:
  /// Nothing if Chrome's reader finds no policy in force: the text is not such an object, it nests
  /// deeper than that reader accepts (199 levels, measured with Chromium 156), or it contains a
  /// zero byte.
  static std::optional<PolicyText> parse(const std::string& text);

  /// Whether Chrome, which accepts more, may find a value for the auto-select rules in a text that
  /// does not parse here. Escape sequences may spell their name, too.
  static bool maySpeakOfRules(const std::string& text);

  /// Whether the object has a value for the auto-select rules.
  [[nodiscard]] bool hasRules() const { return hasRules_; }

  /// The value for the auto-select rules; if there are two, the last one. Throws
  /// ChromePreferencesError if it is not a list of strings.
  [[nodiscard]] const std::vector<std::string>& rules() const;

  /// The object with this list as its value for the rules, in the place of the first such value or
  /// at the end. The other policies keep their order; comments are dropped. Throws
  /// ChromePreferencesError if a rule is not UTF-8.
  [[nodiscard]] std::string withRules(const std::vector<std::string>& rules) const;

  /// The object without a value for the rules; nothing if there are no other policies.
  [[nodiscard]] std::optional<std::string> withoutRules() const;

 private:
  class Reader;

  bool hasRules_ = false;
  bool isListOfTexts_ = false;
  std::vector<std::string> rules_;
  /// The members before and after the rules, as they are written.
  std::string before_;
  std::string after_;
};

}  // namespace lumaret
