// SPDX-License-Identifier: Apache-2.0
// Prints the messages of the tool, one to a line, with "number" and "reason" in place of what
// varies.
#include <unistd.h>

#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "LumaretMacHelper/ChromeLauncher.hpp"
#include "LumaretMacHelper/Contracts.hpp"
#include "LumaretMacHelper/LumaretMacHelper.hpp"
#include "LumaretMacHelper/PlatformFunctions.hpp"
#include "LumaretMacHelper/URL.hpp"

namespace {

using lumaret::CertificateSelectorError;
using Kind = CertificateSelectorError::Kind;

constexpr int number = 1234567;

/// A sample of each kind, or nothing beyond the last kind. This does not compile if a kind is
/// missing.
std::optional<CertificateSelectorError> sample(Kind kind) {
  switch (kind) {
    case Kind::keychainFailure:
      return CertificateSelectorError::keychainFailure(number);
    case Kind::chromeLaunchFailed:
      return CertificateSelectorError::chromeLaunchFailed("reason");
    case Kind::keychainAuthorizationFailed:
      return CertificateSelectorError::keychainAuthorizationFailed(number);
    case Kind::certificateHasNoSubject:
      return CertificateSelectorError::certificateHasNoSubject();
    case Kind::policyEncodingFailed:
      return CertificateSelectorError::policyEncodingFailed();
    case Kind::policyWriteFailed:
      return CertificateSelectorError::policyWriteFailed();
    case Kind::policyVerificationFailed:
      return CertificateSelectorError::policyVerificationFailed();
    case Kind::chromeNotInstalled:
      return CertificateSelectorError::chromeNotInstalled();
    case Kind::selectedIdentityNotFound:
      return CertificateSelectorError::selectedIdentityNotFound();
    case Kind::selectedIdentityAmbiguous:
      return CertificateSelectorError::selectedIdentityAmbiguous();
    case Kind::selectedIdentityHasNoPrivateKey:
      return CertificateSelectorError::selectedIdentityHasNoPrivateKey();
    case Kind::chromeKeyAuthorizationUnsupported:
      return CertificateSelectorError::chromeKeyAuthorizationUnsupported();
    case Kind::keychainAuthorizationCancelled:
      return CertificateSelectorError::keychainAuthorizationCancelled();
  }
  return std::nullopt;
}

/// Fails to start any process.
class FailingChrome final : public lumaret::ChromeLaunchEnvironment {
 public:
  explicit FailingChrome(bool running) : running_(running) {}
  [[nodiscard]] bool isExecutableFile(const std::filesystem::path& /*path*/) const override {
    return true;
  }
  [[nodiscard]] bool isApplicationRunning(const std::string& /*bundle*/) const override {
    return running_;
  }
  void run(const std::filesystem::path& /*executable*/,
           const std::vector<std::string>& /*arguments*/, bool /*wait*/) const override {
    throw lumaret::ChromeProcessError::unsuccessfulExit(number);
  }

 private:
  bool running_;
};

void print(std::string message) {
  const std::string digits = std::to_string(number);
  if (const auto place = message.find(digits); place != std::string::npos) {
    message.replace(place, digits.size(), "number");
  }
  if (message.starts_with("Standard output ")) {
    message.replace(message.find(": "), std::string::npos, ": reason");
  }
  std::cerr << message << '\n';
}

template <typename Action>
void printFailure(Action action) {
  try {
    action();
  } catch (const std::exception& error) {
    print(error.what());
  }
}

}  // namespace

int main() {
  for (int kind = 0; const auto error = sample(static_cast<Kind>(kind)); ++kind) {
    print(error->errorDescription());
  }
  printFailure([] { lumaret::LumaretMacHelper::run({}); });
  for (const bool running : {true, false}) {
    printFailure([running] {
      lumaret::ChromeLauncher("/chrome", std::make_shared<FailingChrome>(running))
          .open(lumaret::parseURL("ftp://example.test/"));
    });
  }
  ::close(STDOUT_FILENO);
  printFailure([] { lumaret::writeStandardOutput("result"); });
}
