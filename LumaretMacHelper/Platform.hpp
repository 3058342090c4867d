// SPDX-License-Identifier: Apache-2.0
#pragma once

// Everything that a platform defines. The core is compiled once, against these declarations alone.
// Linking decides which platform they come from. A new platform is a folder beside Linux and macOS
// that defines everything declared here. POSIX systems share the standard streams and the
// processes, which are in the folder POSIX.

#include <array>
#include <compare>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/ChromeLauncher.hpp"
#include "LumaretMacHelper/KeychainChromePrivateKeyAuthorizer.hpp"
#include "LumaretMacHelper/KeychainIdentityLoader.hpp"

namespace lumaret {

// ------------------ Functions ------------------

/// SHA-256 (FIPS 180-4), computed by the platform's cryptographic library.
std::array<std::uint8_t, 32> sha256(std::span<const std::uint8_t> bytes);

using TextComparison = std::function<std::weak_ordering(const std::string&, const std::string&)>;

/// The platform's case-insensitive comparison of UTF-8 strings in the user's current locale. The
/// locale is read when this function is called, so the comparison may be kept for a whole sort.
/// Throws a std::exception if the platform cannot order strings.
TextComparison localizedCaseInsensitiveComparison();

/// See ChromeLauncher::defaultExecutableURL().
std::filesystem::path chromeExecutable();

// ------------------ Standard streams ------------------

/// Call this once, before any file is opened. It opens the descriptors 0 to 2 that the caller left
/// closed, so that nothing written to them ends up in another file. A write to a closed pipe, or
/// beyond the limit for the size of files, becomes an error and no longer ends the process. From
/// then on only writeStandardOutput() reaches the caller's standard output. Everything else that
/// this process prints goes to standard error.
void prepareStandardStreams() noexcept;

/// Writes every byte to the caller's standard output. Throws std::system_error if that is closed,
/// full or broken.
void writeStandardOutput(std::string_view text);

/// Writes as much as it can. A failure is ignored: there is nobody left to tell.
void writeStandardError(std::string_view text) noexcept;

// ------------------ Collaborators of the services ------------------

/// The platform's own Keychain.
class SystemKeychainIdentityQuery final : public KeychainIdentityQuerying {
 public:
  [[nodiscard]] std::vector<std::unique_ptr<KeychainIdentity>> copyIdentities() const override;
};

/// The rules that Chrome applies for the current user.
class CurrentUserChromePreferences final : public ChromePreferencesStoring {
 public:
  [[nodiscard]] std::vector<std::string> readRules() const override;
  void writeRules(const std::vector<std::string>& rules) override;
  [[nodiscard]] bool synchronize() override;
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

// ------------------ Default constructors ------------------

// KeychainIdentityLoader, KeychainChromePrivateKeyAuthorizer, ChromeCertificatePolicyService and
// ChromeLauncher each declare a default constructor, which uses the platform's collaborator. The
// platform defines it beside that collaborator.

}  // namespace lumaret
