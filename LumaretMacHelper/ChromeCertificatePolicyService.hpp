// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"

namespace lumaret {

/// The name of Chrome's policy whose value is the list of auto-select rules.
inline constexpr const char* rulesPolicy = "AutoSelectCertificateForUrls";

/// The stored value is not a list of strings. `lumaret-macos-helper` never prints this error.
class ChromePreferencesError : public std::exception {
 public:
  [[nodiscard]] const char* what() const noexcept override { return "invalidStoredValue"; }

  bool operator==(const ChromePreferencesError& /*other*/) const { return true; }
};

/// Chrome's list of auto-select rules. Each string is the JSON text of one rule. The list is read
/// and written as a whole.
class ChromePreferencesStoring {
 public:
  virtual ~ChromePreferencesStoring() = default;
  /// Returns an empty list if nothing is stored. Throws ChromePreferencesError if the stored value
  /// is not a list of strings.
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

  /// The string that the rule has as its "pattern"; nothing if the text is not a JSON object with
  /// such a string.
  static std::optional<std::string> rulePattern(const std::string& rule);

  /// The list with the new rule in place of the first rule for every site ("*"), or at the end if
  /// there is none. Further rules for every site are removed. All other rules stay as they are.
  static std::vector<std::string> replacingRule(const std::string& newRule,
                                                const std::vector<std::string>& rules);

  /// What a list that overrides another one must still say once the rule for every site is taken
  /// back: the other list and, after it, the rules for particular sites that only the overriding
  /// list has. Empty if it has none, so nothing need be overridden.
  static std::vector<std::string> withdrawingRule(const std::vector<std::string>& own,
                                                  const std::vector<std::string>& others);

  /// Whether the rule's pattern is "*".
  static bool isForEverySite(const std::string& rule);

  /// Whether the text is, byte for byte, a rule that encodedRule returns for some identity: for
  /// every site, with a subject, perhaps an issuer, and nothing else.
  static bool isEncodedRule(const std::string& rule);

 private:
  std::shared_ptr<ChromePreferencesStoring> preferences_;
};

}  // namespace lumaret
