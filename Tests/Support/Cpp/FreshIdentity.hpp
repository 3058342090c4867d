// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>

#include "LumaretMacHelper/Contracts.hpp"
#include "Tests/Support/Cpp/TemporaryFolder.hpp"

namespace lumaret::tests {

/// Runs a command line of the shell and returns what it printed, standard error included; throws
/// std::runtime_error with that when it fails.
std::string shell(const std::string& command);

/// A key and a self-signed certificate, made fresh.
struct FreshIdentity {
  std::filesystem::path key;
  std::filesystem::path certificate;
  /// PKCS#12, under `passphrase`.
  std::filesystem::path bundle;
  Bytes der;

  /// The Keychain takes no bundle without one.
  static constexpr const char* passphrase = "test";
};

enum class KeyType { ec, rsa };

/// Makes the files in the folder, with the system's own openssl: OpenSSL on Debian, and on a Mac
/// LibreSSL, whose bundles its Keychain can read. The subject is in the form of openssl's -subj,
/// "/CN=Anna/O=Example", and the expiry in that of its -enddate.
FreshIdentity makeIdentity(const TemporaryFolder& folder, const std::string& subject,
                           KeyType keyType = KeyType::ec,
                           const std::string& expiry = "20991231235959Z");

}  // namespace lumaret::tests
