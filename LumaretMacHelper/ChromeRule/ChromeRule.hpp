// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "LumaretMacHelper/Contracts.hpp"

namespace lumaret {

/// Runs the process's command. Returns its exit status: 1 also if a check has failed, 2 if the
/// arguments are not a command.
int runChromeRule(int argumentCount, const char* const* processArguments);

/// What a command has found out or done.
struct Report {
  std::string text;  // whole lines, for people
  nlohmann::json json;
};

/// What `activate` needs, and what Chrome needs to present the identity with this fingerprint or,
/// if it is empty, the only one.
Report check(const std::string& wanted);

/// The user's identities that Chrome, by any of these rules, presents to a server that takes them.
std::vector<ClientIdentity> identitiesSelectedBy(const std::vector<std::string>& rules);

/// The fingerprint and the name, for people.
std::string shown(const ClientIdentity& identity);

// What a platform defines for this program, beside what it defines for the core.

/// Tells whether Chrome offers a certificate, given in DER, to servers.
std::function<bool(const Bytes&)> offerTest();

/// Does what `activate` does so that Chrome may sign, without changing anything. Returns whether
/// something would have to be changed. Throws what `activate` would throw.
bool rehearseAuthorization(const ClientIdentity& identity);

/// A condition for `activate`, and what to do if it does not hold; otherwise nothing.
struct Finding {
  std::string check;
  std::string condition;
  std::string cure;
};
/// Those that only this platform has.
std::vector<Finding> platformFindings();

struct PlatformTexts {
  std::string browser;   // "Google Chrome" or "Chromium"
  std::string database;  // the folder of the certificate database; empty without one
  // What to do about each. That about the database is empty unless it is missing.
  std::string missingDatabase;
  std::string unreadableDatabase;
  std::string missingCertificate;
  std::string guardedKey;
  std::string unreadableRules;
  std::string overridingRules;
};
PlatformTexts platformTexts();

}  // namespace lumaret
