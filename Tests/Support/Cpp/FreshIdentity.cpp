// SPDX-License-Identifier: Apache-2.0
#include "Tests/Support/Cpp/FreshIdentity.hpp"

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
  const std::string openssl = "/usr/bin/openssl ";
  const std::string configuration = (folder / "authority.cnf").string();
  writeFile(configuration,
            "[req]\ndistinguished_name=any\nstring_mask=utf8only\n[ca]\ndefault_ca=self\n[self]"
            "\ndatabase=" +
                stem + ".index\nserial=" + stem +
                ".serial\nnew_certs_dir=" + folder.path().string() +
                "\ndefault_md=sha256\npolicy=any\n"
                "[any]\ncountryName=optional\norganizationName=optional\n"
                "organizationalUnitName=optional\nlocalityName=optional\ncommonName=optional\n");
  writeFile(stem + ".index", "");
  shell(openssl + "req -new -nodes -utf8 -config " + configuration + " -subj '" + subject +
        "' -newkey " +
        (keyType == KeyType::ec ? "ec -pkeyopt ec_paramgen_curve:P-256" : "rsa:2048") +
        " -keyout " + stem + ".key -out " + stem + ".csr");
  // The serial number is random, since no file specifies one.
  shell(openssl + "ca -batch -notext -selfsign -preserveDN -create_serial -config " +
        configuration + " -startdate 600101000000Z -enddate " + expiry + " -keyfile " + stem +
        ".key -in " + stem + ".csr -out " + stem + ".crt");
  shell(openssl + "x509 -outform der -in " + stem + ".crt -out " + stem + ".der");
  shell(openssl + "pkcs12 -export -passout pass:" + FreshIdentity::passphrase + " -name identity" +
        number + " -inkey " + stem + ".key -in " + stem + ".crt -out " + stem + ".p12");
  const std::string der = readFile(stem + ".der");
  identity.der.assign(der.begin(), der.end());
  return identity;
}

}  // namespace lumaret::tests
