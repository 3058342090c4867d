// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "LumaretMacHelper/Linux/CertificateDecoder.hpp"
#include "Tests/Support/Cpp/FreshIdentity.hpp"

namespace lumaret::tests {
namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

std::optional<ParsedCertificateValues> parsed(const Bytes& der) {
  return CertificateValueParser::parse({decodeCertificate(der), der});
}

/// The certificate with each occurrence of a byte string replaced by one of the same length. This
/// breaks the signature, which is not verified when certificates are only listed.
Bytes patched(Bytes der, std::string_view from, std::string_view to) {
  EXPECT_EQ(from.size(), to.size());
  int count = 0;
  for (auto found = der.begin();
       (found = std::search(found, der.end(), from.begin(), from.end())) != der.end(); ++count) {
    found = std::copy(to.begin(), to.end(), found);
  }
  EXPECT_GT(count, 0);
  return der;
}

class CertificateDecoder : public ::testing::Test {
 protected:
  static constexpr auto textPlaceholder =
      "\x0c\x08"  // UTF8String of eight bytes
      "ABCDEFGH"sv;

  [[nodiscard]] Bytes certificate(const std::string& subject) const {
    return makeIdentity(folder_, subject).der;
  }

  /// The common name that is read from a certificate with this encoded string of ten bytes.
  [[nodiscard]] std::optional<std::string> commonName(std::string_view encoded) const {
    const auto values =
        parsed(patched(certificate("/O=Other/CN=ABCDEFGH"), textPlaceholder, encoded));
    EXPECT_TRUE(values);
    EXPECT_EQ(values->subject.organization, "Other");
    return values->subject.commonName;
  }

  [[nodiscard]] std::optional<Date> expiry(std::string_view generalizedTime) const {
    constexpr auto usual = "20991231235959Z"sv;
    const auto values = parsed(patched(certificate("/CN=Late"), usual, generalizedTime));
    return values ? std::optional(values->expiresAt) : std::nullopt;
  }

