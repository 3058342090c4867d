// SPDX-License-Identifier: Apache-2.0
// Fuzzes the address after --url, and checks the arguments with which the browser is started. What
// is an address, and its scheme, are compared with uriparser.

#include <uriparser/Uri.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Fuzzing/Require.hpp"
#include "LumaretMacHelper/ChromeLauncher.hpp"
#include "LumaretMacHelper/Contracts.hpp"
#include "LumaretMacHelper/URL.hpp"

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

/// What uriparser says of the text. The empty text is not an address for the tool.
std::optional<lumaret::URL> judged(const std::string& text) {
  UriUriA uri;
  if (text.empty() ||
      uriParseSingleUriExA(&uri, text.data(), text.data() + text.size(), nullptr) != URI_SUCCESS) {
    return std::nullopt;
  }
  lumaret::URL url = {text, std::nullopt};
  if (uri.scheme.first != nullptr) {
    url.scheme.emplace(uri.scheme.first, uri.scheme.afterLast);
  }
  uriFreeUriMembersA(&uri);
  return url;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const auto url = lumaret::parseURL(text);
  const auto expected = judged(text);
  REQUIRE(url.has_value() == expected.has_value());
  if (url) {
    REQUIRE(url->scheme == expected->scheme);
    REQUIRE(url->absoluteString == text);
    REQUIRE(!text.empty());
    // An address is printable ASCII without blanks and quotes, so nothing takes it for two
    // arguments.
    for (const char letter : text) {
      REQUIRE(letter > ' ' && letter < '\x7f' && letter != '"' && letter != '<' && letter != '>');
    }
  }

  const auto environment = std::make_shared<Environment>();
  const lumaret::ChromeLauncher launcher("/browser", environment);
  bool refused = false;
  try {
    launcher.open(url);
  } catch (const lumaret::CertificateSelectorError& error) {
    refused = true;
    REQUIRE(error == lumaret::CertificateSelectorError::chromeLaunchFailed(
                         "Only HTTP and HTTPS destinations are supported."));
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
