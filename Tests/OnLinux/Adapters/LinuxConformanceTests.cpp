// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <array>
#include <nlohmann/json.hpp>

#include "LumaretMacHelper/Linux/ChromeInstallation.hpp"
#include "Tests/Conformance/OrderConformance.hpp"
#include "Tests/Conformance/Suites.hpp"
#include "Tests/OnLinux/Adapters/CertificateStore.hpp"
#include "Tests/OnLinux/Adapters/PrivateMachine.hpp"

namespace lumaret::tests::conformance {
namespace {

class Keychain {
 public:
  Bytes addIdentity(const Name& name) { return add(name, ""); }
  Bytes addIdentityOfToken(const Name& name) { return add(name, "secret"); }
  void addCertificateWithoutKey(const Name& name) {
    store("").addCertificate(makeIdentity(material_, name, KeyType::ec));
  }

  KeychainStatus damage() {
    writeFile(folder_ / "cert9.db", "this is no database, whatever its name says");
    return -8174;  // SEC_ERROR_BAD_DATABASE
  }

  [[nodiscard]] auto contents() const { return tests::contents(home_.path()); }

 private:
  const CertificateStore& store(const std::string& password) {
    return store_ ? *store_ : store_.emplace(folder_, password);
  }

  Bytes add(const Name& name, const std::string& password) {
    const FreshIdentity identity = makeIdentity(material_, name, KeyType::ec);
    store(password).addIdentity(identity);
    return identity.der;
  }

  TemporaryHome home_;
  TemporaryFolder material_;
  std::filesystem::path folder_ = home_ / ".pki/nssdb";
  std::optional<CertificateStore> store_;
};

class PreferenceStore {
 public:
  PreferenceStore() {
    std::filesystem::create_directories("/opt/google/chrome");
    std::filesystem::create_symlink("/bin/true", "/opt/google/chrome/google-chrome");
  }

  void store(const nlohmann::json& value) {
    writeFile(folder + std::string("/50-test.json"), nlohmann::json{{key, value}}.dump());
  }

  [[nodiscard]] std::optional<nlohmann::json> stored() const {
    auto policies = nlohmann::json::object();
    if (std::filesystem::exists(folder)) {
      for (const auto& [file, text] : contents(folder)) {  // Sorted by name.
        policies.update(nlohmann::json::parse(text));
      }
    }
    return policies.contains(key) ? std::optional(policies[key]) : std::nullopt;
  }

  void refuseWrites() { mounts_.makeReadOnly(); }

 private:
  static constexpr const char* key = "AutoSelectCertificateForUrls";
  static constexpr const char* folder = "/etc/opt/chrome/policies/managed";

  PrivateMounts mounts_;
};

class Desktop {
 public:
  void startChrome() {
    std::array<char, 256> host{};
    ::gethostname(host.data(), host.size());
    std::filesystem::create_directories(lock().parent_path());
    std::filesystem::create_symlink(host.data() + ("-" + std::to_string(::getpid())), lock());
  }
  void stopChrome() { std::filesystem::remove(lock()); }

 private:
  static std::filesystem::path lock() {
    return ChromeInstallation::current().userDataFolder / "SingletonLock";
  }

  TemporaryHome home_;
};

class Languages {
 public:
  static std::vector<std::string> all() { return {"C", "en", "es", "sv", "ja", "de", "tr"}; }
  static void choose(const std::string& language) {
    ::setenv("LANG", (language + ".UTF-8").c_str(), 1);
  }

 private:
  TemporaryHome home_;  // Without the variables of the locale.
};

}  // namespace

LUMARET_INSTANTIATE_CONFORMANCE_SUITES(Keychain, PreferenceStore, Desktop);
INSTANTIATE_TYPED_TEST_SUITE_P(Order, OrderConformance, Languages);

}  // namespace lumaret::tests::conformance
