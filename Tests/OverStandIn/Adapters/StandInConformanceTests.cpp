// SPDX-License-Identifier: Apache-2.0
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "Tests/Conformance/OrderConformance.hpp"
#include "Tests/Conformance/Suites.hpp"
#include "Tests/OverStandIn/SampleMac.hpp"

namespace lumaret::tests::conformance {
namespace {

class Keychain : public FreshMac {
 public:
  Bytes addIdentity(const Name& name) { return add(name, json::array({openEntry})); }
  Bytes addIdentityOfToken(const Name& name) { return add(name, nullptr); }
  /// Does nothing, because the Keychain does not return such a certificate as an identity.
  void addCertificateWithoutKey(const Name&) {}

  KeychainStatus damage() {
    constexpr KeychainStatus status = -25294;  // errSecNoSuchKeychain
    answer("SecItemCopyMatching", standin::status(status));
    return status;
  }

  [[nodiscard]] json contents() const { return machine()["identities"]; }

 private:
  static Bytes add(const Name& name, json accessList) {
    static const json identifiers = {{"CN", "2.5.4.3"},
                                     {"L", "2.5.4.7"},
                                     {"O", "2.5.4.10"},
                                     {"OU", "2.5.4.11"},
                                     {"C", "2.5.4.6"}};
    json attributes = json::array();
    for (const auto& [shortName, value] : name) {
      attributes.push_back(property(identifiers.at(shortName), value));
    }
    const std::chrono::duration<double> sinceReferenceDate =
        expiresAt - std::chrono::sys_days(std::chrono::year(2001) / 1 / 1);
    json& identities = machine()["identities"];
    const std::string bytes = "certificate " + std::to_string(identities.size());
    identities.push_back(identity(bytes, std::move(accessList)));
    json& values = identities.back()["values"];
    values = certificateValues(attributes, sinceReferenceDate.count());
    values["kSecOIDX509V1IssuerName"] = property("Issuer Name", attributes);
    return {bytes.begin(), bytes.end()};
  }
};

class PreferenceStore : public FreshMac {
 public:
  void store(const json& value) { machine()["preferences"][application][key] = value; }
  [[nodiscard]] std::optional<json> stored() const {
    const json values = machine()["preferences"].value(application, json::object());
    return values.contains(key) ? std::optional(values[key]) : std::nullopt;
  }
  void refuseWrites() { answer("CFPreferencesSynchronize", standin::status(-1)); }

 private:
  static constexpr const char* application = "com.google.Chrome";
  static constexpr const char* key = "AutoSelectCertificateForUrls";
};

class Desktop : public FreshMac {
 public:
  void startChrome() { machine()["runningApplications"] = {"com.google.Chrome"}; }
  void stopChrome() { machine()["runningApplications"].clear(); }
};

class Languages : public FreshMac {
 public:
  static std::vector<std::string> all() { return {"en", "es", "sv", "ja", "de", "tr"}; }
  static void choose(const std::string& language) { machine()["locale"] = language; }
};

}  // namespace

LUMARET_INSTANTIATE_CONFORMANCE_SUITES(Keychain, PreferenceStore, Desktop);
INSTANTIATE_TYPED_TEST_SUITE_P(Order, OrderConformance, Languages);

}  // namespace lumaret::tests::conformance
