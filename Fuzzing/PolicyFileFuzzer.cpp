// SPDX-License-Identifier: Apache-2.0
// Fuzzes the text of a policy file: the tool's own, or, if the first byte is odd, another file
// beside it.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "Fuzzing/Require.hpp"
#include "LumaretMacHelper/ChromeCertificatePolicyService.hpp"
#include "LumaretMacHelper/Linux/ManagedPolicyFolder.hpp"
#include "Tests/Support/Cpp/TemporaryFolder.hpp"

namespace {

using lumaret::ChromeCertificatePolicyService;
using lumaret::rulesPolicy;
using nlohmann::json;

const std::string ownRule = R"({"filter":{"SUBJECT":{"CN":"Ana"}},"pattern":"*"})";

/// In memory, if the machine has a place for that.
std::string folderInMemory() {
  std::string name =
      std::filesystem::exists("/dev/shm") ? "/dev/shm/lumaret.XXXXXX" : "/tmp/lumaret.XXXXXX";
  REQUIRE(::mkdtemp(name.data()) != nullptr && ::chmod(name.c_str(), 0755) == 0);
  return name;
}

struct Folder {
  std::filesystem::path root = folderInMemory();
  std::filesystem::path managed = root / "managed";
  std::filesystem::path own = managed / lumaret::ManagedPolicyFolder::ownFileName;
  std::filesystem::path other = managed / "company.json";

  Folder() {
    ::umask(022);
    std::filesystem::create_directory(managed);
  }
  ~Folder() { std::filesystem::remove_all(root); }
};

std::optional<std::vector<std::string>> rulesOf(const lumaret::ManagedPolicyFolder& folder) {
  try {
    return folder.readRules();
  } catch (const lumaret::ChromePreferencesError&) {
    return std::nullopt;
  }
}

bool areCharacters(const std::vector<std::string>& rules) {
  try {
    static_cast<void>(json(rules).dump());
    return true;
  } catch (const json::exception&) {
    return false;
  }
}

/// All policies of the tool's file but the rules.
json othersIn(const std::string& text) {
  json policies = json::parse(text, nullptr, false, true);
  if (policies.is_object()) {
    policies.erase(rulesPolicy);
  }
  return policies.is_object() ? policies : json::object();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Folder place;
  if (size == 0) {
    return 0;
  }
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  const bool isOther = (data[0] & 1) != 0;
  std::filesystem::remove(place.own);
  std::filesystem::remove(place.other);
  lumaret::tests::writeFile(isOther ? place.other : place.own, text);
  const lumaret::ManagedPolicyFolder folder(place.managed);

  const auto before = rulesOf(folder);
  REQUIRE(lumaret::tests::readFile(isOther ? place.other : place.own) == text);
  if (!before) {
    return 0;  // Refused: the tool does not write then.
  }
  REQUIRE(areCharacters(*before));
  // The rules that were read are those that a strict parser finds.
  const json strict = json::parse(text, nullptr, false);
  if (strict.is_object() && strict.contains(rulesPolicy) && text.find('\0') == std::string::npos) {
    REQUIRE(strict[rulesPolicy] == json(*before));
  } else if (strict.is_object()) {
    REQUIRE(before->empty());
  }

  const auto merged = ChromeCertificatePolicyService::replacingRule(ownRule, *before);
  folder.writeRules(merged);
  REQUIRE(folder.synchronize());
  REQUIRE(rulesOf(folder) == merged);
  const std::string written = lumaret::tests::readFile(place.own);
  const json policies = json::parse(written);  // Strict, and so UTF-8.
  REQUIRE(policies.at(rulesPolicy) == json(merged));
  if (isOther) {
    REQUIRE(policies.size() == 1);
    REQUIRE(lumaret::tests::readFile(place.other) == text);
  } else {
    REQUIRE(othersIn(written) == othersIn(text));
  }

  folder.writeRules(merged);
  REQUIRE(lumaret::tests::readFile(place.own) == written);
  const auto entries = std::filesystem::directory_iterator(place.root);
  REQUIRE(std::distance(begin(entries), end(entries)) == 1);
  return 0;
}
