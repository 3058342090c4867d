// SPDX-License-Identifier: Apache-2.0
#include "Tests/OnLinux/Adapters/CertificateStore.hpp"

namespace lumaret::tests {

CertificateStore::CertificateStore(const std::filesystem::path& folder, const std::string& password)
    : folder_(folder), password_(folder.string() + ".password") {
  std::filesystem::create_directories(folder);
  writeFile(password_, password + "\n");
  shell("certutil -N -d sql:" + folder_.string() + " -f " + password_);
}

void CertificateStore::addIdentity(const FreshIdentity& identity, const std::string& token,
                                   const std::string& tokenPassword) const {
  const std::string access =
      token.empty() ? "-k " + password_ : "-h " + token + " -K " + tokenPassword;
  shell("pk12util -i " + identity.bundle.string() + " -W " + FreshIdentity::passphrase +
        " -d sql:" + folder_.string() + " " + access);
}

void CertificateStore::addCertificate(const FreshIdentity& identity) const {
  shell("certutil -A -n alone -t ,, -i " + identity.certificate.string() +
        " -d sql:" + folder_.string() + " -f " + password_);
}

void CertificateStore::addModule(const std::string& library) const {
  std::ofstream(folder_ / "pkcs11.txt", std::ios::app)
      << "library=" << library << "\nname=card\n\n";
}

void makeSoftwareToken(const TemporaryFolder& folder, const std::string& pin) {
  std::filesystem::create_directories(folder / "tokens");
  writeFile(folder / "softhsm2.conf", "directories.tokendir = " + (folder / "tokens").string());
  ::setenv("SOFTHSM2_CONF", (folder / "softhsm2.conf").c_str(), 1);
  shell("softhsm2-util --init-token --free --label card --so-pin 12345678 --pin " + pin);
}

}  // namespace lumaret::tests
