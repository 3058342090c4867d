// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <array>
#include <sstream>

#include "LumaretMacHelper/Linux/CertificateDatabase.hpp"
#include "Tests/OnLinux/Adapters/CertificateStore.hpp"
#include "Tests/OnLinux/Adapters/TemporaryHome.hpp"

namespace lumaret::tests {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

class CertificateDatabase : public ::testing::Test {
 protected:
  [[nodiscard]] std::filesystem::path oldPlace() const { return home_ / ".pki/nssdb"; }

  static std::vector<Bytes> certificates() {
    std::vector<Bytes> found;
    for (const StoredIdentity& identity : readStoredIdentities()) {
      found.push_back(identity.certificate);
    }
    return found;
  }

  static std::vector<bool> unguarded() {
    std::vector<bool> found;
    for (const StoredIdentity& identity : readStoredIdentities()) {
      found.push_back(identity.keyIsUnguarded);
    }
    return found;
  }

  static KeychainStatus refusal() {
    try {
      static_cast<void>(readStoredIdentities());
    } catch (const CertificateDatabaseError& error) {
      return error.status;
    }
    return 0;
  }

  TemporaryHome home_;
  TemporaryFolder material_;
};

constexpr KeychainStatus badDatabase = -8174;  // SEC_ERROR_BAD_DATABASE

TEST_F(CertificateDatabase, AMissingDatabaseHasNoIdentities) {
  EXPECT_THAT(certificates(), IsEmpty());
}

TEST_F(CertificateDatabase, AnEmptyFolderHasNoIdentities) {
  std::filesystem::create_directories(oldPlace());
  EXPECT_THAT(certificates(), IsEmpty());
}

TEST_F(CertificateDatabase, AnEmptyDatabaseHasNoIdentities) {
  const CertificateStore store(oldPlace());
  EXPECT_THAT(certificates(), IsEmpty());
}

TEST_F(CertificateDatabase, FindsIdentitiesWithEllipticCurveAndRSAKeys) {
  const CertificateStore store(oldPlace());
  const auto first = makeIdentity(material_, "/CN=First", KeyType::ec);
  const auto second = makeIdentity(material_, "/CN=Second", KeyType::rsa);
  store.addIdentity(first);
  store.addIdentity(second);
  EXPECT_THAT(certificates(), UnorderedElementsAre(first.der, second.der));
  EXPECT_THAT(unguarded(), ElementsAre(true, true));
}

TEST_F(CertificateDatabase, LeavesOutACertificateWithoutAKey) {
  const CertificateStore store(oldPlace());
  const auto whole = makeIdentity(material_, "/CN=Whole");
  store.addIdentity(whole);
  store.addCertificate(makeIdentity(material_, "/CN=Alone"));
  EXPECT_THAT(certificates(), ElementsAre(whole.der));
}

TEST_F(CertificateDatabase, LeavesOutAKeyWithoutACertificate) {
  const CertificateStore store(oldPlace());
  const auto gone = makeIdentity(material_, "/CN=Gone");
  store.addIdentity(gone);
  shell("certutil -D -d sql:" + oldPlace().string() + " -n " + gone.key.stem().string());
  EXPECT_THAT(certificates(), IsEmpty());
}

TEST_F(CertificateDatabase, FindsGuardedIdentitiesBehindAPasswordWithoutAskingForIt) {
  const CertificateStore store(oldPlace(), "secret");
  const auto identity = makeIdentity(material_, "/CN=Locked");
  store.addIdentity(identity);
  EXPECT_THAT(certificates(), ElementsAre(identity.der));
  EXPECT_THAT(unguarded(), ElementsAre(false));
}

TEST_F(CertificateDatabase, FindsGuardedIdentitiesOnALockedToken) {
  const CertificateStore store(oldPlace());
  makeSoftwareToken(material_, "1234");
  store.addModule(softwareTokenModule);
  const auto onToken = makeIdentity(material_, "/CN=Token", KeyType::rsa);
  const auto inDatabase = makeIdentity(material_, "/CN=Database");
  store.addIdentity(onToken, "card", "1234");
  store.addIdentity(inDatabase);

  const auto found = readStoredIdentities();
  ASSERT_THAT(found, SizeIs(2));
  for (const StoredIdentity& identity : found) {
    EXPECT_EQ(identity.keyIsUnguarded, identity.certificate == inDatabase.der);
  }
  EXPECT_THAT(certificates(), UnorderedElementsAre(onToken.der, inDatabase.der));
}

TEST_F(CertificateDatabase, FindsGuardedIdentitiesInFIPSMode) {
  const CertificateStore store(oldPlace(), "secret-1");
  const auto identity = makeIdentity(material_, "/CN=Locked");
  store.addIdentity(identity);
  shell("modutil -force -fips true -dbdir sql:" + oldPlace().string());
  EXPECT_THAT(certificates(), ElementsAre(identity.der));
  EXPECT_THAT(unguarded(), ElementsAre(false));
}

TEST_F(CertificateDatabase, AKeyWithoutAnIdentifierBelongsToNoCertificate) {
  const CertificateStore store(oldPlace());
  makeSoftwareToken(material_, "1234");
  store.addModule(softwareTokenModule);
  const auto first = makeIdentity(material_, "/CN=First", KeyType::rsa);
  const auto second = makeIdentity(material_, "/CN=Second", KeyType::rsa);
  const std::string key = (material_ / "public.der").string();
  shell("openssl rsa -in " + first.key.string() + " -pubout -outform der -out " + key);
  const std::string tool = std::string("pkcs11-tool --module ") + softwareTokenModule +
                           " --login --pin 1234 --write-object ";
  shell(tool + key + " --type pubkey");
  shell(tool + (second.certificate.parent_path() / second.certificate.stem()).string() +
        ".der --type cert");
  EXPECT_THAT(certificates(), IsEmpty());
}

TEST_F(CertificateDatabase, FindsALargeCertificate) {
  std::string subject = "/CN=Large";
  for (int unit = 0; unit < 120; ++unit) {
    subject += "/OU=" + std::string(60, 'u');
  }
  const CertificateStore store(oldPlace());
  const auto identity = makeIdentity(material_, subject);
  ASSERT_GT(identity.der.size(), 8192U);
  store.addIdentity(identity);
  EXPECT_THAT(certificates(), ElementsAre(identity.der));
}

/// NSS names the columns of its tables after the PKCS#11 attributes: 11 is CKA_VALUE, 102 CKA_ID.
TEST_F(CertificateDatabase, AnOversizedAttributeHidesNoOtherIdentity) {
  const auto first = makeIdentity(material_, "/CN=First");
  const auto second = makeIdentity(material_, "/CN=Second");
  for (const auto& [file, table, column] :
       {std::array{"cert9.db", "nssPublic", "a11"}, std::array{"cert9.db", "nssPublic", "a102"},
        std::array{"key4.db", "nssPrivate", "a102"}}) {
    std::filesystem::remove_all(oldPlace());
    const CertificateStore store(oldPlace());
    store.addIdentity(first);
    store.addIdentity(second);
    for (const int size : {1 << 20, (1 << 20) + 1}) {
      std::ostringstream sql;
      sql << "UPDATE " << table << " SET " << column << " = zeroblob(" << size
          << ") WHERE id = (SELECT min(id) FROM " << table << " WHERE a11 NOT NULL)";
      shell("python3 -c 'import sqlite3; file = sqlite3.connect(\"" + (oldPlace() / file).string() +
            "\"); file.execute(\"" + sql.str() + "\"); file.commit()'");
      const bool isReadable = column == std::string("a11") && size == 1 << 20;
      EXPECT_THAT(certificates(), SizeIs(isReadable ? 2 : 1)) << column << ' ' << size;
    }
  }
}

TEST_F(CertificateDatabase, FindsACertificateTwiceWhenItIsOnTwoTokens) {
  const CertificateStore store(oldPlace());
  makeSoftwareToken(material_, "1234");
  store.addModule(softwareTokenModule);
  const auto identity = makeIdentity(material_, "/CN=Both");
  store.addIdentity(identity, "card", "1234");
  store.addIdentity(identity);
  EXPECT_THAT(certificates(), ElementsAre(identity.der, identity.der));
}

TEST_F(CertificateDatabase, AModuleThatDoesNotLoadHidesNothingElse) {
  const CertificateStore store(oldPlace());
  const auto identity = makeIdentity(material_, "/CN=Anna");
  store.addIdentity(identity);
  store.addModule((home_ / "no-such-library.so").string());
  EXPECT_THAT(certificates(), ElementsAre(identity.der));
}

TEST_F(CertificateDatabase, TheOldPlaceWinsIfItExists) {
  const CertificateStore old(oldPlace());
  const CertificateStore other(home_ / ".local/share/pki/nssdb");
  const auto identity = makeIdentity(material_, "/CN=Old");
  old.addIdentity(identity);
  other.addIdentity(makeIdentity(material_, "/CN=New"));
  EXPECT_THAT(certificates(), ElementsAre(identity.der));
}

TEST_F(CertificateDatabase, TheDataHomeIsUsedIfTheOldPlaceIsMissing) {
  const CertificateStore store(home_ / ".local/share/pki/nssdb");
  const auto identity = makeIdentity(material_, "/CN=New");
  store.addIdentity(identity);
  EXPECT_THAT(certificates(), ElementsAre(identity.der));
}

TEST_F(CertificateDatabase, ADanglingLinkIsNotTheOldPlace) {
  std::filesystem::create_directories(home_ / ".pki");
  std::filesystem::create_symlink(home_ / "nowhere", oldPlace());
  const CertificateStore store(home_ / ".local/share/pki/nssdb");
  const auto identity = makeIdentity(material_, "/CN=New");
  store.addIdentity(identity);
  EXPECT_THAT(certificates(), ElementsAre(identity.der));
}

TEST_F(CertificateDatabase, DanglingLinksAreNotAnEmptyDatabase) {
  std::filesystem::create_directories(oldPlace());
  for (const char* file : {"cert9.db", "key4.db", "pkcs11.txt"}) {
    std::filesystem::create_symlink(home_ / "nowhere", oldPlace() / file);
  }
  EXPECT_EQ(refusal(), badDatabase);
}

TEST_F(CertificateDatabase, TheDataHomeMayBeElsewhere) {
  ::setenv("XDG_DATA_HOME", (home_ / "data").c_str(), 1);
  const CertificateStore store(home_ / "data/pki/nssdb");
  const auto identity = makeIdentity(material_, "/CN=Elsewhere");
  store.addIdentity(identity);
  EXPECT_THAT(certificates(), ElementsAre(identity.der));
}

TEST_F(CertificateDatabase, AFileInPlaceOfTheFolderIsRefused) {
  writeFile(oldPlace(), "not a folder");
  EXPECT_EQ(refusal(), badDatabase);
}

TEST_F(CertificateDatabase, HalfADatabaseIsRefused) {
  const CertificateStore store(oldPlace());
  std::filesystem::remove(oldPlace() / "key4.db");
  EXPECT_EQ(refusal(), badDatabase);
}

TEST_F(CertificateDatabase, ADamagedCertificateFileIsRefused) {
  const CertificateStore store(oldPlace());
  writeFile(oldPlace() / "cert9.db", "this is no database, whatever its name says");
  EXPECT_EQ(refusal(), badDatabase);
}

TEST_F(CertificateDatabase, ADamagedKeyFileIsRefused) {
  const CertificateStore store(oldPlace());
  writeFile(oldPlace() / "key4.db", "this is no database, whatever its name says");
  EXPECT_EQ(refusal(), badDatabase);
}

/// A truncated file still has the header and the definitions of the tables.
class TruncatedDatabase : public CertificateDatabase,
                          public ::testing::WithParamInterface<std::tuple<std::string, int>> {};

TEST_P(TruncatedDatabase, IsRefused) {
  const auto [name, percent] = GetParam();
  const CertificateStore store(oldPlace());
  store.addIdentity(makeIdentity(material_, "/CN=First"));
  store.addIdentity(makeIdentity(material_, "/CN=Second"));
  const auto file = oldPlace() / name;
  const auto size = std::filesystem::file_size(file);
  std::filesystem::resize_file(file, size * static_cast<unsigned>(percent) / 100);
  EXPECT_NE(refusal(), 0);
}

INSTANTIATE_TEST_SUITE_P(AtEveryLength, TruncatedDatabase,
                         ::testing::Combine(::testing::Values<std::string>("cert9.db", "key4.db"),
                                            ::testing::Values(0, 10, 50, 90, 99)));

/// Overwrites each page in turn: those of indices, of tables and of their definitions.
class DamagedPage : public CertificateDatabase,
                    public ::testing::WithParamInterface<std::string> {};

TEST_P(DamagedPage, NeverHidesAnIdentity) {
  const CertificateStore store(oldPlace());
  store.addIdentity(makeIdentity(material_, "/CN=First"));
  store.addIdentity(makeIdentity(material_, "/CN=Second"));
  const auto file = oldPlace() / GetParam();
  const std::string whole = readFile(file);
  constexpr std::size_t pageSize = 4096;
  int refused = 0;
  for (std::size_t page = 0; page < whole.size() / pageSize; ++page) {
    std::string damaged = whole;
    damaged.replace(page * pageSize, pageSize, pageSize, '\xff');
    writeFile(file, damaged);
    if (refusal() != 0) {
      ++refused;
    } else {
      EXPECT_THAT(certificates(), SizeIs(2)) << "page " << page;
    }
  }
  EXPECT_GE(refused, 3);
}

INSTANTIATE_TEST_SUITE_P(OfEitherFile, DamagedPage,
                         ::testing::Values<std::string>("cert9.db", "key4.db"));

TEST_F(CertificateDatabase, ReadingChangesNoByte) {
  const CertificateStore store(oldPlace());
  store.addIdentity(makeIdentity(material_, "/CN=Anna"));
  const auto before = contents(home_.path());
  EXPECT_THAT(certificates(), SizeIs(1));
  EXPECT_EQ(contents(home_.path()), before);
}

TEST_F(CertificateDatabase, SeesWhatWasAddedSinceTheLastReading) {
  const CertificateStore store(oldPlace());
  EXPECT_THAT(certificates(), SizeIs(0));
  store.addIdentity(makeIdentity(material_, "/CN=Anna"));
  EXPECT_THAT(certificates(), SizeIs(1));
}

}  // namespace
}  // namespace lumaret::tests
