// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace lumaret {

/// What the text of a policy file says: one JSON object in UTF-8, in which Chrome allows comments.
/// Reading and writing take time and memory in proportion to the text, however many keys it has.
class PolicyText {
 public:
  /// Nothing where Chrome's reader finds no policy in force: the text is no such object, nests
  /// deeper than that reader goes (199 levels, measured with Chromium 156), or holds a zero byte.
  static std::optional<PolicyText> parse(const std::string& text);

  /// Whether a text that does not parse here might give Chrome, which forgives more, a value for
  /// the auto-select rules. A name may also be spelled with escapes.
  static bool maySpeakOfRules(const std::string& text);

  /// Whether the object has a value for the auto-select rules.
  [[nodiscard]] bool hasRules() const { return hasRules_; }

  /// That value; of two, the last counts. Throws ChromePreferencesError when it is no list of
  /// texts.
  [[nodiscard]] const std::vector<std::string>& rules() const;

  /// The object with this list as its value, in the first value's place or at the end. The other
  /// policies stay in their order; comments do not stay. Throws ChromePreferencesError when a rule
  /// is no UTF-8.
  [[nodiscard]] std::string withRules(const std::vector<std::string>& rules) const;

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
