// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "Tests/Support/Cpp/Messages.hpp"

namespace lumaret::tests::faults {

inline const std::string unreadable = messages::keychainFailure;
inline const std::string notFound = messages::selectedIdentityNotFound;
inline const std::string ambiguous = messages::selectedIdentityAmbiguous;
inline const std::string noPrivateKey = messages::selectedIdentityHasNoPrivateKey;
inline const std::string unsupported = messages::chromeKeyAuthorizationUnsupported;
inline const std::string cancelled = messages::keychainAuthorizationCancelled;
inline const std::string notAuthorized = messages::keychainAuthorizationFailed;
inline const std::string unmatchable = messages::certificateHasNoSubject;
inline const std::string notSaved = messages::policyWriteFailed;
inline const std::string notVerified = messages::policyVerificationFailed;
inline const std::string notInstalled = messages::chromeNotInstalled;
inline const std::string refused =
    messages::told(messages::chromeLaunchFailed, messages::unsupportedScheme);
inline const std::string exited =
    messages::told(messages::chromeLaunchFailed, messages::unsuccessfulExit);
inline const std::string notStarted =
    messages::told(messages::chromeLaunchFailed,
                   "/Applications/Google Chrome.app/Contents/MacOS/Google Chrome: No such file or "
                   "directory");

/// The message with this status.
std::string told(std::string message, std::int32_t status);

}  // namespace lumaret::tests::faults
