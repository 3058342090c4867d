// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/ChromeLauncher.hpp"
#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "Tests/Support/Cpp/Contracts.hpp"

namespace lumaret::tests {

using Texts = std::vector<std::string>;

/// The words of a text.
inline Texts words(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), {}};
}

/// The form of a list in the log of calls.
inline std::string listed(const Texts& texts) {
  std::string list = "[";
  for (const std::string& text : texts) {
    list += (list.size() > 1 ? ", " : "") + text;
  }
  return list + "]";
}

inline OptionalCertificateProperty present(CertificateProperty property) {
  return std::make_shared<const CertificateProperty>(std::move(property));
}

inline CertificateProperty text(std::string value) { return {std::move(value)}; }

inline CertificateProperty entry(OptionalCertificateProperty label,
                                 OptionalCertificateProperty value) {
  return {CertificatePropertyDictionary{std::move(label), std::move(value)}};
}

inline CertificateProperty entry(std::string label, CertificateProperty value) {
  return entry(present(text(std::move(label))), present(std::move(value)));
}

inline CertificateProperty attribute(std::string identifier, std::string value) {
  return entry(std::move(identifier), text(std::move(value)));
}

/// A name, or a section of a name.
inline CertificateProperty section(std::string label, CertificatePropertyArray attributes) {
  return entry(std::move(label), {std::move(attributes)});
}

inline OptionalCertificateProperty name(CertificatePropertyArray attributes) {
  return present(section("Name", std::move(attributes)));
}

inline OptionalCertificateProperty notAfter(CertificateProperty value) {
  return present(entry("Not Valid After", std::move(value)));
}

/// Of a certificate with this subject, if any, and no issuer.
inline CertificateValues valuesNaming(const std::optional<std::string>& commonName,
                                      Date expiresAt) {
  return {commonName ? name({attribute("2.5.4.3", *commonName)}) : nullptr, nullptr,
          notAfter({expiresAt})};
}

/// The log names an identity by the bytes of its certificate.
struct FakeKeychainEntry {
  std::string certificate;
  std::optional<CertificateValues> values;
  bool hasPrivateKey = true;
  bool hasCertificate = true;
};

/// What is below the core, in memory, with a log of each call.
struct FakeSystem {
  std::vector<FakeKeychainEntry> identities;
  Texts rules;
  /// The log tells reading, which comes first, from reading back.
  bool isWritten = false;
  /// What is read back, if not the rules that were written.
  std::optional<Texts> otherRules;
  bool synchronizes = true;
  bool isInstalled = true;
  bool isRunning = false;

  Texts calls;
  /// By the text of the call. Runs once the call is logged.
  std::map<std::string, std::function<void()>> hooks;

  void called(const std::string& call) {
    calls.push_back(call);
    if (const auto hook = hooks.find(call); hook != hooks.end()) {
      hook->second();
    }
  }

  template <typename Error>
  void fail(const std::string& call, const Error& error) {
    hooks[call] = [error] { throw error; };
  }
};

/// That of FakePlatform.cpp. Writing to a standard stream is a call; writing to standard error
/// prints all calls up to then to that of the process.
FakeSystem& fakeSystem();

class FakeServices final : public KeychainIdentityQuerying,
                           public ChromePreferencesStoring,
                           public ChromeLaunchEnvironment {
 public:
  explicit FakeServices(FakeSystem& system) : system_(system) {}

  [[nodiscard]] std::vector<KeychainIdentity> copyIdentities() const override {
    system_.called("copyIdentities");
    std::vector<KeychainIdentity> identities;
    for (const FakeKeychainEntry& entry : system_.identities) {
      identities.push_back(
          {[this, entry] {
             system_.called("hasPrivateKey " + entry.certificate);
             return entry.hasPrivateKey;
           },
           [this, entry] {
             system_.called("copyCertificate " + entry.certificate);
             return entry.hasCertificate
                        ? std::optional(KeychainCertificate{entry.values, bytes(entry.certificate)})
                        : std::nullopt;
           }});
    }
    return identities;
  }

  [[nodiscard]] Texts readRules() const override {
    system_.called(system_.isWritten ? "readBack" : "readRules");
    return system_.isWritten && system_.otherRules ? *system_.otherRules : system_.rules;
  }
  void writeRules(const Texts& rules) override {
    system_.called("writeRules " + listed(rules));
    system_.rules = rules;
    system_.isWritten = true;
  }
  [[nodiscard]] bool synchronize() override {
    system_.called("synchronize");
    return system_.synchronizes;
  }

  [[nodiscard]] bool isExecutableFile(const std::filesystem::path& path) const override {
    system_.called("isExecutableFile " + path.string());
    return system_.isInstalled;
  }
  [[nodiscard]] bool isApplicationRunning(const std::string& bundleIdentifier) const override {
    system_.called("isApplicationRunning " + bundleIdentifier);
    return system_.isRunning;
  }
  void run(const std::filesystem::path& executableURL, const Texts& arguments,
           bool waitUntilExit) const override {
    system_.called((waitUntilExit ? "run and await " : "run ") + executableURL.string() + " " +
                   listed(arguments));
  }

 private:
  FakeSystem& system_;
};

}  // namespace lumaret::tests
