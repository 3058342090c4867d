// SPDX-License-Identifier: Apache-2.0
// Fuzzes the DER bytes of a certificate, the only one in the store, and checks the line that `list`
// prints.

#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "Fuzzing/Require.hpp"
#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "LumaretMacHelper/Linux/CertificateDatabase.hpp"
#include "LumaretMacHelper/Linux/CertificateDecoder.hpp"
#include "LumaretMacHelper/LumaretMacHelper.hpp"
#include "LumaretMacHelper/POSIX/StandardStreams.hpp"
#include "LumaretMacHelper/PlatformFunctions.hpp"

namespace {

lumaret::Bytes certificate;
std::string printed;

}  // namespace

// Defines the store and the streams instead of the module.
namespace lumaret {

std::vector<StoredIdentity> readStoredIdentities() { return {{certificate, true}}; }

void prepareStandardStreams() noexcept {}
int callersStandardOutput() noexcept { return STDOUT_FILENO; }
void writeStandardOutput(std::string_view text) { printed += text; }
void writeStandardError(std::string_view /*text*/) noexcept {}

}  // namespace lumaret

namespace {

using nlohmann::json;

std::string now() {
  const auto second = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  const std::time_t time = std::chrono::system_clock::to_time_t(second);
  std::tm parts{};
  REQUIRE(::gmtime_r(&time, &parts) != nullptr);
  char text[32];
  REQUIRE(std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts) == 20);
  return text;
}

void requireName(const json& name) {
  REQUIRE(name.is_object() && name.size() == 4);
  for (const char* key : {"commonName", "locality", "organization", "organizationalUnit"}) {
    const json& field = name.at(key);
    REQUIRE(field.is_null() || (field.is_string() && !field.get<std::string>().empty()));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  certificate.assign(data, data + size);
  printed.clear();
  lumaret::LumaretMacHelper::run({"list"});

  REQUIRE(printed.ends_with("\n"));
  printed.pop_back();
  const json listed = json::parse(printed);  // Strict, and so UTF-8.
  REQUIRE(listed.dump() == printed);         // Compact, with sorted keys.
  REQUIRE(listed.is_array() && listed.size() <= 1);

  const auto values = lumaret::decodeCertificate(certificate);
  REQUIRE(listed.empty() || values);
  if (listed.empty()) {
    return 0;
  }
  const json& identity = listed.front();
  REQUIRE(identity.size() == 4);
  REQUIRE(identity.at("id") == lumaret::fingerprint(certificate));
  requireName(identity.at("subject"));
  requireName(identity.at("issuer"));
  const std::string expiry = identity.at("expiresAt");
  REQUIRE(expiry.size() == 20 && expiry >= now());

  // A name that can be listed can be written as a rule, unless it contains nothing to match.
  for (const auto& loaded : lumaret::KeychainIdentityLoader().loadIdentities()) {
    if (!loaded.subject.chromeFilterFields().empty()) {
      const std::string rule = lumaret::ChromeCertificatePolicyService::encodedRule(loaded);
      REQUIRE(lumaret::ChromeCertificatePolicyService::rulePattern(rule) == "*");
      REQUIRE(json::parse(rule).at("filter").at("SUBJECT").size() ==
              loaded.subject.chromeFilterFields().size());
    }
  }
  return 0;
}
