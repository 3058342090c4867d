// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"

namespace lumaret {

/// Why the preferences cannot be read; never shown to a user.
class ChromePreferencesError : public std::exception {
 public:
  enum class Kind : std::uint8_t {
    /// What is stored is no list of texts.
    invalidStoredValue,
  };

  [[nodiscard]] const char* what() const noexcept override { return "invalidStoredValue"; }
  [[nodiscard]] Kind kind() const noexcept { return kind_; }

  bool operator==(const ChromePreferencesError& other) const { return kind_ == other.kind_; }

 private:
  Kind kind_ = Kind::invalidStoredValue;
};

/// Chrome's list of auto-select rules (`AutoSelectCertificateForUrls`), each the JSON text of one
/// rule. It is read and written whole.
class ChromePreferencesStoring {
 public:
  virtual ~ChromePreferencesStoring() = default;
  /// Nothing stored is an empty list. Throws ChromePreferencesError when a value is stored that is
  /// no list of texts.
  [[nodiscard]] virtual std::vector<std::string> readRules() const = 0;
  virtual void writeRules(const std::vector<std::string>& rules) = 0;
  /// Makes what was written permanent; false when that failed.
  [[nodiscard]] virtual bool synchronize() = 0;
};

class ChromeCertificatePolicyService final : public ChromePolicyApplying {
 public:
  /// Over the rules that Chrome applies for the current user.
  ChromeCertificatePolicyService();
  explicit ChromeCertificatePolicyService(std::shared_ptr<ChromePreferencesStoring> preferences);

  /// After a failure of synchronizing or verifying, the new list may already be stored.
  void apply(const ClientIdentity& identity) const override;

  /// The rule, as compact JSON, that makes Chrome present the identity to every site. Throws
  /// certificateHasNoSubject or policyEncodingFailed.
  static std::string encodedRule(const ClientIdentity& identity);

  /// The rule's "pattern" exactly as stored; nothing when the text is no JSON object with one.
  static std::optional<std::string> rulePattern(const std::string& rule);

  /// The list with the new rule in the place of the first catch-all rule ("*"), or at its end; any
  /// further catch-all rule is dropped, and all others stay as they are.
  static std::vector<std::string> replacingRule(const std::string& newRule,
                                                const std::vector<std::string>& rules);

  /// Whether the text is, byte for byte, what encodedRule makes of some identity: a rule for every
  /// site, with a subject, perhaps an issuer, and nothing else.
  static bool isEncodedRule(const std::string& rule);

  /// Whether the list is what replacingRule makes of the current one with a rule of encodedRule
  /// that has no more than `longestRule` bytes.
  static bool isReplacement(const std::vector<std::string>& rules,
                            const std::vector<std::string>& current, std::size_t longestRule);

 private:
  std::shared_ptr<ChromePreferencesStoring> preferences_;
};

}  // namespace lumaret
