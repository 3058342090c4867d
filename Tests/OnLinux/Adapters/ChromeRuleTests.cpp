// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/ChromeRule/ChromeRule.hpp"
#include "LumaretMacHelper/Linux/ManagedPolicyFolder.hpp"
#include "Tests/Support/Cpp/FreshIdentity.hpp"
#include "Tests/Support/Cpp/TemporaryFolder.hpp"

namespace lumaret::tests {
namespace {

using Rules = std::vector<std::string>;
using testing::ElementsAre;
using testing::Pair;

class RulesByFile : public testing::Test {
 protected:
  void put(const std::string& name, const std::string& rules) const {
    writeFile(folder_ / name, R"({"AutoSelectCertificateForUrls":)" + rules + "}");
  }
  [[nodiscard]] auto found() const { return ManagedPolicyFolder(folder_.path()).readRulesByFile(); }
  [[nodiscard]] std::string fault() const {
    try {
      return found().empty() ? "no files" : "";
    } catch (const std::exception& error) {
      return error.what();
    }
  }

  TemporaryFolder folder_;
};

TEST_F(RulesByFile, NamesTheFilesInTheirOrder) {
  put("zz-lumaret-macos-helper.json", R"(["own"])");
  put("zzz.json", R"(["later"])");
  put("a.json", R"(["a", "b"])");
  put("b.json", "[]");
  writeFile(folder_ / "other.json", R"({"ShowHomeButton": true})");
  writeFile(folder_ / "text", "no policies");
  EXPECT_THAT(found(), ElementsAre(Pair(folder_ / "a.json", Rules{"a", "b"}),
                                   Pair(folder_ / "b.json", Rules()),
                                   Pair(folder_ / "zz-lumaret-macos-helper.json", Rules{"own"}),
                                   Pair(folder_ / "zzz.json", Rules{"later"})));
}

TEST_F(RulesByFile, NamesTheFileAtFault) {
  put("b.json", "null");
  EXPECT_EQ(fault(), (folder_ / "b.json").string() + " does not list its rules.");
  put("c.json", R"(["rule"])");
  EXPECT_THAT(found(), ElementsAre(Pair(folder_ / "b.json", Rules()),
                                   Pair(folder_ / "c.json", Rules{"rule"})));
  writeFile(folder_ / "a.json", "AutoSelectCertificateForUrls");
  EXPECT_EQ(fault(), (folder_ / "a.json").string() + " is not a JSON object.");
  std::filesystem::permissions(folder_ / "a.json", std::filesystem::perms::owner_read);
  EXPECT_EQ(fault(), (folder_ / "a.json").string() + ": Permission denied");
}

/// Whether Chrome offers a certificate with these extensions, lines of openssl's configuration.
class Offer : public testing::Test {
 protected:
  [[nodiscard]] bool isOfferedWith(const std::string& extensions,
                                   const std::string& start = "20200101000000Z") const {
    const std::string file = (folder_ / "certificate").string();
    writeFile(file + ".cnf",
              "[ca]\ndefault_ca=self\n[self]\ndatabase=" + file +
                  ".index\nrand_serial=yes\nnew_certs_dir=" + folder_.path().string() +
                  "\ndefault_md=sha256\npolicy=any\nx509_extensions=extensions\n"
                  "unique_subject=no\n[any]\ncommonName=supplied\n[req]\n"
                  "distinguished_name=any\n[extensions]\n" +
                  extensions);
    writeFile(file + ".index", "");
    const std::string openssl = "/usr/bin/openssl ";
    shell(openssl + "req -new -nodes -config " + file + ".cnf -subj /CN=Ana -newkey ec -pkeyopt " +
          "ec_paramgen_curve:P-256 -keyout " + file + ".key -out " + file + ".csr");
    shell(openssl + "ca -batch -notext -selfsign -config " + file + ".cnf -keyfile " + file +
          ".key -startdate " + start + " -enddate 20991231235959Z -in " + file + ".csr -out " +
          file + ".crt");
    shell(openssl + "x509 -outform der -in " + file + ".crt -out " + file + ".der");
    const std::string der = readFile(file + ".der");
    return offerTest()({der.begin(), der.end()});
  }

  TemporaryFolder folder_;
};

// What NSS, and so Chrome for Linux, makes of each.
TEST_F(Offer, NeedsTheRightUsage) {
  for (const char* extensions :
       {"", "keyUsage=digitalSignature", "keyUsage=critical,digitalSignature,keyAgreement",
        "extendedKeyUsage=clientAuth", "extendedKeyUsage=serverAuth,clientAuth",
        "nsCertType=client\nkeyUsage=digitalSignature"}) {
    EXPECT_TRUE(isOfferedWith(extensions)) << extensions;
  }
  for (const char* extensions :
       {"keyUsage=nonRepudiation", "keyUsage=keyEncipherment", "extendedKeyUsage=serverAuth",
        "extendedKeyUsage=emailProtection", "extendedKeyUsage=anyExtendedKeyUsage",
        "keyUsage=keyAgreement\nextendedKeyUsage=clientAuth", "nsCertType=server",
        "basicConstraints=CA:TRUE\nextendedKeyUsage=clientAuth"}) {
    EXPECT_FALSE(isOfferedWith(extensions)) << extensions;
  }
}

TEST_F(Offer, NeedsAStartedValidity) { EXPECT_FALSE(isOfferedWith("", "20900101000000Z")); }

TEST_F(Offer, NeedsACertificate) { EXPECT_FALSE(offerTest()({1, 2, 3})); }

}  // namespace
}  // namespace lumaret::tests
