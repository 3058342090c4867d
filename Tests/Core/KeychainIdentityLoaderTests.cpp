// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/Fingerprint.hpp"
#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "Tests/Core/CallLog.hpp"
#include "Tests/Core/CertificateProperties.hpp"
#include "Tests/Core/KeychainFakes.hpp"
#include "Tests/Support/Cpp/CertificateBytes.hpp"
#include "Tests/Support/Cpp/Principals.hpp"
#include "Tests/Support/Cpp/ThrownError.hpp"

namespace lumaret::tests {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr Date now = std::chrono::sys_days(2026y / 6 / 1);

class FakeQuery final : public KeychainIdentityQuerying {
 public:
  FakeQuery(std::vector<FakeKeychainEntry> stored, std::shared_ptr<CallLog> log)
      : stored_(std::move(stored)), log_(std::move(log)) {}

  void failWith(CertificateSelectorError error) { error_ = std::move(error); }

  [[nodiscard]] std::vector<std::unique_ptr<KeychainIdentity>> copyIdentities() const override {
    log_->push_back("copyIdentities");
    if (error_) {
      throw *error_;
    }
    std::vector<std::unique_ptr<KeychainIdentity>> identities;
    for (const FakeKeychainEntry& stored : stored_) {
      identities.push_back(std::make_unique<FakeIdentity>(stored, log_));
    }
    return identities;
  }

 private:
  std::vector<FakeKeychainEntry> stored_;
  std::shared_ptr<CallLog> log_;
  std::optional<CertificateSelectorError> error_;
};

/// A loader over a fake Keychain. The log has every call of the Keychain and of the clock.
class LoaderOver {
 public:
  explicit LoaderOver(std::vector<FakeKeychainEntry> stored)
      : query_(std::make_shared<FakeQuery>(std::move(stored), log_)), loader_(query_, [log = log_] {
          log->push_back("now");
          return now;
        }) {}

  FakeQuery& query() { return *query_; }
  [[nodiscard]] const CallLog& log() const { return *log_; }
  [[nodiscard]] std::vector<ClientIdentity> load() const { return loader_.loadIdentities(); }

  [[nodiscard]] std::vector<std::string> loadIds() const {
    std::vector<std::string> ids;
    for (const ClientIdentity& identity : load()) {
      ids.push_back(identity.id);
    }
    return ids;
  }

