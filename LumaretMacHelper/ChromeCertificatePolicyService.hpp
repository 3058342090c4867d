// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"

namespace lumaret {

/// The name of Chrome's policy whose value is the list of auto-select rules.
inline constexpr const char* rulesPolicy = "AutoSelectCertificateForUrls";

/// The stored value is not a list of strings. `lumaret-macos-helper` never prints this error.
class ChromePreferencesError : public DescribedError {
 public:
  explicit ChromePreferencesError(std::string description = "invalidStoredValue")
      : DescribedError(std::move(description)) {}
};

/// Chrome's list of auto-select rules, each a JSON text. It is read and written as a whole.
class ChromePreferencesStoring {
 public:
  virtual ~ChromePreferencesStoring() = default;
  /// Empty if nothing is stored. Throws ChromePreferencesError if the stored value is not a list of
  /// strings.
  [[nodiscard]] virtual std::vector<std::string> readRules() const = 0;
  virtual void writeRules(const std::vector<std::string>& rules) = 0;
  /// Makes what was written permanent. Returns false if that failed.
  [[nodiscard]] virtual bool synchronize() = 0;
};

class ChromeCertificatePolicyService final : public ChromePolicyApplying {
 public:
  /// Reads and writes the rules that Chrome applies for the current user.
  ChromeCertificatePolicyService();
  explicit ChromeCertificatePolicyService(std::shared_ptr<ChromePreferencesStoring> preferences);

  /// If synchronizing or verifying fails, the new list may already be stored.
  void apply(const ClientIdentity& identity) const override;

  /// The rule, as compact JSON, that makes Chrome present the identity to every site. Throws
  /// certificateHasNoSubject or policyEncodingFailed.
  static std::string encodedRule(const ClientIdentity& identity);

  /// The rule's "pattern"; nothing if the text is not a JSON object in which that is a string.
  /// Where readers of JSON differ, this one reads what Chrome reads, and nothing from a rule that
  /// Chrome ignores (measured with Chromium 156): the last of two members named "pattern" counts, a
  /// leading U+FEFF is skipped, and a text with a number that no double can hold or with the escape
  /// of a lone surrogate is not JSON.
  static std::optional<std::string> rulePattern(const std::string& rule);

  /// The list with the new rule in place of the first rule for every site ("*"), or at the end, and
  /// without further rules for every site. All other rules stay as they are.
  static std::vector<std::string> replacingRule(const std::string& newRule,
                                                const std::vector<std::string>& rules);

  /// What a list that overrides others must still say once its rule for every site is taken back:
  /// the others and then its own rules for particular sites that they lack. Empty if it has none,
  /// so nothing need be overridden.
  static std::vector<std::string> withdrawingRule(const std::vector<std::string>& own,
                                                  const std::vector<std::string>& others);

  static bool isForEverySite(const std::string& rule);

  /// An identity with the fields that the rule asks for, and nothing else; nothing if Chrome
  /// ignores the rule.
  static std::optional<ClientIdentity> filterOf(const std::string& rule);

  /// Whether encodedRule returns this text, byte for byte, for some identity.
  static bool isEncodedRule(const std::string& rule);

 private:
  std::shared_ptr<ChromePreferencesStoring> preferences_;
};

}  // namespace lumaret
