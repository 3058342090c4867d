// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace lumaret {

/// The contents of a policy file: one JSON object in UTF-8, in which Chrome allows comments.
/// Reading and writing take time and memory in proportion to the text, however many keys it has.
class PolicyText {
 public:
  /// Nothing if Chrome's reader finds no policy: the text is not such an object, nests deeper than
  /// 199 levels (measured with Chromium 156), or contains a zero byte.
  static std::optional<PolicyText> parse(const std::string& text);

  /// Whether Chrome, which accepts more, may find auto-select rules in a text that does not parse
  /// here. Escape sequences may spell their name, too.
  static bool maySpeakOfRules(const std::string& text);

  [[nodiscard]] bool hasRules() const;

  /// The last value for the auto-select rules. Throws ChromePreferencesError if it is missing or
  /// not a list of strings.
  [[nodiscard]] std::vector<std::string> rules() const;

  /// The object with this list as its value for the rules. The other policies keep their values;
  /// comments are dropped. Throws ChromePreferencesError if a rule is not UTF-8.
  [[nodiscard]] std::string withRules(const std::vector<std::string>& rules) const;

  /// The object without a value for the rules; nothing if there are no other policies.
  [[nodiscard]] std::optional<std::string> withoutRules() const;

 private:
  explicit PolicyText(nlohmann::json policies) : policies_(std::move(policies)) {}

  nlohmann::json policies_;
};

}  // namespace lumaret
