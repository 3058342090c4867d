// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>

#include "Tests/Support/Cpp/FreshIdentity.hpp"
#include "Tests/Support/Cpp/TemporaryFolder.hpp"

namespace lumaret::tests {

/// An NSS certificate database like that of Chrome.
class CertificateStore {
 public:
  /// Creates the database in the folder.
  explicit CertificateStore(const std::filesystem::path& folder, const std::string& password = "");

  void addIdentity(const FreshIdentity& identity, const std::string& token = "",
                   const std::string& tokenPassword = "") const;
  void addCertificate(const FreshIdentity& identity) const;
  /// Adds a PKCS#11 module to the database. The library need not exist.
  void addModule(const std::string& library) const;

 private:
  std::filesystem::path folder_;
  std::string password_;
};

/// Makes a new token of SoftHSM with the label "card". Its module finds it through the environment.
void makeSoftwareToken(const TemporaryFolder& folder, const std::string& pin);
inline constexpr const char* softwareTokenModule = "/usr/lib/softhsm/libsofthsm2.so";

}  // namespace lumaret::tests
