// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "LumaretMacHelper/Contracts.hpp"
#include "Tests/Support/Cpp/TemporaryFolder.hpp"

namespace lumaret::tests {

/// Runs a command line of the shell. Returns its output, including standard error. Throws a
/// std::runtime_error with the output if it fails.
inline std::string shell(const std::string& command) {
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

/// A new key with a self-signed certificate.
struct FreshIdentity {
  std::filesystem::path key;
  std::filesystem::path certificate;
  std::filesystem::path bundle;  // PKCS#12
  Bytes der;

  /// That of the bundle. The Keychain does not import one without.
  static constexpr const char* passphrase = "test";
  static constexpr const char* expiry = "20870301123456Z";
};

enum class KeyType { ec, rsa };

/// Makes the files with the system's openssl: OpenSSL on Debian; LibreSSL, whose bundles the
/// Keychain can read, on a Mac. Subject and expiry have the form of its -subj and -enddate. The
/// serial number is random, since no file specifies one.
inline FreshIdentity makeIdentity(const TemporaryFolder& folder, const std::string& subject,
                                  KeyType keyType = KeyType::ec,
                                  const std::string& expiry = FreshIdentity::expiry) {
  constexpr const char* script = R"(
set -e
PATH=/usr/bin:/bin
printf '%s\n' '[req]' distinguished_name=any string_mask=utf8only '[ca]' default_ca=self \
  '[self]' database=$n.index serial=$n.serial new_certs_dir=. default_md=sha256 policy=any \
  '[any]' countryName=optional organizationName=optional organizationalUnitName=optional \
  localityName=optional commonName=optional >$n.cnf
touch $n.index
openssl req -new -nodes -utf8 -config $n.cnf -subj "$subject" -newkey $key -keyout $n.key -out $n.csr
openssl ca -batch -notext -selfsign -preserveDN -create_serial -config $n.cnf \
  -startdate 600101000000Z -enddate $expiry -keyfile $n.key -in $n.csr -out $n.crt
openssl x509 -outform der -in $n.crt -out $n.der
openssl pkcs12 -export -passout pass:$passphrase -name $n -inkey $n.key -in $n.crt -out $n.p12
)";
  static int count = 0;
  const std::string name = "identity" + std::to_string(++count);
  const char* key = keyType == KeyType::ec ? "ec -pkeyopt ec_paramgen_curve:P-256" : "rsa:2048";
  shell("cd " + folder.path().string() + "; n=" + name + "; subject='" + subject + "'; key='" +
        key + "'; expiry=" + expiry + "; passphrase=" + FreshIdentity::passphrase + script);
  const std::string der = readFile(folder / (name + ".der"));
  return {folder / (name + ".key"), folder / (name + ".crt"), folder / (name + ".p12"),
          Bytes(der.begin(), der.end())};
}

}  // namespace lumaret::tests
