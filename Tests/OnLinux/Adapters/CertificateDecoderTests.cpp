// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <span>
#include <string_view>
#include <tuple>

#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "LumaretMacHelper/Linux/CertificateDecoder.hpp"
#include "Tests/Support/Cpp/FreshIdentity.hpp"

namespace lumaret::tests {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using namespace std::string_view_literals;
using std::chrono::sys_days;

std::optional<ParsedCertificateValues> parsed(const Bytes& der) {
  return CertificateValueParser::parse({decodeCertificate(der), der});
}

// The conformance suite shows usual names. These certificates have bytes that openssl does not
// write. This breaks their signatures, which nobody verifies here.
class CertificateDecoder : public ::testing::Test {
 protected:
  /// Replaces each occurrence of a byte string by one of the same length.
  [[nodiscard]] Bytes patched(std::string_view from, std::string_view to) const {
    Bytes der = identity_.der;
    EXPECT_EQ(from.size(), to.size());
    auto found = std::search(der.begin(), der.end(), from.begin(), from.end());
    EXPECT_NE(found, der.end());
    for (; found != der.end(); found = std::search(found, der.end(), from.begin(), from.end())) {
      found = std::copy(to.begin(), to.end(), found);
    }
    return der;
  }

  TemporaryFolder folder_;
  FreshIdentity identity_ = makeIdentity(folder_, "/O=Other/CN=ABCDEFGH");
};

TEST_F(CertificateDecoder, ReadsEveryTypeOfTextAsUTF8) {
  const std::tuple<char, std::string_view, std::optional<std::string>> texts[] = {
      {'\x0c', " \"a\\b\" 1"sv, " \"a\\b\" 1"},              // UTF8String
      {'\x0c', "null\0 in"sv, "null\0 in"s},                 //
      {'\x0c', "bad \xff\xfe 1"sv, std::nullopt},            //
      {'\x0c', "\xed\xa0\x80 bad!"sv, std::nullopt},         // a surrogate
      {'\x13', "Ordinary"sv, "Ordinary"},                    // PrintableString
      {'\x14', "Ordinary"sv, "Ordinary"},                    // T61String
      {'\x14', "Zo\xeb 1234"sv, "Zo\u00eb 1234"},            // taken for Latin-1
      {'\x1e', "\0Z\0o\0\xeb\x20\xac"sv, "Zo\u00eb\u20ac"},  // BMPString
      {'\x1e', "\0Z\xd8\0\0o\0!"sv, std::nullopt},           // a lone surrogate
      {'\x1c', "\0\x01\xf5\x11\0\0\0!"sv, "\U0001f511!"},    // UniversalString
      {'\x1c', "\x7f\xff\xff\xff\0\0\0!"sv, std::nullopt},   // beyond Unicode
      {'\x04', "octets!!"sv, std::nullopt},                  // OCTET STRING
  };
  for (const auto& [type, bytes, expected] : texts) {
    const auto values = parsed(patched("\x0c\bABCDEFGH", type + "\b"s + std::string(bytes)));
    ASSERT_TRUE(values);
    EXPECT_EQ(values->subject.organization, "Other");
    EXPECT_EQ(values->subject.commonName, expected);
  }
}

TEST_F(CertificateDecoder, ComparesAttributeTypesWhole) {
  const auto values = parsed(patched("\x06\x03\x55\x04\x03\f\bABCDEFGH",
                                     "\x06\x05\x55\x04\x03\x01\x01\f\x06"
                                     "CDEFGH"));
  ASSERT_TRUE(values);
  EXPECT_EQ(values->subject.organization, "Other");
  EXPECT_EQ(values->subject.commonName, std::nullopt);
}

TEST_F(CertificateDecoder, ReadsEveryAttributeOfARelativeName) {
  shell("cd " + folder_.path().string() +
        " && openssl req -x509 -newkey ed25519 -nodes -keyout key" +
        " -multivalue-rdn -subj /CN=Name+OU=Unit -outform der -out der");
  const std::string der = readFile(folder_ / "der");
  const auto values = parsed(Bytes(der.begin(), der.end()));
  ASSERT_TRUE(values);
  EXPECT_EQ(values->subject.commonName, "Name");
  EXPECT_EQ(values->subject.organizationalUnit, "Unit");
}

TEST_F(CertificateDecoder, ReadsWellFormedTimes) {
  const std::pair<std::string_view, std::optional<Date>> times[] = {
      {"99991231235959Z", sys_days(9999y / 12 / 31) + 23h + 59min + 59s},
      {"19700101000001Z", Date(1s)},
      {"20991399999999Z", std::nullopt},
      {"not a time at a", std::nullopt}};
  for (const auto& [time, expected] : times) {
    const auto values = parsed(patched(FreshIdentity::expiry, time));
    EXPECT_EQ(values ? std::optional(values->expiresAt) : std::nullopt, expected) << time;
  }
}

TEST_F(CertificateDecoder, RejectsBrokenDER) {
  for (const Bytes& der : {Bytes{}, Bytes(1000, 0xff), Bytes{0x30, 0x84, 0xff, 0xff, 0xff, 0xff}}) {
    EXPECT_FALSE(decodeCertificate(der));
  }
  for (std::size_t length = 0; length < identity_.der.size(); ++length) {
    EXPECT_FALSE(decodeCertificate(std::span(identity_.der).first(length))) << length;
  }
}

}  // namespace
}  // namespace lumaret::tests
