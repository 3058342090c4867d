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
const AccessListEntry any = anyUse({{"/Zoom", "/Mail"}});
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
     .isChromeRunning = false},
    {.name = "ChromeListedInTheSecondEntry",
     .identities = {ana({mail, signing({"/Zoom", chromeApplication})})},
     .preferences = rules({foreignRule, noRule}),
     .address = "https://a.example/"},
    {.name = "AnyApplicationInTheSecondEntry",
     .identities = {ana({mail, open, signing({"/Zoom"})})},
     .preferences = rules({})},
    {.name = "SeveralIdentities",
     .identities = {identity("zoe", {mail}), expired(identity("old", {mail})), ana({none}), keyless,
                    withoutSubject(identity("nameless", {}))},
     .preferences = rules({beasRule}),
     .isChromeRunning = false,
     .address = "HTTP://a.example"},
    {.name = "ForeignRules",
     .identities = {ana({any}), identity("Bea", {none})},
     .preferences = rules({foreignRule, beasRule, noRule, anasRule, foreignRule})},
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
     .ending = ends(keyAllowed, messages::certificateHasNoSubject)},
    {.name = "RulesOfAnotherType",
     .identities = {ana({mail})},
     .preferences = rules({noRule, 7.0}),
     .ending = ends(keyAllowed, messages::policyWriteFailed)},
    {.name = "AddressOfAnotherScheme",
     .identities = {ana({mail})},
     .address = "ftp://a.example/",
     .ending = ends(refreshed,
                    messages::told(messages::chromeLaunchFailed, messages::unsupportedScheme))}};

}  // namespace lumaret::tests::faults