  TemporaryFolder folder_;
};

TEST_F(CertificateDecoder, ReadsTheFourAttributesOfSubjectAndIssuer) {
  const auto values = parsed(certificate("/C=ES/O=Organization/OU=Unit/L=Place/CN=Name"));
  const CertificatePrincipal expected = {"Name", "Organization", "Unit", "Place"};
  ASSERT_TRUE(values);
  EXPECT_EQ(values->subject, expected);
  EXPECT_EQ(values->issuer, expected);
}

TEST_F(CertificateDecoder, TheFirstOfSeveralAttributesWins) {
  const auto values = parsed(certificate("/OU=One/OU=Two/CN=First/CN=Second"));
  ASSERT_TRUE(values);
  EXPECT_EQ(values->subject.organizationalUnit, "One");
  EXPECT_EQ(values->subject.commonName, "First");
}

TEST_F(CertificateDecoder, AttributesOfOneRelativeNameAreAllRead) {
  TemporaryFolder folder;
  const std::string stem = (folder / "multi").string();
  shell(
      "openssl req -x509 -multivalue-rdn -subj /CN=Name+OU=Unit -newkey ec -pkeyopt "
      "ec_paramgen_curve:P-256 -nodes -keyout " +
      stem + ".key -outform der -out " + stem + ".der");
  const std::string der = readFile(stem + ".der");
  const auto values = parsed(Bytes(der.begin(), der.end()));
  ASSERT_TRUE(values);
  EXPECT_EQ(values->subject.commonName, "Name");
  EXPECT_EQ(values->subject.organizationalUnit, "Unit");
}

TEST_F(CertificateDecoder, KeepsUTF8Text) {
  const auto values =
      parsed(certificate("/CN=Zo\xc3\xab \xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d \xf0\x9f\x94\x91"));
  ASSERT_TRUE(values);
  EXPECT_EQ(values->subject.commonName,
            "Zo\xc3\xab \xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d \xf0\x9f\x94\x91");
}

TEST_F(CertificateDecoder, KeepsQuotesBackslashesAndBlanks) {
  const auto values = parsed(certificate(R"(/CN= "a\\b" )"));
  ASSERT_TRUE(values);
  EXPECT_EQ(values->subject.commonName, R"( "a\b" )");
}

TEST_F(CertificateDecoder, ReadsPrintableString) {
  EXPECT_EQ(commonName("\x13\x08"
                       "Ordinary"sv),
            "Ordinary");
}

TEST_F(CertificateDecoder, ReadsBMPStringAsUTF8) {
  EXPECT_EQ(commonName("\x1e\x08\x00Z\x00o\x00\xeb\x20\xac"sv), "Zo\xc3\xab\xe2\x82\xac");
}

TEST_F(CertificateDecoder, ReadsUniversalStringAsUTF8) {
  EXPECT_EQ(commonName("\x1c\x08\x00\x01\xf5\x11\x00\x00\x00!"sv), "\xf0\x9f\x94\x91!");
}

TEST_F(CertificateDecoder, ReadsT61StringOfASCII) {
  EXPECT_EQ(commonName("\x14\x08"
                       "Ordinary"sv),
            "Ordinary");
}

TEST_F(CertificateDecoder, ReadsT61StringAsLatin1) {
  EXPECT_EQ(commonName("\x14\x08"
                       "Zo\xeb 1234"sv),
            "Zo\xc3\xab 1234");
}

TEST_F(CertificateDecoder, LeavesOutInvalidUTF8) {
  EXPECT_EQ(commonName("\x0c\x08"
                       "bad \xff\xfe 1"sv),
            std::nullopt);
}

TEST_F(CertificateDecoder, LeavesOutASurrogateInUTF8) {
  EXPECT_EQ(commonName("\x0c\x08"
                       "bad \xed\xa0\x80"
                       "1"sv),
            std::nullopt);
}

TEST_F(CertificateDecoder, LeavesOutALoneSurrogateInBMPString) {
  EXPECT_EQ(commonName("\x1e\x08\x00Z\xd8\x00\x00o\x00!"sv), std::nullopt);
}

TEST_F(CertificateDecoder, LeavesOutUniversalStringBeyondUnicode) {
  EXPECT_EQ(commonName("\x1c\x08\x7f\xff\xff\xff\x00\x00\x00!"sv), std::nullopt);
}

TEST_F(CertificateDecoder, LeavesOutAnAttributeOfAnotherType) {
  EXPECT_EQ(commonName("\x04\x08"
                       "octets!!"sv),
            std::nullopt);
}

TEST_F(CertificateDecoder, ALongerAttributeTypeIsNotTheOneThatItBeginsWith) {
  const auto values = parsed(patched(certificate("/O=Other/CN=ABCDEFGH"),
                                     "\x06\x03\x55\x04\x03\x0c\x08"
                                     "ABCDEFGH"sv,
                                     "\x06\x05\x55\x04\x03\x01\x01\x0c\x06"
                                     "CDEFGH"sv));
  ASSERT_TRUE(values);
  EXPECT_EQ(values->subject.commonName, std::nullopt);
  EXPECT_EQ(values->subject.organization, "Other");
}

TEST_F(CertificateDecoder, KeepsAnEmbeddedNull) {
  EXPECT_EQ(commonName("\x0c\x08"
                       "null\0 in"sv),
            "null\0 in"s);
}

TEST_F(CertificateDecoder, ReadsTheEndOfTheYear9999) {
  EXPECT_EQ(
      expiry("99991231235959Z"),
      Date(std::chrono::sys_days(std::chrono::year(9999) / 12 / 31) + std::chrono::seconds(86399)));
}

TEST_F(CertificateDecoder, ReadsATimeIn1970) {
  EXPECT_EQ(expiry("19700101000001Z"), Date(std::chrono::seconds(1)));
}

TEST_F(CertificateDecoder, ACertificateWithAMalformedTimeHasNoValues) {
  EXPECT_EQ(expiry("20991399999999Z"), std::nullopt);
  EXPECT_EQ(expiry("not a time at a"), std::nullopt);
}

TEST_F(CertificateDecoder, BrokenDERIsRejected) {
  EXPECT_FALSE(decodeCertificate({}));
  EXPECT_FALSE(decodeCertificate(Bytes{0x30}));
  EXPECT_FALSE(decodeCertificate(Bytes(1000, 0xff)));
  EXPECT_FALSE(decodeCertificate(Bytes{0x30, 0x84, 0xff, 0xff, 0xff, 0xff}));
}

TEST_F(CertificateDecoder, ATruncatedCertificateIsRejected) {
  const Bytes whole = certificate("/O=Organization/CN=Name");
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_FALSE(decodeCertificate(std::span(whole).first(length))) << length;
  }
}

}  // namespace
}  // namespace lumaret::tests
