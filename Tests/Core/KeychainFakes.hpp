// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "Tests/Core/CallLog.hpp"
#include "Tests/Support/Cpp/CertificateBytes.hpp"

namespace lumaret::tests {

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

/// An identity in the fake Keychain. The log names it by the bytes of its certificate.
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
