#include "ChromeCertificatePolicyService.hpp"
#include "ChromeInstallation.hpp"
#include "ManagedPolicyFolder.hpp"

namespace lumaret {
namespace {

ManagedPolicyFolder policies() {
  return ManagedPolicyFolder(ChromeInstallation::current().managedPolicies);
}

}  // namespace

std::vector<std::string> CurrentUserChromePreferences::readRules() const {
  return policies().readRules();
}

void CurrentUserChromePreferences::writeRules(const std::vector<std::string>& rules) {
  policies().writeRules(rules);
}

bool CurrentUserChromePreferences::synchronize() { return policies().synchronize(); }

}  // namespace lumaret
