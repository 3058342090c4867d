// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

/// For all tests: Tests/Support/Python/messages.py reads this file, too. "<status>" stands for a
/// number, and "<text>" for a string.
namespace lumaret::tests::messages {

inline constexpr const char* usage =
    "Uso: lumaret-macos-helper list | activate --fingerprint <sha256> [--url <https-url>]";
inline constexpr const char* keychainFailure = "Keychain could not be read (error <status>).";
inline constexpr const char* chromeLaunchFailed = "Google Chrome could not be opened: <text>";
inline constexpr const char* keychainAuthorizationFailed =
    "Keychain could not authorize Google Chrome for this certificate (error <status>). No Chrome "
    "certificate rule was changed.";
inline constexpr const char* certificateHasNoSubject =
    "This certificate has no subject fields Chrome can match.";
inline constexpr const char* policyEncodingFailed =
    "The Chrome certificate rule could not be encoded.";
inline constexpr const char* policyWriteFailed = "The Chrome certificate rule could not be saved.";
inline constexpr const char* policyVerificationFailed =
    "The Chrome certificate rule was saved but could not be verified.";
inline constexpr const char* chromeNotInstalled =
    "Google Chrome is not installed in /Applications.";
inline constexpr const char* selectedIdentityNotFound =
    "The selected certificate is no longer available in Keychain. Refresh the list and select it "
    "again.";
inline constexpr const char* selectedIdentityAmbiguous =
    "Keychain returned more than one identity for the selected certificate. Remove the duplicate "
    "identity and try again.";
inline constexpr const char* selectedIdentityHasNoPrivateKey =
    "The selected certificate has no usable private key in Keychain. Import its complete identity "
    "and try again.";
inline constexpr const char* chromeKeyAuthorizationUnsupported =
    "This certificate's private key does not support persistent Chrome authorization. Smart cards "
    "and security tokens may still require their own PIN or confirmation.";
inline constexpr const char* keychainAuthorizationCancelled =
    "Chrome was not authorized because the Keychain confirmation was cancelled. No Chrome "
    "certificate rule was changed.";
// How the message of chromeLaunchFailed may end.
inline constexpr const char* unsuccessfulExit = "Google Chrome exited with status <status>.";
inline constexpr const char* unsupportedScheme = "Only HTTP and HTTPS destinations are supported.";

/// The message with this in place of its "<status>" or "<text>".
inline std::string told(std::string message, std::string_view text) {
  const std::size_t begin = message.find('<');
  return message.replace(begin, message.find('>') + 1 - begin, text);
}

}  // namespace lumaret::tests::messages
