// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "Tests/Support/Cpp/CallLog.hpp"
#include "Tests/Support/Cpp/Samples.hpp"

namespace lumaret::tests {

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

/// A name, or a section of one.
inline CertificateProperty section(std::string label, CertificatePropertyArray attributes) {
  return entry(std::move(label), {std::move(attributes)});
}

inline OptionalCertificateProperty name(CertificatePropertyArray attributes) {
  return present(section("Name", std::move(attributes)));
}

inline OptionalCertificateProperty notAfter(CertificateProperty value) {
  return present(entry("Not Valid After", std::move(value)));
}

class FakeCertificate final : public KeychainCertificate {
 public:
  explicit FakeCertificate(std::optional<CertificateValues> values, std::string data = "",
                           std::shared_ptr<CallLog> log = std::make_shared<CallLog>())
      : values_(std::move(values)), data_(std::move(data)), log_(std::move(log)) {}

  [[nodiscard]] std::optional<CertificateValues> copyValues() const override {
    log_->push_back("copyValues " + data_);
    return values_;
  }

  [[nodiscard]] Bytes data() const override {
    log_->push_back("data " + data_);
    return bytes(data_);
  }

 private:
  std::optional<CertificateValues> values_;
  std::string data_;
  std::shared_ptr<CallLog> log_;
};

/// What the fake Keychain holds for one identity; its log names it by its certificate's bytes.
struct FakeKeychainEntry {
  std::string certificate;
  std::optional<CertificateValues> values;
  bool hasPrivateKey = true;
  bool hasCertificate = true;
};

class FakeIdentity final : public KeychainIdentity {
 public:
  FakeIdentity(FakeKeychainEntry stored, std::shared_ptr<CallLog> log)
      : stored_(std::move(stored)), log_(std::move(log)) {}

  [[nodiscard]] bool hasPrivateKey() const override {
    log_->push_back("hasPrivateKey " + stored_.certificate);
    return stored_.hasPrivateKey;
  }

  [[nodiscard]] std::unique_ptr<KeychainCertificate> copyCertificate() const override {
    log_->push_back("copyCertificate " + stored_.certificate);
    return stored_.hasCertificate
               ? std::make_unique<FakeCertificate>(stored_.values, stored_.certificate, log_)
               : nullptr;
  }

 private:
  FakeKeychainEntry stored_;
  std::shared_ptr<CallLog> log_;
};

}  // namespace lumaret::tests
