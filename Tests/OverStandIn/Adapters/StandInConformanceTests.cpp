// SPDX-License-Identifier: Apache-2.0
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>

#include "Tests/Conformance/OrderConformance.hpp"
#include "Tests/Conformance/Suites.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"
#include "Tests/OverStandIn/AppleFrameworks/MachineFile.hpp"
#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"
#include "Tests/OverStandIn/AppleFrameworks/UnicodeConversion.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"

namespace lumaret::tests::conformance {
namespace {

class Keychain : public FreshMac {
 public:
  Bytes addIdentity(const Certificate& certificate) {
    standin::AccessListEntry entry;
    entry.authorizations = {"kSecACLAuthorizationAny"};
    entry.description = u"key";
    return add(certificate, standin::AccessList{entry});
  }
  Bytes addIdentityOfToken(const Certificate& certificate) {
    return add(certificate, std::nullopt);
  }
  /// Does nothing, because the Keychain does not return such a certificate as an identity.
  void addCertificateWithoutKey(const Certificate&) {}

  KeychainStatus damage() {
    constexpr KeychainStatus status = -25294;  // errSecNoSuchKeychain
    machine().answer("SecItemCopyMatching", standin::Answer::status(status));
    return status;
  }

  [[nodiscard]] std::vector<std::optional<standin::AccessList>> contents() const {
    std::vector<std::optional<standin::AccessList>> lists;
    for (const standin::Identity& identity : machine().identities) {
      lists.push_back(identity.privateKey->accessList);
    }
    return lists;
  }

 private:
  static standin::Text identifier(const std::string& shortName) {
    return shortName == "CN"   ? u"2.5.4.3"
           : shortName == "L"  ? u"2.5.4.7"
           : shortName == "O"  ? u"2.5.4.10"
           : shortName == "OU" ? u"2.5.4.11"
                               : u"2.5.4.6";
  }

  Bytes add(const Certificate& certificate, std::optional<standin::AccessList> accessList) {
    standin::List name;
    for (const auto& [shortName, value] : certificate.name) {
      name.push_back(attribute(identifier(shortName), standin::fromUTF8(value).value()));
    }
    const std::chrono::duration<double> sinceReferenceDate =
        certificate.expiresAt - std::chrono::sys_days(std::chrono::year(2001) / 1 / 1);
    auto values = certificateValues(name, {sinceReferenceDate.count()});
    values.insert_or_assign(u"kSecOIDX509V1IssuerName", section(u"Issuer Name", name));

    const std::string bytes = "certificate " + std::to_string(machine().identities.size());
    standin::Identity identity = {
        bytes,
        {bytes.begin(), bytes.end()},
        std::move(values),
        std::make_shared<standin::PrivateKey>(standin::PrivateKey{std::move(accessList)})};
    machine().identities.push_back(identity);
    return identity.certificate;
  }
};

class PreferenceStore : public FreshMac {
 public:
  void store(const nlohmann::json& value) {
    machine().preferences[application].insert_or_assign(key, standin::valueOf(value));
  }
  [[nodiscard]] std::optional<nlohmann::json> stored() const {
    const auto& values = machine().preferences[application];
    const auto value = values.find(key);
    return value == values.end() ? std::nullopt
                                 : std::optional(standin::descriptionOf(value->second));
  }
  void refuseWrites() { machine().answer("CFPreferencesSynchronize", standin::Answer::status(-1)); }

 private:
  static constexpr const char* application = "com.google.Chrome";
  static constexpr const char16_t* key = u"AutoSelectCertificateForUrls";
};

class Desktop : public FreshMac {
 public:
  void startChrome() { machine().runningApplications.insert("com.google.Chrome"); }
  void stopChrome() { machine().runningApplications.clear(); }
};

/// The stand-in folds case in the same way in every language but Turkish.
class Languages : public FreshMac {
 public:
  static std::vector<std::string> all() { return {"en", "es", "sv", "ja", "de", "tr"}; }
  static void choose(const std::string& language) { machine().locale = language; }
};

}  // namespace

LUMARET_INSTANTIATE_CONFORMANCE_SUITES(Keychain, PreferenceStore, Desktop);
INSTANTIATE_TYPED_TEST_SUITE_P(Order, OrderConformance, Languages);

}  // namespace lumaret::tests::conformance
