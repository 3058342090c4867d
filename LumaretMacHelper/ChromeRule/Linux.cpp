// SPDX-License-Identifier: Apache-2.0
#include <cert.h>
#include <nss.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "LumaretMacHelper/ChromeRule/ChromeRule.hpp"
#include "LumaretMacHelper/Linux/CertificateDatabase.hpp"
#include "LumaretMacHelper/Linux/ChromeInstallation.hpp"
#include "LumaretMacHelper/Linux/ManagedPolicyFolder.hpp"
#include "LumaretMacHelper/Linux/PolicyFile.hpp"
#include "LumaretMacHelper/Linux/RuleServiceCall.hpp"
#include "LumaretMacHelper/POSIX/Process.hpp"
#include "LumaretMacHelper/POSIX/ScopeExit.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"
#include "LumaretMacHelper/RuleService/RuleChange.hpp"

namespace lumaret {
namespace {

std::filesystem::path ownFile() {
  return ChromeInstallation::current().managedPolicies / ManagedPolicyFolder::ownFileName;
}

bool isSet(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

}  // namespace

std::vector<RuleSource> ruleSources() {
  std::vector<RuleSource> sources;
  for (auto& [file, rules] : ManagedPolicyFolder(ownFile().parent_path()).rulesByFile()) {
    sources.push_back({file, file.compare(ownFile()), std::move(rules)});
  }
  return sources;
}

void withdrawRule() {
  const std::string browser(ChromeInstallation::current().name);
  if (::geteuid() == 0) {
    RuleChange(browser, std::nullopt).carryOut();
  } else if (!callRuleService({ruleService::clearRule, "s", browser})) {
    throw std::runtime_error("The rule service did not clear the rule.");
  }
}

bool isOffered(const Bytes& certificate) {
  // NSS judges the usage, as it does for Chrome.
  NSS_NoDB_Init(nullptr);
  const ScopeExit shutDown([] { NSS_Shutdown(); });
  SECItem der = {siDERCertBuffer, const_cast<unsigned char*>(certificate.data()),
                 static_cast<unsigned>(certificate.size())};
  auto* const decoded =
      CERT_NewTempCertificate(CERT_GetDefaultCertDB(), &der, nullptr, PR_FALSE, PR_TRUE);
  PRTime notBefore = 0;
  PRTime notAfter = 0;
  if (decoded == nullptr || CERT_GetCertTimes(decoded, &notBefore, &notAfter) != SECSuccess) {
    return false;
  }
  CERTCertList* const list = CERT_NewCertList();
  const ScopeExit destroy([list] { CERT_DestroyCertList(list); });
  CERT_AddCertToListTail(list, decoded);
  CERT_FilterCertListByUsage(list, certUsageSSLClient, PR_FALSE);
  return !CERT_LIST_EMPTY(list) && notBefore <= PR_Now();
}

bool rehearseAuthorization(const ClientIdentity& identity) {
  KeychainChromePrivateKeyAuthorizer().authorize(identity);  // It never changes anything.
  return false;
}

std::vector<Finding> platformFindings() {
  const std::filesystem::path folder = ownFile().parent_path();
  const bool hasWindows = isSet("DISPLAY") || isSet("WAYLAND_DISPLAY") ||
                          SystemChromeLaunchEnvironment().isApplicationRunning(chromeIdentifier);
  std::vector<Finding> findings = {
      {"folder", folder.string() + " open to every user",
       isOpenToEveryUser(folder) ? "" : "As root, run chmod a+rx on it and on the folders above."},
      {"display", "a display for a window",
       hasWindows ? "" : "Run this in a terminal on the desktop."}};
  if (::geteuid() != 0) {
    const bool isThere = callRuleService({"Ping"}, "org.freedesktop.DBus.Peer");
    findings.push_back({"service", "the rule service",
                        isThere ? "" : "Install the package of lumaret-macos-helper."});
    constexpr int hasToAsk = 2;
    const int answer = runUnseen("/usr/bin/pkcheck", {"--action-id", ruleService::action,
                                                      "--process", std::to_string(::getpid())});
    findings.push_back(
        {"permission",
         answer == hasToAsk ? "polkit's permission, with a password" : "polkit's permission",
         answer == 0 || answer == hasToAsk
             ? ""
             : std::string("Ask an administrator to permit ") + ruleService::action + "."});
  }
  return findings;
}

PlatformTexts platformTexts() {
  const std::string folder = databaseFolder();
  const std::string option = " -d 'sql:" + folder + "'";
  std::error_code error;
  const bool isMissing = !std::filesystem::exists(folder + "/cert9.db", error) && !error;
  return {.browser = std::string(ChromeInstallation::current().name),
          .database = folder,
          .certificates = "certificate database " + folder,
          .missingDatabase = isMissing ? "Make it: mkdir -p '" + folder +
                                             "' && certutil -N --empty-password" + option
                                       : "",
          .unreadableCertificates = "If it is this user's own, make a new one.",
          .missingCertificate = "Import it: pk12util -i FILE" + option,
          .guardedKey = "If the database has a password, take it away: certutil -W" + option,
          .unreadableRules = "Correct it, or let every user read it.",
          .overridingRules = std::string("Rename it so that it sorts before ") +
                             ManagedPolicyFolder::ownFileName + "."};
}

}  // namespace lumaret
