// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <algorithm>
#include <iterator>

#include "LumaretMacHelper/KeychainChromePrivateKeyAuthorizer.hpp"
#include "Tests/Core/FakeSystem.hpp"
#include "Tests/Support/Cpp/Contracts.hpp"

namespace lumaret::tests {
namespace {

using testing::ElementsAre;
using BackendError = KeychainAuthorizationBackendError;
using Contents = ChromeKeychainACLContents<std::string>;
using Error = CertificateSelectorError;

/// A signing entry of the one private key.
struct Entry {
  std::string name;
  Contents contents;
};

/// A Keychain in memory. The name of an identity is its certificate, and that of an application is
/// its data.
struct FakeKeychain : FakeSystem {
  Texts certificates = {"ana"};
  bool hasPrivateKey = true;
  std::vector<Entry> entries = {{"sign", {{{"Mail"}}, "Ana's key", 0}}};
  std::string chrome = "Chrome";
};

class FakeBackend {
 public:
  using Identity = std::string;
  using PrivateKey = std::string;
  using Access = std::string;
  using ACL = Entry*;
  using TrustedApplication = std::string;

  explicit FakeBackend(FakeKeychain& keychain) : keychain_(&keychain) {}

  [[nodiscard]] std::vector<Identity> copyIdentities() const {
    keychain_->called("copyIdentities");
    return {keychain_->certificates.begin(), keychain_->certificates.end()};
  }
  [[nodiscard]] Bytes certificateData(const Identity& identity) const {
    keychain_->called("certificateData " + identity);
    return bytes(identity);
  }
  [[nodiscard]] std::optional<PrivateKey> copyPrivateKey(const Identity& identity) const {
    keychain_->called("copyPrivateKey " + identity);
    return keychain_->hasPrivateKey ? std::optional("key of " + identity) : std::nullopt;
  }
  [[nodiscard]] Access copyAccess(const PrivateKey& key) const {
    keychain_->called("copyAccess " + key);
    return "access of " + key;
  }
  [[nodiscard]] std::vector<ACL> copySigningACLs(const Access& access) const {
    keychain_->called("copySigningACLs " + access);
    std::vector<ACL> entries;
    std::ranges::transform(keychain_->entries, std::back_inserter(entries),
                           [](Entry& entry) { return &entry; });
    return entries;
  }
  [[nodiscard]] Contents copyContents(const ACL& entry) const {
    keychain_->called("copyContents " + entry->name);
    return entry->contents;
  }
  void setContents(const Contents& contents, const ACL& entry) const {
    keychain_->called("setContents " + entry->name + " " +
                      listed(contents.trustedApplications.value()) + " \"" + contents.description +
                      "\" " + std::to_string(contents.promptSelector));
    entry->contents = contents;
  }
  void setAccess(const Access& access, const PrivateKey& key) const {
    keychain_->called("setAccess " + access + " " + key);
  }
  [[nodiscard]] TrustedApplication chromeTrustedApplication() const {
    keychain_->called("chromeTrustedApplication");
    return keychain_->chrome;
  }
  [[nodiscard]] Bytes identityData(const TrustedApplication& application) const {
    keychain_->called("identityData " + application);
    return bytes(application);
  }

 private:
  FakeKeychain* keychain_;
};

class Workflow : public testing::Test {
 protected:
  void authorize(const std::string& fingerprint = idOf("ana")) {
    ChromeKeychainAuthorizationWorkflow(FakeBackend(keychain)).authorize(fingerprint);
  }

  std::optional<Error> errorOf(const std::string& fingerprint = idOf("ana")) {
    return selectorErrorOf([&] { authorize(fingerprint); });
  }

  /// The calls once the signing entries are known to be these.
  Texts callsFor(std::vector<Entry> entries) {
    keychain.calls.clear();
    keychain.entries = std::move(entries);
    authorize();
    return {keychain.calls.begin() + 5, keychain.calls.end()};
  }

