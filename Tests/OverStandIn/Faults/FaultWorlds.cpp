// SPDX-License-Identifier: Apache-2.0
#include <nlohmann/json.hpp>

#include "Tests/OverStandIn/AppleFrameworks/MachineFile.hpp"
#include "Tests/OverStandIn/Faults/Faults.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"
#include "Tests/Support/Cpp/Messages.hpp"

namespace lumaret::tests::faults {
namespace {

using standin::AccessList;
using standin::AccessListEntry;
using standin::Identity;
using Applications = std::vector<std::string>;
using enum Checkpoint;

// Entries of access lists

AccessListEntry signing(const Applications& applications) {
  return {{"kSecACLAuthorizationSign"}, applications, u"sign", 0x0001};
}
AccessListEntry anyUse(const std::optional<Applications>& applications) {
  return {
      {"kSecACLAuthorizationMAC", "kSecACLAuthorizationAny"}, applications, u"Cl\u00e9", 0x0050};
}

const AccessListEntry none = signing({});
const AccessListEntry chrome = signing({chromeApplication});
const AccessListEntry mail = signing({"/Mail"});
const AccessListEntry mailAndChrome = signing({"/Mail", chromeApplication});
const AccessListEntry any = anyUse({{"/Zoom", "/Mail"}});
const AccessListEntry anyAndChrome = anyUse({{"/Zoom", "/Mail", chromeApplication}});
const AccessListEntry open = anyUse(std::nullopt);
const AccessListEntry decrypting = {{"kSecACLAuthorizationDecrypt"}, {{"/Mail"}}, u"decrypt", 0};

// Identities

Identity ana(const AccessList& accessList) { return identity("ana", accessList); }

const Identity keyless = {"keyless", {1}, {}, nullptr};

Identity onToken(const std::string& name) {
  Identity identity = tests::identity(name);
  identity.privateKey->accessList.reset();
  return identity;
}
Identity withoutSubject(Identity identity, const standin::Value& notAfter = {farAhead}) {
  identity.certificateValues = certificateValues({}, notAfter);
  return identity;
}
Identity expired(Identity identity) {
  return withoutSubject(std::move(identity), {standin::Date{0}});
}
Identity withoutIssuer(Identity identity) {
  identity.certificateValues->erase(u"kSecOIDX509V1IssuerName");
  return identity;
}
Identity namedOtherwise(const std::string& name, Identity identity) {
  identity.name = name;
  return identity;
}

// Rules

const std::string anasRule =
    R"({"filter":{"ISSUER":{"CN":"Example CA"},"SUBJECT":{"CN":"ana"}},"pattern":"*"})";
const std::string beasRule =
    R"({"filter":{"ISSUER":{"CN":"Example CA"},"SUBJECT":{"CN":"Bea"}},"pattern":"*"})";
const std::string foreignRule =
    R"({"pattern": "https://a.example", "filter": {"SUBJECT": {"CN": "ana"}}})";
const std::string noRule = "no rule";

standin::Dictionary rules(const std::vector<nlohmann::json>& list) {
  return {{u"AutoSelectCertificateForUrls", standin::valueOf(list)}};
}

}  // namespace

const std::vector<World> worlds = {
    {.name = "ListAnEmptyKeychain", .lists = true, .ending = ends(untouched, "")},
    {.name = "ListSeveralIdentities",
     .identities = {identity("zoe", {mail}), ana({open}), expired(identity("old", {chrome})),
                    identity("Bea", {decrypting}), onToken("card"), keyless,
                    withoutSubject(identity("nameless", {})),
                    namedOtherwise("Bea again", identity("Bea", {none}))},
     .preferences = rules({anasRule}),
     .lists = true,
     .ending = ends(untouched, "")},
    {.name = "TwoSigningEntriesWithoutChrome",
     .identities = {ana({mail, decrypting, any})},
     .allowed = {{mailAndChrome, decrypting, anyAndChrome}},
     .stored = rules({anasRule}),
     .isChromeRunning = false},
    {.name = "ChromeListedInTheSecondEntry",
     .identities = {ana({mail, signing({"/Zoom", chromeApplication})})},
     .preferences = rules({foreignRule, noRule}),
     .stored = rules({foreignRule, noRule, anasRule}),
     .address = "https://a.example/"},
    {.name = "AnyApplicationInTheSecondEntry",
     .identities = {withoutIssuer(ana({mail, open, signing({"/Zoom"})}))},
     .preferences = rules({}),
     .stored = rules({R"({"filter":{"SUBJECT":{"CN":"ana"}},"pattern":"*"})"})},
    {.name = "SeveralIdentities",
     .identities = {identity("zoe", {mail}), expired(identity("old", {mail})), ana({none}), keyless,
                    withoutSubject(identity("nameless", {}))},
     .preferences = rules({beasRule}),
     .allowed = {{chrome}},
     .stored = rules({anasRule}),
     .isChromeRunning = false,
     .address = "HTTP://a.example"},
    {.name = "ForeignRules",
     .identities = {ana({any}), identity("Bea", {none})},
     .preferences = rules({foreignRule, beasRule, noRule, anasRule, foreignRule}),
     .allowed = {{anyAndChrome}},
     .stored = rules({foreignRule, anasRule, noRule, foreignRule})},
    {.name = "ActivatedBefore",
     .identities = {ana({chrome, mail})},
     .preferences = rules({noRule, anasRule}),
     .indifferentTo = "CFPreferencesSetValue"},
    {.name = "NoSuchIdentity",
     .identities = {identity("Bea", {mail})},
     .preferences = rules({noRule}),
     .ending = ends(untouched, messages::selectedIdentityNotFound)},
    {.name = "TwiceInTheKeychain",
     .identities = {namedOtherwise("one", ana({mail})), namedOtherwise("other", ana({decrypting}))},
     .preferences = rules({noRule}),
     .ending = ends(untouched, messages::selectedIdentityAmbiguous)},
    {.name = "KeyOfAToken",
     .identities = {onToken("ana")},
     .preferences = rules({noRule}),
     .ending = ends(untouched, messages::chromeKeyAuthorizationUnsupported)},
    {.name = "NoSigningEntry",
     .identities = {ana({decrypting})},
     .isChromeRunning = false,
     .ending = ends(untouched, messages::chromeKeyAuthorizationUnsupported)},
    {.name = "NoSubject",
     .identities = {withoutSubject(ana({mail}))},
     .preferences = rules({noRule}),
     .allowed = {{mailAndChrome}},
     .ending = ends(keyAllowed, messages::certificateHasNoSubject)},
    {.name = "RulesOfAnotherType",
     .identities = {ana({mail})},
     .preferences = rules({noRule, 7.0}),
     .allowed = {{mailAndChrome}},
     .ending = ends(keyAllowed, messages::policyWriteFailed)},
    {.name = "AddressOfAnotherScheme",
     .identities = {ana({mail})},
     .allowed = {{mailAndChrome}},
     .stored = rules({anasRule}),
     .address = "ftp://a.example/",
     .ending = ends(refreshed,
                    messages::told(messages::chromeLaunchFailed, messages::unsupportedScheme))}};

}  // namespace lumaret::tests::faults
