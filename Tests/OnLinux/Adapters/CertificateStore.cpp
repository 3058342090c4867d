// SPDX-License-Identifier: Apache-2.0
#include "Tests/OnLinux/Adapters/CertificateStore.hpp"

#include <array>
#include <cstdio>
#include <stdexcept>

namespace lumaret::tests {

std::string shell(const std::string& command) {
  std::FILE* pipe = ::popen(("exec 2>&1 </dev/null; " + command).c_str(), "r");
  std::string output;
  std::array<char, 4096> buffer{};
  while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
    output.append(buffer.data(), count);
  }
  if (::pclose(pipe) != 0) {
    throw std::runtime_error(command + ": " + output);
  }
  return output;
}

FreshIdentity makeIdentity(const TemporaryFolder& folder, const std::string& subject,
                           KeyType keyType, const std::string& expiry) {
  static int count = 0;
  const std::string number = std::to_string(++count);
  const std::string stem = (folder / ("identity" + number)).string();
  FreshIdentity identity{stem + ".key", stem + ".crt", stem + ".p12", {}};
  writeFile(folder / "authority.cnf",
            "[ca]\ndefault_ca=self\n[self]\ndatabase=" + stem +
                ".index\nnew_certs_dir=" + folder.path().string() +
                "\nrand_serial=yes\ndefault_md=sha256\npolicy=any\npreserve=yes\n"
                "[any]\ncountryName=optional\norganizationName=optional\n"
                "organizationalUnitName=optional\nlocalityName=optional\ncommonName=optional\n");
  writeFile(stem + ".index", "");
  shell("openssl req -new -nodes -utf8 -subj '" + subject + "' -newkey " +
        (keyType == KeyType::ec ? "ec -pkeyopt ec_paramgen_curve:P-256" : "rsa:2048") +
        " -keyout " + stem + ".key -out " + stem + ".csr");
  shell("openssl ca -batch -notext -selfsign -config " + (folder / "authority.cnf").string() +
        " -startdate 19600101000000Z -enddate " + expiry + " -keyfile " + stem + ".key -in " +
        stem + ".csr -out " + stem + ".crt");
  shell("openssl x509 -outform der -in " + stem + ".crt -out " + stem + ".der");
  shell("openssl pkcs12 -export -passout pass: -name identity" + number + " -inkey " + stem +
        ".key -in " + stem + ".crt -out " + stem + ".p12");
  const std::string der = readFile(stem + ".der");
  identity.der.assign(der.begin(), der.end());
  return identity;
}

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
  shell("pk12util -i " + identity.bundle.string() + " -W '' -d sql:" + folder_.string() + " " +
        access);
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