  FakeKeychain keychain;
};

TEST_F(Workflow, AddsChromeAndStoresTheAccessListLast) {
  authorize();
  EXPECT_THAT(keychain.calls,
              ElementsAre("copyIdentities", "certificateData ana", "copyPrivateKey ana",
                          "copyAccess key of ana", "copySigningACLs access of key of ana",
                          "copyContents sign", "chromeTrustedApplication", "identityData Chrome",
                          "identityData Mail", "setContents sign [Mail, Chrome] \"Ana's key\" 0",
                          "setAccess access of key of ana key of ana"));
}

TEST_F(Workflow, ReadsEveryCertificateAndRequiresAPrivateKey) {
  keychain.certificates = {"bea", "ana", "carla"};
  keychain.hasPrivateKey = false;
  EXPECT_EQ(errorOf(), Error::selectedIdentityHasNoPrivateKey());
  EXPECT_THAT(keychain.calls,
              ElementsAre("copyIdentities", "certificateData bea", "certificateData ana",
                          "certificateData carla", "copyPrivateKey ana"));
}

TEST_F(Workflow, RequiresOneIdentityOfThisExactFingerprintAndASigningEntry) {
  for (const std::string& text :
       {" " + idOf("ana"), idOf("ana").substr(0, 63), std::string(),
        std::string("24D4B96F58DA6D4A8512313BBD02A28EBF0CA95DEC6E4C86EF78CE7F01E788AC")}) {
    EXPECT_EQ(errorOf(text), Error::selectedIdentityNotFound()) << text;
  }
  keychain.entries.clear();
  EXPECT_EQ(errorOf(), Error::chromeKeyAuthorizationUnsupported());
  EXPECT_EQ(keychain.calls.back(), "copySigningACLs access of key of ana");
  keychain.certificates = {"ana", "bea", "ana"};
  EXPECT_EQ(errorOf(), Error::selectedIdentityAmbiguous());
  EXPECT_EQ(keychain.calls.back(), "certificateData ana");
}

TEST_F(Workflow, StopsAtAnEntryForEveryApplicationOrWithChrome) {
  EXPECT_THAT(callsFor({{"first", {{{"Mail"}}, "", 0}},
                        {"second", {std::nullopt, "", 0}},
                        {"third", {{{"Mail"}}, "", 0}}}),
              ElementsAre("copyContents first", "copyContents second"));
  EXPECT_THAT(callsFor({{"first", {{{"Mail"}}, "", 0}}, {"second", {{{"Chrome", "Mail"}}, "", 0}}}),
              ElementsAre("copyContents first", "copyContents second", "chromeTrustedApplication",
                          "identityData Chrome", "identityData Mail", "identityData Chrome"));
  keychain.chrome = "";  // Two applications without data are the same.
  EXPECT_THAT(callsFor({{"sign", {{{""}}, "", 0}}}),
              ElementsAre("copyContents sign", "chromeTrustedApplication", "identityData ",
                          "identityData "));
}

TEST_F(Workflow, AddsChromeLastToEveryEntryAndKeepsTheRest) {
  // Applications are compared by every byte.
  EXPECT_THAT(callsFor({{"first", {{{"Chrom", "Chrome2", "chrome", ""}}, "One", 1}},
                        {"second", {Texts(), "", 0xffff}}}),
              ElementsAre("copyContents first", "copyContents second", "chromeTrustedApplication",
                          "identityData Chrome", "identityData Chrom", "identityData Chrome2",
                          "identityData chrome", "identityData ",
                          "setContents first [Chrom, Chrome2, chrome, , Chrome] \"One\" 1",
                          "setContents second [Chrome] \"\" 65535",
                          "setAccess access of key of ana key of ana"));
}

/// The error that an authorizer reports if the operation fails.
template <typename Failure>
std::optional<Error> mapped(const Failure& failure) {
  const KeychainChromePrivateKeyAuthorizer authorizer(
      [&](const std::string& /*fingerprint*/) { throw failure; });
  return selectorErrorOf([&] { authorizer.authorize({"5d2a", {}, {}, {}}); });
}

TEST(Authorizer, MapsErrors) {
  EXPECT_EQ(mapped(Error::keychainFailure(-128)), Error::keychainFailure(-128));
  EXPECT_EQ(mapped(7), Error::keychainAuthorizationFailed(-2070));
  EXPECT_EQ(mapped(BackendError::status(-128)), Error::keychainAuthorizationCancelled());
  EXPECT_EQ(mapped(BackendError::unsupported()), Error::chromeKeyAuthorizationUnsupported());
  for (const KeychainStatus status : {-4, -25256, -67734, -67737, -67739}) {
    EXPECT_EQ(mapped(BackendError::status(status)), Error::chromeKeyAuthorizationUnsupported());
  }
  // Next to those with a meaning here, and with a meaning elsewhere.
  for (const KeychainStatus status :
       {-3, -5, 4, -25255, -25257, -67733, -67735, -67736, -67738, -67740, -127, -129, 128, -25300,
        -25304, -25306, -2070, 0, 1}) {
    EXPECT_EQ(mapped(BackendError::status(status)), Error::keychainAuthorizationFailed(status));
  }
}

}  // namespace
}  // namespace lumaret::tests
