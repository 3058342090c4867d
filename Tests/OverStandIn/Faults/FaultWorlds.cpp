// SPDX-License-Identifier: Apache-2.0
#include "Tests/OverStandIn/Faults/Faults.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"
#include "Tests/Support/Cpp/Messages.hpp"

namespace lumaret::tests::faults {
namespace {

using nlohmann::json;
using standin::AccessList;
using standin::AccessListEntry;
using Applications = std::vector<std::string>;
using enum Checkpoint;
using enum Seen;

const std::string chrome = chromeApplication;

AccessListEntry signing(const Applications& applications) {
  return {{"kSecACLAuthorizationSign"}, applications, u"sign", 0x0001};
}
AccessListEntry anyUse(const std::optional<Applications>& applications) {
  return {
      {"kSecACLAuthorizationMAC", "kSecACLAuthorizationAny"}, applications, u"Cl\u00e9", 0x0050};
}

const AccessListEntry none = signing({});
const AccessListEntry chromeAlone = signing({chrome});
const AccessListEntry mail = signing({"/Mail"});
const AccessListEntry mailAndChrome = signing({"/Mail", chrome});
const AccessListEntry zoom = signing({"/Zoom"});
const AccessListEntry zoomAndChrome = signing({"/Zoom", chrome});
const AccessListEntry any = anyUse({{"/Zoom", "/Mail"}});
const AccessListEntry anyAndChrome = anyUse({{"/Zoom", "/Mail", chrome}});
const AccessListEntry anyChromeAlone = anyUse({{chrome}});
const AccessListEntry open = anyUse(std::nullopt);
const AccessListEntry decrypting = {{"kSecACLAuthorizationDecrypt"}, {{"/Mail"}}, u"decrypt", 0};

const std::string foreignRule =
    R"({"pattern": "https://a.example", "filter": {"SUBJECT": {"CN": "ana"}}})";
const std::string noRule = "no rule";
const std::string beasRule =
    R"({"filter":{"ISSUER":{"CN":"Example CA"},"SUBJECT":{"CN":"Bea"}},"pattern":"*"})";

json list(const std::vector<json>& values) { return values; }

const Ending listed = {.checkpoint = untouched};
const Ending success = {.checkpoint = windowOpened};
const Ending notFound = {.checkpoint = untouched, .message = messages::selectedIdentityNotFound};
const Ending ambiguous = {.checkpoint = untouched, .message = messages::selectedIdentityAmbiguous};
const Ending unsupported = {.checkpoint = untouched,
                            .message = messages::chromeKeyAuthorizationUnsupported};

// Of a world with one signing entry.
const Variation noEntry = {.seen = noSignature, .ending = unsupported};
const Variation noOther = {.seen = noApplication, .allowed = {{chromeAlone}}};

const Held ana = {.name = "ana", .accessList = {{mail}}, .allowed = {{mailAndChrome}}};
const Held unnamedAna = {.name = "ana",
                         .state = State::withoutSubject,
                         .accessList = {{mail}},
                         .allowed = {{mailAndChrome}}};

}  // namespace

const std::vector<World>& worlds() {
  static const std::vector<World> all = {
      {.name = "ListAnEmptyKeychain", .lists = true, .ending = listed},
      {.name = "ListSeveralIdentities",
       .lists = true,
       .held = {{.name = "zoe", .accessList = {{mail}}},
                {.name = "ana", .accessList = {{open}}},
                {.name = "old", .state = State::expired, .accessList = {{chromeAlone}}},
                {.name = "Bea", .accessList = {{decrypting}}},
                {.name = "card"},
                {.name = "keyless", .state = State::withoutKey},
                {.name = "nameless", .state = State::withoutSubject, .accessList = AccessList()},
                {.name = "Bea again", .certificate = "Bea", .accessList = {{none}}}},
       .rules = list({anasRule}),
       .ending = listed},
      {.name = "TwoSigningEntriesWithoutChrome",
       .held = {{.name = "ana",
                 .accessList = {{mail, decrypting, any}},
                 .allowed = {{mailAndChrome, decrypting, anyAndChrome}}}},
       .isChromeRunning = false,
       .storedRules = list({anasRule}),
       .variations =
           {{.seen = noSignature, .of = "entry 0", .allowed = {{mail, decrypting, anyAndChrome}}},
            {.seen = noSignature, .of = "entry 2", .allowed = {{mailAndChrome, decrypting, any}}},
            {.seen = noApplication,
             .of = "entry 0",
             .allowed = {{chromeAlone, decrypting, anyAndChrome}}},
            {.seen = noApplication,
             .of = "entry 2",
             .allowed = {{mailAndChrome, decrypting, anyChromeAlone}}}}},
      {.name = "ChromeListedInTheSecondEntry",
       .address = "https://a.example/",
       .held = {{.name = "ana", .accessList = {{mail, zoomAndChrome}}}},
       .rules = list({foreignRule, noRule}),
       .storedRules = list({foreignRule, noRule, anasRule}),
       .variations =
           {{.seen = noSignature, .of = "entry 1", .allowed = {{mailAndChrome, zoomAndChrome}}},
            {.seen = noApplication, .of = "entry 1", .allowed = {{mailAndChrome, chromeAlone}}},
            {.seen = unknownApplication,
             .of = chrome,
             .allowed = {{mailAndChrome, signing({"/Zoom", chrome, chrome})}}}}},
      {.name = "AnyApplicationInTheSecondEntry",
       .held = {{.name = "ana", .accessList = {{mail, open, zoom}}}},
       .rules = list({}),
       .storedRules = list({anasRule}),
       .variations = {{.seen = noSignature,
                       .of = "entry 1",
                       .allowed = {{mailAndChrome, open, zoomAndChrome}}},
                      {.seen = noApplication,
                       .of = "entry 1",
                       .allowed = {{mailAndChrome, anyChromeAlone, zoomAndChrome}}}}},
      {.name = "SeveralIdentities",
       .address = "HTTP://a.example",
       .held = {{.name = "zoe", .accessList = {{mail}}},
                {.name = "old", .state = State::expired, .accessList = {{mail}}},
                {.name = "ana", .accessList = {{none}}, .allowed = {{chromeAlone}}},
                {.name = "keyless", .state = State::withoutKey},
                {.name = "nameless", .state = State::withoutSubject, .accessList = AccessList()}},
       .isChromeRunning = false,
       .rules = list({beasRule}),
       .storedRules = list({anasRule}),
       .variations = {noEntry,
                      {.seen = firstIdentityAlone, .ending = notFound},
                      {.seen = firstMatchAlone, .ending = notFound}}},
      {.name = "ForeignRules",
       .held = {{.name = "ana", .accessList = {{any}}, .allowed = {{anyAndChrome}}},
                {.name = "Bea", .accessList = {{none}}}},
       .rules = list({foreignRule, beasRule, noRule, anasRule, foreignRule}),
       .storedRules = list({foreignRule, anasRule, noRule, foreignRule}),
       .variations = {noEntry, {.seen = noApplication, .allowed = {{anyChromeAlone}}}}},
      {.name = "ActivatedBefore",
       .held = {{.name = "ana", .accessList = {{chromeAlone, mail}}}},
       .rules = list({noRule, anasRule}),
       .storedRules = list({noRule, anasRule}),
       .variations =
           {{.seen = noSignature, .of = "entry 0", .allowed = {{chromeAlone, mailAndChrome}}},
            {.seen = noApplication, .of = "entry 0", .allowed = {{chromeAlone, mailAndChrome}}},
            {.seen = unknownApplication,
             .of = chrome,
             .allowed = {{signing({chrome, chrome}), mailAndChrome}}},
            {.seen = rulesAsBefore}}},
      {.name = "NoSuchIdentity",
       .held = {{.name = "Bea", .accessList = {{mail}}}},
       .rules = list({noRule}),
       .ending = notFound},
      {.name = "TwiceInTheKeychain",
       .held = {{.name = "one",
                 .certificate = "ana",
                 .accessList = {{mail}},
                 .allowed = {{mailAndChrome}}},
                {.name = "other", .certificate = "ana", .accessList = {{decrypting}}}},
       .rules = list({noRule}),
       .storedRules = list({noRule, anasRule}),
       .ending = ambiguous,
       .variations = {{.seen = firstMatchAlone, .ending = success},
                      {.seen = noMatch, .of = "one", .ending = unsupported},
                      {.seen = noMatch, .of = "other", .ending = success}}},
      {.name = "KeyOfAToken",
       .held = {{.name = "ana"}},
       .rules = list({noRule}),
       .ending = unsupported,
       .variations = {{.seen = noSubject}}},
      {.name = "NoSigningEntry",
       .held = {{.name = "ana", .accessList = {{decrypting}}}},
       .isChromeRunning = false,
       .ending = unsupported,
       .variations = {{.seen = noSubject}}},
      {.name = "NoSubject",
       .held = {unnamedAna},
       .rules = list({noRule}),
       .storedRules = list({noRule, anasRule}),
       .ending = {.checkpoint = keyAllowed, .message = messages::certificateHasNoSubject},
       .variations = {noEntry, noOther, {.seen = anotherName, .ending = success}}},
      {.name = "RulesOfAnotherType",
       .held = {ana},
       .rules = list({noRule, 7.0}),
       .ending = {.checkpoint = keyAllowed, .message = messages::policyWriteFailed},
       .variations = {noEntry, noOther, {.seen = noRules, .ending = success}}},
      {.name = "AddressOfAnotherScheme",
       .address = "ftp://a.example/",
       .held = {ana},
       .storedRules = list({anasRule}),
       .ending = {.checkpoint = refreshed,
                  .message = messages::told(messages::chromeLaunchFailed,
                                            messages::unsupportedScheme)},
       .variations = {noEntry, noOther}},
  };
  return all;
}

}  // namespace lumaret::tests::faults
