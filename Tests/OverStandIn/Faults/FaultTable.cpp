// SPDX-License-Identifier: Apache-2.0
#include <limits>
#include <utility>

#include "Tests/OverStandIn/Faults/Faults.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"
#include "Tests/Support/Cpp/Messages.hpp"

namespace lumaret::tests::faults {
namespace {

using standin::Answer;
using standin::Bytes;
using standin::Dictionary;
using standin::List;
using standin::Machine;
using enum Checkpoint;

using Rows = std::vector<Row>;

template <typename Element>
std::vector<Element> operator+(std::vector<Element> left, const std::vector<Element>& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

// Kinds of faults

Kinds status(std::int32_t status) {
  return {{"status " + std::to_string(status), Answer::status(status)}};
}

const Kinds cancelled = status(-128);
const Kinds itemNotFound = status(-25300);
const Kinds noKeychainItem = status(-25304) + status(-25306);
const Kinds unsupportedKey =
    status(-4) + status(-25256) + status(-67734) + status(-67737) + status(-67739);
const Kinds otherStatus =
    status(-2070) + status(-67735) + status(-67738) + status(-25293) + status(1);
const Kinds failureWithObject = {{"a failure with an object", Answer::statusAndObject(-25293)}};
const Kinds anyFailure =
    cancelled + itemNotFound + noKeychainItem + unsupportedKey + otherStatus + failureWithObject;

/// Success with this object.
Kinds object(std::string name, standin::Value value) {
  return {{std::move(name), Answer::object(std::move(value))}};
}

const Kinds nothing = {{"nothing", Answer::nothing()}};
const Kinds emptyArray = object("an empty array", {List()});
const Kinds firstElement = {{"its first element alone", Answer::firstElement()}};
/// The function's own array, with a string in it.
const Kinds foreignElements = {
    {"a foreign first element", Answer::foreignElement(0)},
    {"a foreign last element", Answer::foreignElement(std::numeric_limits<std::size_t>::max())}};
const Kinds noBytes = object("no bytes", {Bytes()});
const Kinds otherBytes = object("other bytes", {Bytes{1}});
/// Types that are wrong for every function that may return any object.
const Kinds otherTypes = object("a string", text(u"text")) + object("a number", {7.0}) +
                         object("a boolean", {true}) + object("a date", {farAhead}) +
                         object("data", {Bytes{1}}) + object("a dictionary", {Dictionary()});
const Kinds notListsOfStrings =
    otherTypes + object("an array with a number", {List{text(u"no rule"), {7.0}}}) +
    object("an array in an array", {List{{List{text(u"no rule")}}}}) +
    object("an array with a string without a UTF-8 form", {List{text({0xd800})}});

const standin::Value someone = attribute(u"2.5.4.3", u"someone");

/// The values of a certificate, with this value in place of its own, or without it.
Kinds values(std::string name, const standin::Text& oid, std::optional<standin::Value> value = {}) {
  Dictionary values = certificateValues({someone}, {farAhead});
  values.erase(oid);
  if (value) {
    values.emplace(oid, *std::move(value));
  }
  return object(std::move(name), {std::move(values)});
}

const standin::Text subject = u"kSecOIDX509V1SubjectName";
const standin::Text issuer = u"kSecOIDX509V1IssuerName";
const standin::Text notAfter = u"kSecOIDX509V1ValidityNotAfter";

const Kinds noValues =
    nothing + object("no value", {Dictionary()}) + values("no expiry", notAfter) +
    values("an expiry of another type", notAfter, {{farAhead}}) +
    values("a string as expiry", notAfter, property(text(u""), text(u"2099-12-31"))) +
    values("an expiry in the past", notAfter, property(text(u""), {standin::Date{0}}));

// The ends of runs

const Ending unsupported = ends(untouched, messages::chromeKeyAuthorizationUnsupported);
const Ending failed = ends(untouched, messages::keychainAuthorizationFailed);
const Ending internal =
    ends(untouched, messages::told(messages::keychainAuthorizationFailed, -2070));
const Ending partlyStored = {.checkpoint = untouched,
                             .message = messages::keychainAuthorizationFailed,
                             .isFirstEntryStored = true};
const Ending notSaved = ends(keyAllowed, messages::policyWriteFailed);
const Ending notSynchronized = {
    .checkpoint = keyAllowed, .message = messages::policyWriteFailed, .isRulePending = true};
const Ending notVerified = ends(ruleStored, messages::policyVerificationFailed);
const std::string notStarted = messages::told(
    messages::chromeLaunchFailed,
    "/Applications/Google Chrome.app/Contents/MacOS/Google Chrome: No such file or directory");
const std::string notRefreshed =
    messages::told(messages::chromeLaunchFailed, messages::unsuccessfulExit);

/// Failures while Chrome is authorized.
const Rows ofAnyCall = {{cancelled, ends(untouched, messages::keychainAuthorizationCancelled)},
                        {unsupportedKey, unsupported},
                        {otherStatus, failed}};
/// Failures of the functions that read and change access lists.
const Rows ofAccessLists = ofAnyCall + Rows{{itemNotFound, failed}, {noKeychainItem, unsupported}};
const Rows ofOtherCalls = ofAnyCall + Rows{{itemNotFound + noKeychainItem, failed}};
const Rows noObject = {{failureWithObject, failed}, {nothing, internal}};

// Faults that make the Mac look different

void harmless(Machine& /*mac*/, const std::string& /*argument*/) {}
void noRules(Machine& mac, const std::string& /*argument*/) { mac.preferences.clear(); }
void noIdentities(Machine& mac, const std::string& /*argument*/) { mac.identities.clear(); }
void firstMatchAlone(Machine& mac, const std::string& /*argument*/) { mac.identities.resize(1); }

/// The identity is not listed. The authorization finds it, because it does not ask for a key at
/// first.
void leftOut(Machine& mac, const std::string& name) { named(mac, name).privateKey = nullptr; }
void othersLeftOut(Machine& mac, const std::string& /*argument*/) {
  for (std::size_t index = 1; index < mac.identities.size(); ++index) {
    mac.identities[index].privateKey = nullptr;
  }
}
void noMatch(Machine& mac, const std::string& name) { named(mac, name).certificate = {1}; }
void listedWithOtherBytes(Machine& mac, const std::string& name) {
  mac.identities.push_back(named(mac, name));
  leftOut(mac, name);
  mac.identities.back().name = "with other bytes";
  mac.identities.back().certificate = {1};
}
void noSubject(Machine& mac, const std::string& name) {
  named(mac, name).certificateValues = certificateValues({}, {farAhead.seconds});
}
void anotherName(Machine& mac, const std::string& name) {
  standin::Dictionary values = certificateValues({someone}, {farAhead.seconds});
  values[issuer] = section(u"Issuer Name", {});
  named(mac, name).certificateValues = std::move(values);
}

/// The names are those of a trace, beginning with "entry 0".
standin::AccessListEntry& entry(Machine& mac, const std::string& name) {
  return named(mac, "ana").privateKey->accessList->at(std::stoul(name.substr(name.find(' '))));
}
void noSignature(Machine& mac, const std::string& name) { entry(mac, name).authorizations = {}; }
void anyApplication(Machine& mac, const std::string& name) { entry(mac, name).applications = {}; }
void noApplication(Machine& mac, const std::string& name) {
  entry(mac, name).applications.emplace();
}
/// Only the comparison with Chrome has an effect. Chrome is listed at most once.
void unknownApplication(Machine& mac, const std::string& path) {
  if (path == chromeApplication) {
    mac.answer("SecTrustedApplicationCopyData", Answer::object({Bytes{2}}).onCall(1));
  }
}

}  // namespace

// A result with a specific type, such as SecKeyRef, never is an object of another type. The
// declarations of the framework exclude it. Only a result that may be any object, or an element of
// an array, can have the wrong type.
const std::map<Phase, std::map<std::string, Rows>> table = {
    {Phase::loading,
     {{"SecItemCopyMatching",
       {{cancelled + noKeychainItem + unsupportedKey + otherStatus + failureWithObject,
         ends(untouched, messages::keychainFailure)},
        {itemNotFound + nothing + emptyArray, noIdentities},
        {object("other things", {List{text(u"text"), {7.0}}}), noIdentities},
        {firstElement, othersLeftOut},
        {foreignElements, harmless},
        {otherTypes, ends(untouched, messages::told(messages::keychainFailure, -2070))}}},
      {"SecIdentityCopyPrivateKey", {{anyFailure + nothing, leftOut}}},
      {"SecIdentityCopyCertificate", {{anyFailure + nothing, leftOut}}},
      {"SecCertificateCopyValues",
       {{noValues, leftOut},
        {values("no subject", subject) + values("a subject of another type", subject, {{7.0}}),
         noSubject},
        {values("no issuer", issuer) + values("an issuer of another type", issuer, {{farAhead}}),
         anotherName}}},
      {"SecCertificateCopyData",
       {{nothing + noBytes, leftOut}, {otherBytes, listedWithOtherBytes}}},
      {"CFLocaleCopyCurrent", {{nothing, harmless}}},
      {"CC_SHA256", {}},
      {"CFStringCompareWithOptionsAndLocale", {}},
      {"SecIdentityGetTypeID", {}}}},
    {Phase::authorizing,
     {{"SecItemCopyMatching", ofAnyCall + noObject +
                                  Rows{{noKeychainItem, failed},
                                       {itemNotFound + emptyArray, noIdentities},
                                       {firstElement, firstMatchAlone},
                                       {foreignElements + otherTypes, internal}}},
      {"SecIdentityCopyCertificate", ofOtherCalls + noObject},
      {"SecCertificateCopyData", {{nothing, internal}, {noBytes + otherBytes, noMatch}}},
      {"SecIdentityCopyPrivateKey",
       ofAnyCall + Rows{{noKeychainItem + failureWithObject, failed},
                        {itemNotFound + nothing,
                         ends(untouched, messages::selectedIdentityHasNoPrivateKey)}}},
      {"SecKeychainItemCopyKeychain",
       ofAnyCall + noObject +
           Rows{{status(-25304) + status(-25294) + status(-25243), unsupported},
                {itemNotFound + status(-25306), failed}}},
      {"SecKeychainItemCopyAccess", ofAccessLists + noObject},
      {"SecAccessCopyACLList",
       ofAccessLists + noObject + Rows{{emptyArray, unsupported}, {foreignElements, internal}}},
      {"SecACLCopyAuthorizations",
       {{nothing, internal},
        {emptyArray + object("tags of another type", {List{{7.0}, {farAhead}}}) +
             object("unknown tags", {List{text(u"kSecACLAuthorizationSig"), text(u"")}}),
         noSignature},
        {foreignElements, harmless}}},
      {"SecACLCopyContents",
       ofAccessLists + Rows{{failureWithObject, failed},
                            {nothing, anyApplication},
                            {emptyArray, noApplication},
                            {{{"no description", Answer::withoutSecond()}}, internal},
                            {foreignElements, internal}}},
      {"SecTrustedApplicationCreateFromPath", ofOtherCalls + noObject},
      {"SecTrustedApplicationCopyData",
       ofOtherCalls + noObject + Rows{{noBytes + otherBytes, unknownApplication}}},
      {"SecACLSetContents", ofAccessLists},
      {"SecKeychainItemSetAccess", ofAccessLists + Rows{{{{"a failure after the first entry",
                                                           Answer::status(-25293).afterEntries(1)}},
                                                         partlyStored}}},
      {"CC_SHA256", {}},
      {"CFEqual", {}},
      {"SecIdentityGetTypeID", {}},
      {"SecACLGetTypeID", {}},
      {"SecTrustedApplicationGetTypeID", {}}}},
    {Phase::storing,
     {{"CFPreferencesCopyValue", {{nothing + emptyArray, noRules}, {notListsOfStrings, notSaved}}},
      {"CFPreferencesSetValue",
       {{{{"doing nothing", Answer::status(-1)}},
         ends(keyAllowed, messages::policyVerificationFailed)}}},
      {"CFPreferencesSynchronize", {{status(-1), notSynchronized}}}}},
    {Phase::verifying,
     {{"CFPreferencesCopyValue",
       {{nothing + emptyArray + object("another rule", {List{text(u"no rule")}}), notVerified},
        {foreignElements + notListsOfStrings, notVerified}}}}},
    {Phase::launching,
     {{"NSFileManager", {{status(-1), ends(ruleStored, messages::chromeNotInstalled)}}},
      {"NSRunningApplication", {}},
      {"NSTask.waitUntilExit",
       {{nothing, ends(refreshed, notStarted)},
        {status(1) + status(15) + status(255), ends(refreshed, notRefreshed)}}},
      {"NSTask", {{nothing, ends(windowOpened, notStarted)}, {status(1), harmless}}}}}};

}  // namespace lumaret::tests::faults
