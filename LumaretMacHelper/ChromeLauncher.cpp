// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/ChromeLauncher.hpp"

#include <algorithm>
#include <utility>

#include "LumaretMacHelper/PlatformFunctions.hpp"

namespace lumaret {
namespace {

bool isWebAddress(const URL& url) {
  std::string scheme = url.scheme.value_or("");
  // A scheme is ASCII, so the conversion must not depend on the locale.
  std::ranges::transform(scheme, scheme.begin(), [](char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
  });
  return scheme == "http" || scheme == "https";
}

/// Turns what the step throws into chromeLaunchFailed.
template <typename Step>
void reportingFailure(Step step) {
  try {
    step();
  } catch (const CertificateSelectorError&) {
    throw;
  } catch (...) {
    throw CertificateSelectorError::chromeLaunchFailed(descriptionOfCaughtError());
  }
}

}  // namespace

ChromeLauncher::ChromeLauncher(std::filesystem::path executableURL,
                               std::shared_ptr<const ChromeLaunchEnvironment> environment)
    : executableURL_(std::move(executableURL)), environment_(std::move(environment)) {}

const std::filesystem::path& ChromeLauncher::defaultExecutableURL() {
  static const std::filesystem::path executable = chromeExecutable();
  return executable;
}

bool ChromeLauncher::isChromeInstalled() const {
  return environment_->isExecutableFile(executableURL_);
}

void ChromeLauncher::open() const { open(std::nullopt); }

void ChromeLauncher::refreshPolicies() const {
  reportingFailure([&] {
    if (environment_->isApplicationRunning(chromeIdentifier)) {
      environment_->run(executableURL_, {"--refresh-platform-policy"}, /*waitUntilExit=*/true);
    }
  });
}

void ChromeLauncher::open(const std::optional<URL>& destination) const {
  if (!isChromeInstalled()) {
    throw CertificateSelectorError::chromeNotInstalled();
  }
  refreshPolicies();
  reportingFailure([&] {
    std::vector<std::string> arguments = {"--new-window"};
    if (destination) {
      if (!isWebAddress(*destination)) {
        throw CertificateSelectorError::chromeLaunchFailed(
            "Only HTTP and HTTPS destinations are supported.");
      }
      arguments.push_back(destination->absoluteString);
    }
    environment_->run(executableURL_, arguments, /*waitUntilExit=*/false);
  });
}

}  // namespace lumaret
