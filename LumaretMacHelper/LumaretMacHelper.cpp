// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/LumaretMacHelper.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <nlohmann/json.hpp>
#include <utility>

#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/ChromeLauncher.hpp"
#include "LumaretMacHelper/KeychainChromePrivateKeyAuthorizer.hpp"
#include "LumaretMacHelper/KeychainIdentityLoader.hpp"
#include "LumaretMacHelper/PlatformFunctions.hpp"
#include "LumaretMacHelper/URL.hpp"

namespace lumaret {
namespace {

using nlohmann::json;

/// Prints compact JSON with sorted keys and unescaped slashes. The line feed is a separate write.
void printResult(const json& result) {
  writeStandardOutput(result.dump());
  writeStandardOutput("\n");
}

json principalObject(const CertificatePrincipal& principal) {
  const auto textOrNull = [](const std::optional<std::string>& text) {
    return text ? json(*text) : json(nullptr);
  };
  return {{"commonName", textOrNull(principal.commonName)},
          {"organization", textOrNull(principal.organization)},
          {"organizationalUnit", textOrNull(principal.organizationalUnit)},
          {"locality", textOrNull(principal.locality)}};
}

/// ISO 8601 date and time in UTC, to the second, such as 2099-12-31T23:59:59Z.
std::string internetDateTime(Date date) {
  const std::time_t seconds =
      std::chrono::floor<std::chrono::seconds>(date).time_since_epoch().count();
  std::array<char, 48> text{};
  return {text.data(),
          std::strftime(text.data(), text.size(), "%Y-%m-%dT%TZ", std::gmtime(&seconds))};
}

}  // namespace

void LumaretMacHelper::main(int argumentCount, const char* const* processArguments) {
  prepareStandardStreams();
  try {
    // argv may be empty, without even the program's path.
    const int first = std::min(1, argumentCount);
    run({processArguments + first, processArguments + argumentCount});
  } catch (...) {
    writeStandardError(descriptionOfCaughtError() + "\n");
    std::exit(EXIT_FAILURE);
  }
}

void LumaretMacHelper::run(const std::vector<std::string>& arguments) {
  const std::string_view command = arguments.empty() ? "" : std::string_view(arguments.front());
  if (command == "list") {
    listIdentities();
  } else if (command == "activate") {
    activate({arguments.begin() + 1, arguments.end()});
  } else {
    throw CommandError::usage();
  }
}

std::optional<std::string> LumaretMacHelper::value(std::string_view flag,
                                                   const std::vector<std::string>& arguments) {
  const auto found = std::find(arguments.begin(), arguments.end(), flag);
  return found != arguments.end() && found + 1 != arguments.end() ? std::optional(*(found + 1))
                                                                  : std::nullopt;
}

void LumaretMacHelper::listIdentities() {
  json identities = json::array();
  for (const ClientIdentity& identity : KeychainIdentityLoader().loadIdentities()) {
    identities.push_back({{"id", identity.id},
                          {"subject", principalObject(identity.subject)},
                          {"issuer", principalObject(identity.issuer)},
                          {"expiresAt", internetDateTime(identity.expiresAt)}});
  }
  printResult(identities);
}

void LumaretMacHelper::activate(const std::vector<std::string>& arguments) {
  const auto fingerprint = value("--fingerprint", arguments);
  if (!fingerprint || fingerprint->empty()) {
    throw CommandError::usage();
  }

  std::vector<ClientIdentity> identities = KeychainIdentityLoader().loadIdentities();
  std::erase_if(identities,
                [&](const ClientIdentity& identity) { return identity.id != *fingerprint; });
  if (identities.size() != 1) {
    throw CertificateSelectorError::selectedIdentityNotFound();
  }
  const ClientIdentity& selected = identities.front();

  // The key comes first. As long as Chrome may not sign with it, no rule may name its certificate.
  KeychainChromePrivateKeyAuthorizer().authorize(selected);
  ChromeCertificatePolicyService().apply(selected);

  const auto address = value("--url", arguments);
  ChromeLauncher().open(address ? parseURL(*address) : std::nullopt);

  printResult({{"ok", true}});
}

}  // namespace lumaret
