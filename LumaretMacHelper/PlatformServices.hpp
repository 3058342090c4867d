// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a platform defines over the core's interfaces: the collaborators of its services. The core
// itself does not include this.

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/ChromeLauncher.hpp"
#include "LumaretMacHelper/KeychainChromePrivateKeyAuthorizer.hpp"
#include "LumaretMacHelper/KeychainIdentityLoader.hpp"

namespace lumaret {

/// The platform's own Keychain.
class SystemKeychainIdentityQuery final : public KeychainIdentityQuerying {
 public:
  [[nodiscard]] std::vector<std::unique_ptr<KeychainIdentity>> copyIdentities() const override;
};

/// The rules that Chrome applies for the current user. On Linux, root's object keeps all others
/// waiting from its first reading on until it is destroyed.
class CurrentUserChromePreferences final : public ChromePreferencesStoring {
 public:
  [[nodiscard]] std::vector<std::string> readRules() const override;
  void writeRules(const std::vector<std::string>& rules) override;
  [[nodiscard]] bool synchronize() override;

 private:
  /// What a platform keeps so that nobody else changes the rules between reading and verifying
  /// them.
  mutable std::shared_ptr<void> turn_;
};

/// The platform's processes.
class SystemChromeLaunchEnvironment final : public ChromeLaunchEnvironment {
 public:
  [[nodiscard]] bool isExecutableFile(const std::filesystem::path& path) const override;
  [[nodiscard]] bool isApplicationRunning(const std::string& bundleIdentifier) const override;
  void run(const std::filesystem::path& executableURL, const std::vector<std::string>& arguments,
           bool waitUntilExit) const override;
};

// The fourth collaborator, SystemChromeKeychainAuthorizationBackend, satisfies the concept
// ChromeKeychainAuthorizationBackend. Only the platform knows its handle types, so its class is
// declared in the platform's folder.

// KeychainIdentityLoader, KeychainChromePrivateKeyAuthorizer, ChromeCertificatePolicyService and
// ChromeLauncher each declare a default constructor, which uses the platform's collaborator. The
// platform defines it beside that collaborator.

}  // namespace lumaret