 private:
  std::shared_ptr<CallLog> log_ = std::make_shared<CallLog>();
  std::shared_ptr<FakeQuery> query_;
  KeychainIdentityLoader loader_;
};

CertificateValues valuesOf(const std::optional<std::string>& commonName, Date expiresAt) {
  return {commonName ? name({attribute("2.5.4.3", *commonName)}) : nullptr, nullptr,
          notAfter({expiresAt})};
}

FakeKeychainEntry stored(const std::string& certificate,
                         const std::optional<std::string>& commonName, Date expiresAt = now + 1h) {
  return {certificate, valuesOf(commonName, expiresAt)};
}

// Certificates whose fingerprints begin with 0a and b1.
const std::string certificate0a = "certificate 180";
const std::string certificateB1 = "certificate 125";

TEST(Fingerprint, IsSHA256InLowerCaseHexadecimal) {
  EXPECT_EQ(fingerprint(bytes("abc")),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(fingerprint({}), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST(Fingerprint, WritesEachByteWithTwoDigits) {
  EXPECT_EQ(idOf("certificate 47647"),
            "0aff062ae3b3be3248ac18877d23308993d30898c9f9dc6fd2e3df6e5d980d8a");
}

TEST(Loader, ReturnsFingerprintNamesAndExpiry) {
  CertificateValues values = valuesOf("Ana", now + 1us);
  values.issuerName = name({attribute("2.5.4.10", "Example Trust")});
  EXPECT_THAT(
      LoaderOver({{"abc", values}}).load(),
      ElementsAre(ClientIdentity{"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad",
                                 {"Ana", std::nullopt, std::nullopt, std::nullopt},
                                 {std::nullopt, "Example Trust", std::nullopt, std::nullopt},
                                 now + 1us}));
}

TEST(Loader, ReadsTheClockOnceBetweenTheQueryAndTheFirstIdentity) {
  const LoaderOver loader({stored("A", "Ana"), stored("B", "Bea")});
  EXPECT_EQ(loader.load().size(), 2U);
  EXPECT_THAT(
      loader.log(),
      ElementsAre("copyIdentities", "now", "hasPrivateKey A", "copyCertificate A", "copyValues A",
                  "data A", "hasPrivateKey B", "copyCertificate B", "copyValues B", "data B"));
}

TEST(Loader, AnEmptyKeychainIsAnEmptyList) {
  const LoaderOver loader({});
  EXPECT_THAT(loader.load(), IsEmpty());
  EXPECT_THAT(loader.log(), ElementsAre("copyIdentities", "now"));
}

TEST(Loader, ACancelledQueryFailsWithItsStatusAndNothingElseIsDone) {
  LoaderOver loader({stored("A", "Ana")});
  loader.query().failWith(CertificateSelectorError::keychainFailure(-128));
  EXPECT_EQ(selectorErrorOf([&] { (void)loader.load(); }),
            CertificateSelectorError::keychainFailure(-128));
  EXPECT_THAT(loader.log(), ElementsAre("copyIdentities"));
}

TEST(Loader, DropsAnIdentityWithoutAPrivateKey) {
  FakeKeychainEntry keyless = stored("A", "Ana");
  keyless.hasPrivateKey = false;
  const LoaderOver loader({keyless});
  EXPECT_THAT(loader.load(), IsEmpty());
  EXPECT_THAT(loader.log(), ElementsAre("copyIdentities", "now", "hasPrivateKey A"));
}

TEST(Loader, DropsAnIdentityWhoseCertificateHasNoBytes) {
  EXPECT_THAT(LoaderOver({stored("", "Ana")}).load(), IsEmpty());
}

TEST(Loader, DropsAnIdentityWithoutACertificate) {
  FakeKeychainEntry bare = stored("A", "Ana");
  bare.hasCertificate = false;
  const LoaderOver loader({bare});
  EXPECT_THAT(loader.load(), IsEmpty());
  EXPECT_THAT(loader.log(),
              ElementsAre("copyIdentities", "now", "hasPrivateKey A", "copyCertificate A"));
}

TEST(Loader, DropsACertificateThatCannotBeRead) {
  const LoaderOver loader({{"A", std::nullopt}});
  EXPECT_THAT(loader.load(), IsEmpty());
  EXPECT_THAT(loader.log(), ElementsAre("copyIdentities", "now", "hasPrivateKey A",
                                        "copyCertificate A", "copyValues A"));
}

TEST(Loader, DropsACertificateWithoutAReadableExpiry) {
  CertificateValues values = valuesOf("Ana", now + 1h);
  values.validityNotAfter = notAfter(text("2030"));
  EXPECT_THAT(LoaderOver({{"A", values}}).load(), IsEmpty());
}

TEST(Loader, DropsACertificateThatExpiredOneSecondBeforeTheReferenceInstant) {
  EXPECT_THAT(LoaderOver({stored("A", "Ana", now - 1s)}).load(), IsEmpty());
}

TEST(Loader, KeepsACertificateThatExpiresOneSecondAfterTheReferenceInstant) {
  EXPECT_THAT(LoaderOver({stored("A", "Ana", now + 1s)}).loadIds(), ElementsAre(idOf("A")));
}

TEST(Loader, DropsACertificateThatExpiresAtTheReferenceInstant) {
  const LoaderOver loader({stored("A", "Ana", now)});
  EXPECT_THAT(loader.load(), IsEmpty());
  EXPECT_EQ(loader.log().back(), "copyValues A");
}

TEST(Loader, KeepsACertificateThatExpiresAFractionOfASecondAfterTheReferenceInstant) {
  EXPECT_THAT(LoaderOver({stored("A", "Ana", now + 1us)}).loadIds(), ElementsAre(idOf("A")));
}

TEST(Loader, ADroppedIdentityDoesNotEndTheLoad) {
  FakeKeychainEntry keyless = stored("A", "Ana");
  keyless.hasPrivateKey = false;
  FakeKeychainEntry bare = stored("B", "Bea");
  bare.hasCertificate = false;
  const LoaderOver loader(
      {keyless, bare, {"C", std::nullopt}, stored("D", "Dora", now), stored("E", "Eva")});
  EXPECT_THAT(loader.loadIds(), ElementsAre(idOf("E")));
}

TEST(Loader, AnIdentityThatTheKeychainReturnsTwiceIsListedOnce) {
  EXPECT_THAT(LoaderOver({stored("A", "Ana"), stored("A", "Ana")}).loadIds(),
              ElementsAre(idOf("A")));
}

TEST(Loader, TheLaterOfTwoIdentitiesWithOneFingerprintStays) {
  const auto identities =
      LoaderOver({stored("A", "Earlier", now + 1h), stored("A", "Later", now + 2h)}).load();
  EXPECT_THAT(
      identities,
      ElementsAre(ClientIdentity{
          idOf("A"), {"Later", std::nullopt, std::nullopt, std::nullopt}, noFields, now + 2h}));
}

TEST(Loader, ADroppedDuplicateDoesNotReplaceAUsableOne) {
  FakeKeychainEntry keyless = stored("A", "Ana");
  keyless.hasPrivateKey = false;
  EXPECT_THAT(LoaderOver({stored("A", "Ana"), keyless}).loadIds(), ElementsAre(idOf("A")));
}

TEST(Loader, CertificatesWithoutACommonNameSortAsUnnamedAndByFingerprint) {
  EXPECT_THAT(LoaderOver({stored(certificateB1, std::nullopt), stored("V", "Vera"),
                          stored(certificate0a, std::nullopt), stored("T", "Tess")})
                  .loadIds(),
              ElementsAre(idOf("T"), idOf(certificate0a), idOf(certificateB1), idOf("V")));
}

TEST(Loader, SortsAlphaBeforeBetaWhateverTheirCase) {
  EXPECT_THAT(LoaderOver({stored("B", "Beta"), stored("A", "alpha")}).loadIds(),
              ElementsAre(idOf("A"), idOf("B")));
  EXPECT_THAT(LoaderOver({stored("B", "beta"), stored("A", "Alpha")}).loadIds(),
              ElementsAre(idOf("A"), idOf("B")));
}

TEST(Loader, SortsTheSameCommonNameByFingerprint) {
  EXPECT_THAT(LoaderOver({stored(certificateB1, "Ana"), stored(certificate0a, "Ana")}).loadIds(),
              ElementsAre(idOf(certificate0a), idOf(certificateB1)));
}

TEST(Loader, SortsCommonNamesThatDifferOnlyInCaseByFingerprint) {
  EXPECT_THAT(LoaderOver({stored(certificateB1, "ANA"), stored(certificate0a, "ana")}).loadIds(),
              ElementsAre(idOf(certificate0a), idOf(certificateB1)));
  EXPECT_THAT(LoaderOver({stored(certificateB1, "ana"), stored(certificate0a, "ANA")}).loadIds(),
              ElementsAre(idOf(certificate0a), idOf(certificateB1)));
}

TEST(Loader, AnEmptyCommonNameSortsAsUnnamed) {
  EXPECT_THAT(LoaderOver({stored("V", "Vera"), stored("E", ""), stored("T", "Tess")}).loadIds(),
              ElementsAre(idOf("T"), idOf("E"), idOf("V")));
}

TEST(Loader, TheOrderDoesNotDependOnThatOfTheKeychain) {
  std::array<std::pair<std::string, std::string>, 4> people = {
      {{"A", "ana"}, {"B", "Bea"}, {"C", "carla"}, {"D", "Dora"}}};
  do {
    std::vector<FakeKeychainEntry> identities;
    for (const auto& [certificate, commonName] : people) {
      identities.push_back(stored(certificate, commonName));
    }
    EXPECT_THAT(LoaderOver(identities).loadIds(),
                ElementsAre(idOf("A"), idOf("B"), idOf("C"), idOf("D")));
  } while (std::next_permutation(people.begin(), people.end()));
}

TEST(Loader, AsksTheKeychainAfreshEachTime) {
  const LoaderOver loader({stored("A", "Ana")});
  EXPECT_EQ(loader.load(), loader.load());
  EXPECT_EQ(std::count(loader.log().begin(), loader.log().end(), "copyIdentities"), 2);
  EXPECT_EQ(std::count(loader.log().begin(), loader.log().end(), "now"), 2);
}

}  // namespace
}  // namespace lumaret::tests
