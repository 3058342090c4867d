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
  /// PKCS#12, protected by `passphrase`.
  std::filesystem::path bundle;
  Bytes der;

  /// The Keychain does not import a bundle without a passphrase.
  static constexpr const char* passphrase = "test";
};

enum class KeyType { ec, rsa };

/// Makes the files in the folder with the system's openssl. This is OpenSSL on Debian. On a Mac it
/// is LibreSSL, whose bundles the Keychain can read. The subject has the form of openssl's -subj,
/// "/CN=Anna/O=Example", and the expiry has that of its -enddate.
FreshIdentity makeIdentity(const TemporaryFolder& folder, const std::string& subject,
                           KeyType keyType = KeyType::ec,
                           const std::string& expiry = "20991231235959Z");

}  // namespace lumaret::tests
