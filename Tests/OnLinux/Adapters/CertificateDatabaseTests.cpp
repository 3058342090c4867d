// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <array>
#include <sstream>

#include "LumaretMacHelper/Linux/CertificateDatabase.hpp"
#include "Tests/OnLinux/Adapters/CertificateStore.hpp"
#include "Tests/OnLinux/Adapters/PrivateMachine.hpp"

namespace lumaret::tests {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

// The conformance suite shows databases without an identity, and those with a password.
class CertificateDatabase : public ::testing::Test {
 protected:
  /// The certificates, and whether their keys are unguarded.
  static std::vector<std::pair<Bytes, bool>> found() {
    std::vector<std::pair<Bytes, bool>> identities;
    for (const StoredIdentity& identity : readStoredIdentities()) {
      identities.emplace_back(identity.certificate, identity.keyIsUnguarded);
    }
    return identities;
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
  std::filesystem::path folder_ = home_ / ".pki/nssdb";
};

TEST_F(CertificateDatabase, IsReadAfreshEachTime) {
  std::filesystem::create_directories(folder_);
  EXPECT_THAT(found(), IsEmpty());
  const CertificateStore store(folder_);
  const auto identity = makeIdentity(material_, "/CN=Whole", KeyType::rsa);
  store.addIdentity(identity);
  EXPECT_THAT(found(), ElementsAre(std::pair(identity.der, true)));
}

TEST_F(CertificateDatabase, FindsIdentitiesOnEveryToken) {
  const CertificateStore store(folder_);
  store.addModule((home_ / "no-such-library.so").string());
  store.addSoftwareToken(material_);
  const auto first = makeIdentity(material_, "/CN=First");
  const auto second = makeIdentity(material_, "/CN=Second");
  store.addToToken(first);
  store.addIdentity(first);
  store.addIdentity(second);

  EXPECT_THAT(found(), UnorderedElementsAre(std::pair(first.der, false), std::pair(first.der, true),
                                            std::pair(second.der, true)));
}

TEST_F(CertificateDatabase, FindsGuardedIdentitiesInFIPSMode) {
  const CertificateStore store(folder_, "secret-1");
  const auto identity = makeIdentity(material_, "/CN=Locked");
  store.addIdentity(identity);
  shell("modutil -force -fips true -dbdir sql:" + folder_.string());
  EXPECT_THAT(found(), ElementsAre(std::pair(identity.der, false)));
}

TEST_F(CertificateDatabase, RequiresAnIdentifierOfCertificateAndKey) {
  const CertificateStore store(folder_);
  store.addSoftwareToken(material_);
  const auto first = makeIdentity(material_, "/CN=First");
  const auto second = makeIdentity(material_, "/CN=Second");
  const std::string folder = material_.path().string();
  writeFile(folder + "/second.der", {second.der.begin(), second.der.end()});
  shell("openssl pkey -in " + first.key.string() + " -pubout -outform der -out " + folder + "/key");
  const std::string tool = std::string("pkcs11-tool --login --pin 1234 --module ") +
                           CertificateStore::softwareTokenModule + " --write-object " + folder;
  shell(tool + "/key --type pubkey");
  shell(tool + "/second.der --type cert");
  EXPECT_THAT(found(), IsEmpty());
}

/// NSS names the columns of its tables after the PKCS#11 attributes: 11 is CKA_VALUE, 102 CKA_ID.
TEST_F(CertificateDatabase, LeavesOutOnlyAnIdentityWithAnOversizedAttribute) {
  const auto first = makeIdentity(material_, "/CN=First");
  const auto second = makeIdentity(material_, "/CN=Second");
  for (const auto& [file, table, column] :
       {std::array{"cert9.db", "nssPublic", "a11"}, std::array{"cert9.db", "nssPublic", "a102"},
        std::array{"key4.db", "nssPrivate", "a102"}}) {
    std::filesystem::remove_all(folder_);
    const CertificateStore store(folder_);
    store.addIdentity(first);
    store.addIdentity(second);
    for (const int size : {1 << 20, (1 << 20) + 1}) {
      std::ostringstream sql;
      sql << "UPDATE " << table << " SET " << column << " = zeroblob(" << size
          << ") WHERE id = (SELECT min(id) FROM " << table << " WHERE a11 NOT NULL)";
      shell("/usr/bin/python3 -c 'import sqlite3; file = sqlite3.connect(\"" +
            (folder_ / file).string() + "\"); file.execute(\"" + sql.str() + "\"); file.commit()'");
      const bool isReadable = column == std::string("a11") && size == 1 << 20;
      EXPECT_THAT(found(), SizeIs(isReadable ? 2 : 1)) << column << ' ' << size;
    }
  }
}

TEST_F(CertificateDatabase, IsInTheDataHomeUnlessTheOldPlaceExists) {
  const CertificateStore store(home_ / ".local/share/pki/nssdb");
  store.addIdentity(makeIdentity(material_, "/CN=New"));
  EXPECT_THAT(found(), SizeIs(1));
  std::filesystem::create_directories(folder_.parent_path());
  std::filesystem::create_symlink(home_ / "nowhere", folder_);
  EXPECT_THAT(found(), SizeIs(1));
  std::filesystem::create_directories(home_ / "nowhere");
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(CertificateDatabase, RejectsWhatIsNotADatabase) {
  for (const char* damage :
       {"rm -r nssdb; touch nssdb", "for file in nssdb/*; do ln -sf nowhere $file; done",
        "rm nssdb/key4.db", "rm nssdb/cert9.db; mkfifo nssdb/cert9.db",
        "rm nssdb/key4.db; mkfifo nssdb/key4.db", "rm nssdb/pkcs11.txt; mkfifo nssdb/pkcs11.txt",
        "echo whatever its name says >nssdb/key4.db"}) {
    std::filesystem::remove_all(folder_);
    const CertificateStore store(folder_);
    shell("cd " + folder_.parent_path().string() + "; " + damage);
    EXPECT_EQ(refusal(), -8174) << damage;  // SEC_ERROR_BAD_DATABASE
  }
}

TEST_F(CertificateDatabase, RejectsDamageThatHidesAnIdentity) {
  const CertificateStore store(folder_);
  store.addIdentity(makeIdentity(material_, "/CN=First"));
  store.addIdentity(makeIdentity(material_, "/CN=Second"));
  for (const char* name : {"cert9.db", "key4.db"}) {
    const std::string whole = readFile(folder_ / name);
    // A truncated file still has the header and the definitions of the tables.
    for (const std::size_t size : {0UL, whole.size() / 2, whole.size() - 2048, whole.size() - 1}) {
      writeFile(folder_ / name, whole.substr(0, size));
      EXPECT_NE(refusal(), 0) << name << " " << size;
    }
    // Overwrites each page in turn: those of indices, of tables and of their definitions.
    constexpr std::size_t pageSize = 4096;
    int refused = 0;
    for (std::size_t page = 0; page < whole.size() / pageSize; ++page) {
      writeFile(folder_ / name,
                std::string(whole).replace(page * pageSize, pageSize, pageSize, '\xff'));
      if (refusal() != 0) {
        ++refused;
      } else {
        EXPECT_THAT(found(), SizeIs(2)) << name << " " << page;
      }
    }
    EXPECT_GE(refused, 3) << name;
    writeFile(folder_ / name, whole);
  }
}

}  // namespace
}  // namespace lumaret::tests
