// SPDX-License-Identifier: Apache-2.0
// Fuzzes the address after --url, and checks the arguments with which the browser is started.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Fuzzing/Require.hpp"
#include "LumaretMacHelper/ChromeLauncher.hpp"
#include "LumaretMacHelper/Contracts.hpp"
#include "LumaretMacHelper/Platform.hpp"

namespace {

/// A running browser. Records the arguments of each start.
class Environment final : public lumaret::ChromeLaunchEnvironment {
 public:
  [[nodiscard]] bool isExecutableFile(const std::filesystem::path& /*path*/) const override {
    return true;
  }
  [[nodiscard]] bool isApplicationRunning(const std::string& /*identifier*/) const override {
    return true;
  }
  void run(const std::filesystem::path& /*executable*/, const std::vector<std::string>& arguments,
           bool /*waitUntilExit*/) const override {
    starts.push_back(arguments);
  }

  mutable std::vector<std::vector<std::string>> starts;
};

bool startsWithIgnoringCase(const std::string& text, const std::string& beginning) {
  if (text.size() < beginning.size()) {
    return false;
  }
  for (std::size_t index = 0; index < beginning.size(); ++index) {
    const char letter = text[index];
    const bool isCapital = letter >= 'A' && letter <= 'Z';
    if ((isCapital ? static_cast<char>(letter - 'A' + 'a') : letter) != beginning[index]) {
      return false;
    }
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const auto url = lumaret::parseURL(text);
  if (url) {
    REQUIRE(url->absoluteString == text);
    REQUIRE(!text.empty());
    // An address is printable ASCII without blanks and quotes, so nothing takes it for two
    // arguments.
    for (const char letter : text) {
      REQUIRE(letter > ' ' && letter < '\x7f' && letter != '"' && letter != '<' && letter != '>');
    }
    if (url->scheme) {
      REQUIRE(text.starts_with(*url->scheme + ":"));
    }
  }

  const auto environment = std::make_shared<Environment>();
  const lumaret::ChromeLauncher launcher("/browser", environment);
  bool refused = false;
  try {
    launcher.open(url);
  } catch (const lumaret::CertificateSelectorError& error) {
    refused = true;
    REQUIRE(error.kind() == lumaret::CertificateSelectorError::Kind::chromeLaunchFailed);
  }

  const std::vector<std::string> refresh = {"--refresh-platform-policy"};
  REQUIRE(!environment->starts.empty() && environment->starts.front() == refresh);
  REQUIRE(environment->starts.size() == (refused ? 1U : 2U));
  if (refused) {
    REQUIRE(url && !startsWithIgnoringCase(text, "http:") &&
            !startsWithIgnoringCase(text, "https:"));
    return 0;
  }
  const auto& window = environment->starts.back();
  REQUIRE(window.front() == "--new-window");
  REQUIRE(window.size() == (url ? 2U : 1U));
  if (url) {
    // The address of a web page, unchanged: not an option, a file or a script.
    REQUIRE(window.back() == text);
    REQUIRE(startsWithIgnoringCase(text, "http:") || startsWithIgnoringCase(text, "https:"));
  }
  return 0;
}
