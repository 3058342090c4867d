// SPDX-License-Identifier: Apache-2.0
// Fuzzes a stored list of rules, one on each line, and the pattern of each.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Fuzzing/Require.hpp"
#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"

using lumaret::ChromeCertificatePolicyService;

namespace {

const std::string ownRule = R"({"filter":{"SUBJECT":{"CN":"Ana"}},"pattern":"*"})";

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> found;
  std::size_t start = 0;
  while (start < text.size()) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    found.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return found;
}

bool isCatchAll(const std::string& rule) {
  return ChromeCertificatePolicyService::isForEverySite(rule);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> before = lines({reinterpret_cast<const char*>(data), size});
  const std::vector<std::string> after =
      ChromeCertificatePolicyService::replacingRule(ownRule, before);

  std::vector<std::string> foreign = before;
  std::erase_if(foreign, isCatchAll);
  std::vector<std::string> kept = after;
  const auto own = std::find_if(kept.begin(), kept.end(), isCatchAll);
  REQUIRE(own != kept.end() && *own == ownRule);
  const auto place = own - kept.begin();
  kept.erase(own);
  REQUIRE(kept == foreign);

  const auto first = std::find_if(before.begin(), before.end(), isCatchAll);
  REQUIRE(place == (first != before.end() ? first - before.begin()
                                          : static_cast<std::ptrdiff_t>(foreign.size())));
  REQUIRE(ChromeCertificatePolicyService::replacingRule(ownRule, after) == after);

  // Taking the rule back leaves exactly what only this list says.
  REQUIRE(ChromeCertificatePolicyService::withdrawingRule(after, {}) == foreign);
  REQUIRE(ChromeCertificatePolicyService::withdrawingRule(after, foreign).empty());

  for (const std::string& rule : before) {
    const auto pattern = ChromeCertificatePolicyService::rulePattern(rule);
    if (pattern) {
      // A pattern that was read can be written, and is then read back unchanged.
      const std::string written = nlohmann::json{{"pattern", *pattern}}.dump();
      REQUIRE(ChromeCertificatePolicyService::rulePattern(written) == pattern);
      REQUIRE(rule.find('\0') == std::string::npos);
      REQUIRE(rule.find("pattern") != std::string::npos || rule.find("\\u") != std::string::npos);
    }
  }
  return 0;
}
