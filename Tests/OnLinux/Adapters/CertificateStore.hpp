// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>

#include "Tests/Support/Cpp/FreshIdentity.hpp"
#include "Tests/Support/Cpp/TemporaryFolder.hpp"

namespace lumaret::tests {

/// An NSS certificate database, as Chrome keeps it.
class CertificateStore {
 public:
  /// Made where Chrome looks first, or at the given place.
  explicit CertificateStore(const std::filesystem::path& folder, const std::string& password = "");

  void addIdentity(const FreshIdentity& identity, const std::string& token = "",
                   const std::string& tokenPassword = "") const;
  void addCertificate(const FreshIdentity& identity) const;
  /// Has the database name a further PKCS#11 module; the library need not exist.
  void addModule(const std::string& library) const;

 private:
  std::filesystem::path folder_;
  std::string password_;
};

/// A new token of SoftHSM, labelled "card"; its module finds it through the environment.
void makeSoftwareToken(const TemporaryFolder& folder, const std::string& pin);
inline constexpr const char* softwareTokenModule = "/usr/lib/softhsm/libsofthsm2.so";

}  // namespace lumaret::tests
