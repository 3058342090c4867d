// SPDX-License-Identifier: Apache-2.0
#include <cert.h>
#include <nss.h>
#include <prerror.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "LumaretMacHelper/ChromeRule/ChromeRule.hpp"
#include "LumaretMacHelper/Linux/CertificateDatabase.hpp"
#include "LumaretMacHelper/Linux/ChromeInstallation.hpp"
#include "LumaretMacHelper/Linux/ManagedPolicyFolder.hpp"
#include "LumaretMacHelper/Linux/PolicyFile.hpp"
#include "LumaretMacHelper/POSIX/Process.hpp"
#include "LumaretMacHelper/POSIX/ScopeExit.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"
#include "LumaretMacHelper/RuleService/Address.hpp"

namespace lumaret {
namespace {

bool isSet(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

/// -1 if the program is missing.
int answerOf(const char* program, const std::vector<std::string>& arguments) {
  return isExecutableFile(program) ? runUnseen(program, arguments) : -1;
}

}  // namespace

std::function<bool(const Bytes&)> offerTest() {
  // NSS judges the usage, as it does for Chrome.
  if (NSS_NoDB_Init(nullptr) != SECSuccess) {
    throw CertificateDatabaseError(PR_GetError());
  }
  const std::shared_ptr<void> shutDown(nullptr, [](void* /*nothing*/) { NSS_Shutdown(); });
  return [shutDown](const Bytes& certificate) {
    SECItem der = {siDERCertBuffer, const_cast<unsigned char*>(certificate.data()),
                   static_cast<unsigned>(certificate.size())};
    auto* const decoded =
        CERT_NewTempCertificate(CERT_GetDefaultCertDB(), &der, nullptr, PR_FALSE, PR_TRUE);
    if (decoded == nullptr) {
      return false;
    }
    CERTCertList* const list = CERT_NewCertList();
    const ScopeExit destroy([list] { CERT_DestroyCertList(list); });
    CERT_AddCertToListTail(list, decoded);
    CERT_FilterCertListByUsage(list, certUsageSSLClient, PR_FALSE);
    return !CERT_LIST_EMPTY(list) &&
           CERT_CheckCertValidTimes(decoded, PR_Now(), PR_FALSE) == secCertTimeValid;
  };
}

bool rehearseAuthorization(const ClientIdentity& identity) {
  KeychainChromePrivateKeyAuthorizer().authorize(identity);  // It never changes anything.
  return false;
}

std::vector<Finding> platformFindings() {
  const std::filesystem::path folder = ChromeInstallation::current().managedPolicies;
  const bool hasWindows = isSet("DISPLAY") || isSet("WAYLAND_DISPLAY") ||
                          SystemChromeLaunchEnvironment().isApplicationRunning(chromeIdentifier);
  std::vector<Finding> findings = {
      {"folder", folder.string() + " open to every user",
       isOpenToEveryUser(folder) ? "" : "As root, run chmod a+rx on it and on the folders above."},
      {"display", "a display for a window",
       hasWindows ? "" : "Run this in a terminal on the desktop."}};
  if (::geteuid() != 0) {
    const bool isThere = answerOf("/usr/bin/busctl", {"--system", "call", ruleService::busName,
                                                      ruleService::objectPath,
                                                      "org.freedesktop.DBus.Peer", "Ping"}) == 0;
    findings.push_back({"service", "the rule service",
                        isThere ? "" : "Install the package of lumaret-macos-helper."});
    const int answer = answerOf("/usr/bin/pkcheck", {"--action-id", ruleService::action,
                                                     "--process", std::to_string(::getpid())});
    const bool hasToAsk = answer == 2;
    findings.push_back(
        {"permission", std::string("polkit's permission") + (hasToAsk ? ", with a password" : ""),
         answer == 0 || hasToAsk
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
          .missingDatabase = isMissing ? "Make it: mkdir -p '" + folder +
                                             "' && certutil -N --empty-password" + option
                                       : "",
          .unreadableDatabase =
              "Close the programs that use it, and let this user read it. If it is damaged, "
              "restore it.",
          .missingCertificate = "Import it: pk12util -i FILE" + option,
          .guardedKey = "If the database has a password, take it away: certutil -W" + option,
          .unreadableRules = "Correct it, or let every user read it.",
          .overridingRules = std::string("Rename it so that it sorts before ") +
                             ManagedPolicyFolder::ownFileName + "."};
}

}  // namespace lumaret
