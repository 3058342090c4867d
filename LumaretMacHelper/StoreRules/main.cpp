// SPDX-License-Identifier: Apache-2.0
// Stores a list of rules for a user whom sudo allows to do that. Accepts only a list that
// `activate` makes of the rules in force. The whole list comes on standard input, as a JSON array
// of strings. See "What a grant means" in SECURITY.md.

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "LumaretMacHelper/Linux/StoringLock.hpp"
#include "LumaretMacHelper/POSIX/Process.hpp"
#include "LumaretMacHelper/PlatformFunctions.hpp"
#include "LumaretMacHelper/PlatformServices.hpp"
#include "LumaretMacHelper/StoreRules/CallersControlGroups.hpp"
#include "LumaretMacHelper/StoreRules/CallersSurroundings.hpp"

namespace lumaret {
namespace {

using nlohmann::json;

/// In bytes. The names in a certificate take some hundreds.
constexpr std::size_t longestRule = 64UL << 10;

/// A caller that stops writing keeps this process waiting no longer than this.
constexpr std::chrono::minutes longestWait(1);

struct Refusal : std::runtime_error {
  using std::runtime_error::runtime_error;
};

std::string readStandardInput(std::size_t longest) {
  const auto deadline = std::chrono::steady_clock::now() + longestWait;
  std::string text;
  std::array<char, 4096> buffer{};
  while (true) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd readable = {STDIN_FILENO, POLLIN, 0};
    if (left.count() <= 0 || ::poll(&readable, 1, static_cast<int>(left.count())) == 0) {
      throw Refusal("The list did not come to its end in time.");
    }
    const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
    if (count < 0) {
      throw std::system_error(errno, std::generic_category(), "Standard input could not be read");
    }
    if (count == 0) {
      return text;
    }
    text.append(buffer.data(), static_cast<std::size_t>(count));
    if (text.size() > longest) {
      throw Refusal("The list is much longer than the one in force.");
    }
  }
}

std::vector<std::string> listIn(const std::string& text) {
  const json list = json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!list.is_array() ||
      !std::all_of(list.begin(), list.end(), [](const json& rule) { return rule.is_string(); })) {
    throw Refusal("Standard input is no list of texts.");
  }
  return list.get<std::vector<std::string>>();
}

/// The user for whom sudo started this process, by the name that sudo found for the user's number.
/// Nothing if root started it without sudo.
std::optional<std::string> callerOfSudo() {
  const char* name = std::getenv("SUDO_USER");
  return name == nullptr ? std::nullopt : std::optional<std::string>(name);
}

/// Whether sudo would start this program for the user now, by any line of its files.
bool maySudo(const std::string& user) {
  return runUnseen(LUMARET_SUDO, {"-n", "-l", "-U", user, "-u", "root", "--", LUMARET_STORE_RULES},
                   "") == 0;
}

void storeRules(const std::optional<std::string>& caller) {
  CurrentUserChromePreferences preferences;
  // The length of the list in force, and one more rule, limit what is read and parsed for the
  // caller.
  const std::size_t longest = json(preferences.readRules()).dump().size() + 2 * longestRule;
  const std::vector<std::string> rules = listIn(readStandardInput(longest));
  // Standard input may be a file of the user's own file system, which need not answer when the file
  // is closed. It is closed before the lock is taken, since a process that waits for that keeps its
  // lock even if it is killed. The lock then has the lowest descriptor, which is closed before all
  // others.
  ::close(STDIN_FILENO);

  const StoringLock lock;
  if (!ChromeCertificatePolicyService::isReplacement(rules, preferences.readRules(), longestRule)) {
    throw Refusal("This is not the list in force with one rule of lumaret-macos-helper's.");
  }
  // The grant may have been taken back since sudo was asked. Whoever takes it back removes sudo's
  // line and then waits for this lock.
  if (caller && !maySudo(*caller)) {
    throw Refusal("sudo does not let its caller store the rule any more.");
  }
  preferences.writeRules(rules);
  if (!preferences.synchronize()) {
    throw Refusal("The list was stored but may not last.");
  }
}

}  // namespace
}  // namespace lumaret

int main(int argumentCount, char** /*arguments*/) {
  try {
    const auto caller = lumaret::callerOfSudo();
    lumaret::leaveCallersSurroundings();
    if (argumentCount > 1) {
      throw lumaret::Refusal("There are no arguments: the list comes on standard input.");
    }
    if (::getuid() != 0 || ::geteuid() != 0) {
      throw lumaret::Refusal("This is for root, by way of sudo.");
    }
    lumaret::leaveCallersControlGroups();
    lumaret::storeRules(caller);
  } catch (const std::exception& error) {
    lumaret::writeStandardError("store-rules: " + std::string(error.what()) + "\n");
    return EXIT_FAILURE;
  }
}
