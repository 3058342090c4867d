// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a platform defines over the core's interfaces: the collaborators of its services, and
// beside each the default constructor of the service that uses it. The core itself does not include
// this. The fourth, SystemChromeKeychainAuthorizationBackend, satisfies the concept
// ChromeKeychainAuthorizationBackend; only the platform knows its handle types and declares it.

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/ChromeLauncher.hpp"
#include "LumaretMacHelper/KeychainChromePrivateKeyAuthorizer.hpp"
#include "LumaretMacHelper/KeychainIdentityLoader.hpp"

namespace lumaret {

class SystemKeychainIdentityQuery final : public KeychainIdentityQuerying {
 public:
  [[nodiscard]] std::vector<KeychainIdentity> copyIdentities() const override;
};

/// On Linux, root's object makes all others wait, from its first read until it is destroyed.
class CurrentUserChromePreferences final : public ChromePreferencesStoring {
 public:
  [[nodiscard]] std::vector<std::string> readRules() const override;
  void writeRules(const std::vector<std::string>& rules) override;
  [[nodiscard]] bool synchronize() override;

 private:
  /// Held, if a platform does so, to keep others from changing the rules until they are verified.
  mutable std::shared_ptr<void> turn_;
};

/// A file or a preference that has a value for the rules.
struct RuleSource {
  std::string name;
  /// 0 if it is the one that `activate` writes, and positive if it overrides that one.
  int rank;
  std::vector<std::string> rules;
};
/// In ascending order: only the last one is in force. If that is uncertain, throws a std::exception
/// that names what is at fault.
std::vector<RuleSource> ruleSources();

/// Takes the rules for every site out of what `activate` writes. Throws a std::exception.
void withdrawRule();

class SystemChromeLaunchEnvironment final : public ChromeLaunchEnvironment {
 public:
  [[nodiscard]] bool isExecutableFile(const std::filesystem::path& path) const override;
  [[nodiscard]] bool isApplicationRunning(const std::string& bundleIdentifier) const override;
  void run(const std::filesystem::path& executableURL, const std::vector<std::string>& arguments,
           bool waitUntilExit) const override;
};

}  // namespace lumaret
