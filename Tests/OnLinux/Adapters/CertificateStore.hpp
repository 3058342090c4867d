// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "Tests/Support/Cpp/FreshIdentity.hpp"

namespace lumaret::tests {

/// A new NSS certificate database like that of Chrome.
class CertificateStore {
 public:
  explicit CertificateStore(const std::filesystem::path& folder, const std::string& password = "")
      : folder_(folder), password_(folder.string() + ".password") {
    std::filesystem::create_directories(folder);
    writeFile(password_, password + "\n");
    shell("certutil -N -d sql:" + folder_.string() + " -f " + password_);
  }

  void addIdentity(const FreshIdentity& identity) const { add(identity, "-k " + password_); }
  void addToToken(const FreshIdentity& identity) const { add(identity, "-h card -K 1234"); }
  void addCertificate(const FreshIdentity& identity) const {
    shell("certutil -A -n alone -t ,, -i " + identity.certificate.string() +
          " -d sql:" + folder_.string() + " -f " + password_);
  }
  /// Adds a PKCS#11 module. The library need not exist.
  void addModule(const std::string& library) const {
    std::ofstream(folder_ / "pkcs11.txt", std::ios::app)
        << "library=" << library << "\nname=" << library << "\n\n";
  }

  /// Adds a new token of SoftHSM with the label "card" and the PIN 1234, whose module finds it
  /// through the environment.
  void addSoftwareToken(const TemporaryFolder& folder) const {
    std::filesystem::create_directories(folder / "tokens");
    writeFile(folder / "softhsm2.conf", "directories.tokendir = " + (folder / "tokens").string());
    ::setenv("SOFTHSM2_CONF", (folder / "softhsm2.conf").c_str(), 1);
    shell("softhsm2-util --init-token --free --label card --so-pin 12345678 --pin 1234");
    addModule(softwareTokenModule);
  }
  static constexpr const char* softwareTokenModule = "/usr/lib/softhsm/libsofthsm2.so";

 private:
  void add(const FreshIdentity& identity, const std::string& access) const {
    shell("pk12util -i " + identity.bundle.string() + " -W " + FreshIdentity::passphrase +
          " -d sql:" + folder_.string() + " " + access);
  }

  std::filesystem::path folder_;
  std::string password_;
};

}  // namespace lumaret::tests
