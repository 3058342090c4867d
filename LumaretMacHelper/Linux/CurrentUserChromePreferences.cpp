// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <system_error>

#include "LumaretMacHelper/Linux/ChromeInstallation.hpp"
#include "LumaretMacHelper/Linux/ManagedPolicyFolder.hpp"
#include "LumaretMacHelper/Linux/StoringLock.hpp"
#include "LumaretMacHelper/POSIX/Process.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"

namespace lumaret {
namespace {

ManagedPolicyFolder policies() {
  return ManagedPolicyFolder(ChromeInstallation::current().managedPolicies);
}

bool isRoot() { return ::geteuid() == 0; }

std::system_error refusal() {
  return {std::make_error_code(std::errc::permission_denied), "the rules"};
}

/// The preferences as the service uses them. Root takes the lock when it first reads the rules and
/// keeps it until the service is done.
class ExclusivePreferences final : public ChromePreferencesStoring {
 public:
  [[nodiscard]] std::vector<std::string> readRules() const override {
    if (isRoot() && !lock_) {
      lock_.emplace();
    }
    return preferences_.readRules();
  }
  void writeRules(const std::vector<std::string>& rules) override {
    preferences_.writeRules(rules);
  }
  [[nodiscard]] bool synchronize() override { return preferences_.synchronize(); }

 private:
  CurrentUserChromePreferences preferences_;
  mutable std::optional<StoringLock> lock_;
};

}  // namespace

ChromeCertificatePolicyService::ChromeCertificatePolicyService()
    : ChromeCertificatePolicyService(std::make_shared<ExclusivePreferences>()) {}

std::vector<std::string> CurrentUserChromePreferences::readRules() const {
  return policies().readRules();
}

void CurrentUserChromePreferences::writeRules(const std::vector<std::string>& rules) {
  if (!isRoot()) {
    // sudo decides whether this user may store rules. The program that it runs as root checks the
    // list.
    const std::string list = nlohmann::json(rules).dump();
    if (runUnseen(LUMARET_SUDO, {"-n", "-u", "root", "--", LUMARET_STORE_RULES}, list) != 0) {
      throw refusal();
    }
    return;
  }
  const ManagedPolicyFolder folder = policies();
  if (!folder.isOpenToEveryUser()) {
    throw refusal();
  }
  folder.writeRules(rules);
}

bool CurrentUserChromePreferences::synchronize() { return policies().synchronize(); }

}  // namespace lumaret
