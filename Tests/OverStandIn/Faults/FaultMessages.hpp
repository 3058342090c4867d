#pragma once

#include <cstdint>
#include <string>

namespace lumaret::tests::faults {

// What a user is told. "<status>" stands for a number.
inline constexpr const char* unreadable = "Keychain could not be read (error <status>).";
inline constexpr const char* notFound =
    "The selected certificate is no longer available in Keychain. Refresh the list and select it "
    "again.";
inline constexpr const char* ambiguous =
    "Keychain returned more than one identity for the selected certificate. Remove the duplicate "
    "identity and try again.";
inline constexpr const char* noPrivateKey =
    "The selected certificate has no usable private key in Keychain. Import its complete identity "
    "and try again.";
inline constexpr const char* unsupported =
    "This certificate's private key does not support persistent Chrome authorization. Smart cards "
    "and security tokens may still require their own PIN or confirmation.";
inline constexpr const char* cancelled =
    "Chrome was not authorized because the Keychain confirmation was cancelled. No Chrome "
    "certificate rule was changed.";
inline constexpr const char* notAuthorized =
    "Keychain could not authorize Google Chrome for this certificate (error <status>). No Chrome "
    "certificate rule was changed.";
inline constexpr const char* unmatchable =
    "This certificate has no subject fields Chrome can match.";
inline constexpr const char* notSaved = "The Chrome certificate rule could not be saved.";
inline constexpr const char* notVerified =
    "The Chrome certificate rule was saved but could not be verified.";
inline constexpr const char* notInstalled = "Google Chrome is not installed in /Applications.";
inline constexpr const char* refused =
    "Google Chrome could not be opened: Only HTTP and HTTPS destinations are supported.";
inline constexpr const char* exited =
    "Google Chrome could not be opened: Google Chrome exited with status <status>.";
inline constexpr const char* notStarted =
    "Google Chrome could not be opened: /Applications/Google Chrome.app/Contents/MacOS/Google "
    "Chrome: No such file or directory";

/// The message with this status.
std::string told(std::string message, std::int32_t status);

}  // namespace lumaret::tests::faults
