// SPDX-License-Identifier: Apache-2.0
#include "Tests/OverStandIn/Faults/FaultListing.hpp"

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

namespace lumaret::tests::faults {
namespace {

using nlohmann::json;

json principal(const std::optional<std::string>& commonName) {
  return {{"commonName", commonName ? json(*commonName) : json(nullptr)},
          {"locality", nullptr},
          {"organization", nullptr},
          {"organizationalUnit", nullptr}};
}

std::string sortKey(const Listed& listed) {
  std::string key = listed.commonName.value_or("Unnamed certificate");
  std::transform(key.begin(), key.end(), key.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return key;
}

}  // namespace

std::string printed(const Listing& listing) {
  std::vector<std::pair<std::string, Listed>> sorted(listing.begin(), listing.end());
  std::stable_sort(sorted.begin(), sorted.end(), [](const auto& left, const auto& right) {
    return sortKey(left.second) < sortKey(right.second);
  });
  json array = json::array();
  for (const auto& [id, listed] : sorted) {
    array.push_back({{"expiresAt", "2099-12-31T23:59:59Z"},
                     {"id", id},
                     {"issuer", principal(listed.issuer)},
                     {"subject", principal(listed.commonName)}});
  }
  return array.dump() + "\n";
}

const std::string& idOf(const std::string& name) {
  static const std::map<std::string, std::string> ids = {
      {"ana", "24d4b96f58da6d4a8512313bbd02a28ebf0ca95dec6e4c86ef78ce7f01e788ac"},
      {"Bea", "56a9baaa78e21fd28508d820a750a3bdab648145046ae5d2e91ef2480fcb240b"},
      {"zoe", "9d017e2681b7f31725e1c0fbe2612e89079c22806b02cf7a894b500dd5a219c1"},
      {"old", "cba06b5736faf67e54b07b561eae94395e774c517a7d910a54369e1263ccfbd4"},
      {"card", "8367cd66fdd136bba8ba23f8805bb050dd6289401c8ec3b0be44a3c233eef90d"},
      {"nameless", "17d72fdf1868464ade4f11f794ecd73b655db1e8eed322d2f66bdcba5bcfdad5"},
      {"keyless", "89bf6dea4a81042981229ca35023c80babaaf925dd6d1efcf46523a38c1c64f3"},
      {"\x01", "4bf5122f344554c53bde2ebb8cd2b7e3d1600ad631c385a5d7cce23c7785459a"}};
  return ids.at(name);
}

}  // namespace lumaret::tests::faults
