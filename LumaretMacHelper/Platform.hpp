// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a platform defines, and all of it. The core is compiled once, against these declarations
// alone; which platform they come from is decided when the executable is linked. A new platform is
// a folder beside Linux and macOS that defines what stands here (the standard streams and the
// processes of POSIX systems are in a folder of their own, for any platform that is one).

#include <array>
#include <compare>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/ChromeLauncher.hpp"
#include "LumaretMacHelper/KeychainChromePrivateKeyAuthorizer.hpp"
#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "LumaretMacHelper/URL.hpp"

namespace lumaret {

// ------------------ Functions ------------------

/// SHA-256 (FIPS 180-4), from the platform's cryptography.
std::array<std::uint8_t, 32> sha256(std::span<const std::uint8_t> bytes);

using TextComparison = std::function<std::weak_ordering(const std::string&, const std::string&)>;

/// The platform's case-insensitive comparison of UTF-8 texts under the user's current locale.
/// The locale is read when this is called; the comparison may be kept for one whole sort. It may
/// throw at the first texts that differ: what orders them is not loaded before.
TextComparison localizedCaseInsensitiveComparison();

/// What the platform's RFC 3986 parser accepts, relative references included; nothing for any
/// other text and for the empty one.
std::optional<URL> parseURL(const std::string& text);

/// Where the platform has Google Chrome's executable, installed or not.
std::filesystem::path chromeExecutable();

// ------------------ Standard streams ------------------

/// To be called once, before any file is opened. Reserves the descriptors 0 to 2 that the caller
/// left closed, so that nothing written to them lands in another file, and makes a write to a
/// closed pipe, or beyond the limit for the size of files, an error instead of the end of the
/// process. From then on only writeStandardOutput() reaches the caller's standard output: whatever
/// else this process prints goes to standard error.
void prepareStandardStreams() noexcept;

/// Writes every byte to the caller's standard output. Throws std::system_error when that is closed,
/// full or broken.
void writeStandardOutput(std::string_view text);

/// Writes what can be written: nobody is left to be told of a failure.
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
// ChromeKeychainAuthorizationBackend with handle types that only the platform knows: its class
// stays in the platform's folder.

// ------------------ Default constructors ------------------

// A service that is built without arguments works over the platform's collaborator. Each of these
// constructors is declared in its class, and defined by the platform beside the collaborator that
// it chooses:
static_assert(std::is_default_constructible_v<KeychainIdentityLoader>,
              "over SystemKeychainIdentityQuery and the current time");
static_assert(std::is_default_constructible_v<KeychainChromePrivateKeyAuthorizer>,
              "over SystemChromeKeychainAuthorizationBackend");
static_assert(std::is_default_constructible_v<ChromeCertificatePolicyService>,
              "over CurrentUserChromePreferences");
static_assert(std::is_default_constructible_v<ChromeLauncher>,
              "over SystemChromeLaunchEnvironment, for ChromeLauncher::defaultExecutableURL()");

}  // namespace lumaret
