// SPDX-License-Identifier: Apache-2.0
#include "Tests/OverStandIn/Faults/FaultWorlds.hpp"

#include "Tests/OverStandIn/Faults/FaultListing.hpp"
#include "Tests/OverStandIn/Faults/FaultMessages.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"

namespace lumaret::tests::faults {
namespace {

using nlohmann::json;
using standin::AccessList;
using standin::AccessListEntry;
using Texts = std::vector<std::string>;

const std::string chrome = "/Applications/Google Chrome.app";

AccessListEntry signing(const Texts& applications) {
  return {{"kSecACLAuthorizationSign"}, applications, u"sign", 0x0001};
}
AccessListEntry anyOperation(const Texts& applications) {
  return {
      {"kSecACLAuthorizationMAC", "kSecACLAuthorizationAny"}, applications, u"Cl\u00e9", 0x0050};
}
AccessListEntry openToAnyApplication() {
  return {{"kSecACLAuthorizationAny"}, std::nullopt, u"any", 0};
}
AccessListEntry decrypting() {
  return {{"kSecACLAuthorizationDecrypt"}, {{"/Mail"}}, u"decrypt", 0};
}

const std::string foreignRule =
    R"({"pattern": "https://a.example", "filter": {"SUBJECT": {"CN": "ana"}}})";
const std::string noRule = "no rule";
const std::string anasRule =
    R"({"filter":{"ISSUER":{"CN":"Example CA"},"SUBJECT":{"CN":"ana"}},"pattern":"*"})";
const std::string beasRule =
    R"({"filter":{"ISSUER":{"CN":"Example CA"},"SUBJECT":{"CN":"Bea"}},"pattern":"*"})";

json list(const std::vector<json>& values) { return values; }

Texts activation(const std::string& address = "") {
  Texts arguments = {"activate", "--fingerprint", idOf("ana")};
  if (!address.empty()) {
    arguments.insert(arguments.end(), {"--url", address});
  }
  return arguments;
}

std::vector<World> listings() {
  return {
      {"ListAnEmptyKeychain", {"list"}, {}},
      {"ListSeveralIdentities",
       {"list"},
       {{"zoe", {{signing({"/Mail"})}}},
        {"ana", {{openToAnyApplication()}}},
        {"old", {{signing({chrome})}}, State::expired},
        {"Bea", {{decrypting()}}},
        {"card", std::nullopt},
        {"keyless", std::nullopt, State::withoutKey},
        {"nameless", AccessList(), State::withoutSubject},
        {"Bea", {{signing({})}}}},
       list({anasRule}),
       true,
       "",
       {{openToAnyApplication()}},
       list({anasRule})},
  };
}

std::vector<World> activations() {
  return {
      {"TwoSigningEntriesWithoutChrome",
       activation(),
       {{"ana", {{signing({"/Mail"}), decrypting(), anyOperation({"/Zoom", "/Mail"})}}}},
       nullptr,
       false,
       "",
       {{signing({"/Mail", chrome}), decrypting(), anyOperation({"/Zoom", "/Mail", chrome})}},
       list({anasRule}),
       {windowRequest + ")"}},
      {"ChromeListedInTheSecondEntry",
       activation("https://a.example/"),
       {{"ana", {{signing({"/Mail"}), signing({"/Zoom", chrome})}}}},
       list({foreignRule, noRule}),
       true,
       "",
       {{signing({"/Mail"}), signing({"/Zoom", chrome})}},
       list({foreignRule, noRule, anasRule}),
       {policyRefresh, windowRequest + ", https://a.example/)"}},
      {"AnyApplicationInTheSecondEntry",
       activation(),
       {{"ana", {{signing({"/Mail"}), openToAnyApplication(), signing({"/Zoom"})}}}},
       list({}),
       true,
       "",
       {{signing({"/Mail"}), openToAnyApplication(), signing({"/Zoom"})}},
       list({anasRule}),
       {policyRefresh, windowRequest + ")"}},
      {"SeveralIdentities",
       activation("HTTP://a.example"),
       {{"zoe", {{signing({"/Mail"})}}},
        {"old", {{signing({"/Mail"})}}, State::expired},
        {"ana", {{signing({})}}},
        {"keyless", std::nullopt, State::withoutKey},
        {"nameless", AccessList(), State::withoutSubject}},
       list({beasRule}),
       false,
       "",
       {{signing({chrome})}},
       list({anasRule}),
       {windowRequest + ", HTTP://a.example)"}},
      {"ForeignRules",
       activation(),
       {{"ana", {{anyOperation({"/Mail"})}}}, {"Bea", {{signing({})}}}},
       list({foreignRule, beasRule, noRule, anasRule, foreignRule}),
       true,
       "",
       {{anyOperation({"/Mail", chrome})}},
       list({foreignRule, anasRule, noRule, foreignRule}),
       {policyRefresh, windowRequest + ")"}},
      {"ActivatedBefore",
       activation(),
       {{"ana", {{signing({chrome}), signing({"/Mail"})}}}},
       list({noRule, anasRule}),
       true,
       "",
       {{signing({chrome}), signing({"/Mail"})}},
       list({noRule, anasRule}),
       {policyRefresh, windowRequest + ")"}},
  };
}

std::vector<World> failures() {
  const AccessList before = {signing({"/Mail"})};
  const AccessList afterwards = {signing({"/Mail", chrome})};
  return {
      {"NoSuchIdentity",
       activation(),
       {{"Bea", before}},
       list({noRule}),
       true,
       notFound,
       {},
       list({noRule})},
      {"TwiceInTheKeychain",
       activation(),
       {{"ana", before}, {"ana", {{decrypting()}}}},
       list({noRule}),
       true,
       ambiguous,
       before,
       list({noRule})},
      {"KeyOfAToken",
       activation(),
       {{"ana", {}}},
       list({noRule}),
       true,
       unsupported,
       {},
       list({noRule})},
      {"NoSigningEntry",
       activation(),
       {{"ana", {{decrypting()}}}},
       nullptr,
       false,
       unsupported,
       {{decrypting()}}},
      {"NoSubject",
       activation(),
       {{"ana", before, State::withoutSubject}},
       list({noRule}),
       true,
       unmatchable,
       afterwards,
       list({noRule})},
      {"RulesOfAnotherType",
       activation(),
       {{"ana", before}},
       list({noRule, 7}),
       true,
       notSaved,
       afterwards,
       list({noRule, 7})},
      {"AddressOfAnotherScheme",
       activation("ftp://a.example/"),
       {{"ana", before}},
       nullptr,
       true,
       refused,
       afterwards,
       list({anasRule}),
       {policyRefresh}},
  };
}

}  // namespace

const std::vector<World>& worlds() {
  static const std::vector<World> all = [] {
    std::vector<World> collected = listings();
    for (const auto& more : {activations(), failures()}) {
      collected.insert(collected.end(), more.begin(), more.end());
    }
    return collected;
  }();
  return all;
}

}  // namespace lumaret::tests::faults
