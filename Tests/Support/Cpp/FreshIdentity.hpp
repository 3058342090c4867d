// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>

#include "LumaretMacHelper/Contracts.hpp"
#include "Tests/Support/Cpp/TemporaryFolder.hpp"

namespace lumaret::tests {

/// Runs a command line of the shell. Returns its output, including standard error. Throws a
/// std::runtime_error with the output if it fails.
std::string shell(const std::string& command);

/// A new key with a self-signed certificate.
struct FreshIdentity {
  std::filesystem::path key;
  std::filesystem::path certificate;
  std::filesystem::path bundle;  // PKCS#12
  Bytes der;

  /// That of the bundle. The Keychain does not import one without.
  static constexpr const char* passphrase = "test";
};

enum class KeyType { ec, rsa };

/// Makes the files with the system's openssl: OpenSSL on Debian; LibreSSL, whose bundles the
/// Keychain can read, on a Mac. Subject and expiry have the form of its -subj and -enddate.
FreshIdentity makeIdentity(const TemporaryFolder& folder, const std::string& subject,
                           KeyType keyType = KeyType::ec,
                           const std::string& expiry = "20991231235959Z");

}  // namespace lumaret::tests
