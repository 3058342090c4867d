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
using enum Checkpoint;
using enum Seen;

/// Ways to fail, each with a name for the reader of a failed test.
using Kinds = std::vector<std::pair<std::string, Answer>>;
/// What each of them comes to.
using Lines = std::vector<std::pair<Kinds, Consequence>>;
using Table = std::map<Phase, std::map<std::string, Lines>>;

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
/// A text in the function's own array.
const Kinds foreignElements = {
    {"a foreign first element", Answer::foreignElement(0)},
    {"a foreign last element", Answer::foreignElement(std::numeric_limits<std::size_t>::max())}};
const Kinds noBytes = object("no bytes", {Bytes()});
const Kinds otherBytes = object("other bytes", {Bytes{1}});
/// Those that no function answers with where any object may be.
const Kinds otherTypes = object("a text", text(u"text")) + object("a number", {7.0}) +
                         object("a boolean", {true}) + object("a date", {farAhead}) +
                         object("data", {Bytes{1}}) + object("a dictionary", {Dictionary()});
const Kinds noListsOfTexts =
    otherTypes + object("an array with a number", {List{text(u"no rule"), {7.0}}}) +
    object("an array in an array", {List{{List{text(u"no rule")}}}}) +
    object("an array with a text without a UTF-8 form", {List{text({0xd800})}});

/// A certificate's values, with this one in the place of its own, or with none there.
Kinds values(std::string name, const standin::Text& oid, std::optional<standin::Value> value = {}) {
  Dictionary values = certificateValues({attribute(u"2.5.4.3", u"someone")}, {farAhead});
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
    values("a text as expiry", notAfter, property(text(u""), text(u"2099-12-31"))) +
    values("an expiry in the past", notAfter, property(text(u""), {standin::Date{0}}));

// What they come to

Ending at(Checkpoint checkpoint, std::string message) {
  return {.checkpoint = checkpoint, .message = std::move(message)};
}
Consequence ends(Checkpoint checkpoint, std::string message) {
  return {.ending = at(checkpoint, std::move(message))};
}
Consequence launchFails(Checkpoint checkpoint, const std::string& why) {
  return ends(checkpoint, messages::told(messages::chromeLaunchFailed, why));
}
Consequence seen(Seen what, std::optional<Ending> ending = {}) {
  return {.seen = what, .ending = std::move(ending)};
}
Consequence seenOfOne(Seen what, std::optional<Ending> ending = {}) {
  return {.seen = what, .ending = std::move(ending), .ofSelectedAlone = true};
}

const Ending notFound = at(untouched, messages::selectedIdentityNotFound);
const Consequence leftOut = seenOfOne(identityLeftOut, notFound);
const Consequence unsupported = ends(untouched, messages::chromeKeyAuthorizationUnsupported);
const Consequence failed = ends(untouched, messages::keychainAuthorizationFailed);
const Consequence internal =
    ends(untouched, messages::told(messages::keychainAuthorizationFailed, -2070));
const Consequence notSaved = ends(keyAllowed, messages::policyWriteFailed);
const Consequence notVerified = ends(ruleStored, messages::policyVerificationFailed);
const Consequence harmless;
const Consequence partlyStored = {.ending = Ending{.checkpoint = untouched,
                                                   .message = messages::keychainAuthorizationFailed,
                                                   .storedEntries = 1}};

/// While Chrome is authorized.
const Lines ofAnyCall = {{cancelled, ends(untouched, messages::keychainAuthorizationCancelled)},
                         {unsupportedKey, unsupported},
                         {otherStatus, failed}};
/// Of the functions that read and change access lists.
const Lines ofAccessLists =
    ofAnyCall + Lines{{itemNotFound, failed}, {noKeychainItem, unsupported}};
const Lines ofOtherCalls = ofAnyCall + Lines{{itemNotFound + noKeychainItem, failed}};
const Lines noObject = {{failureWithObject, failed}, {nothing, internal}};

const Consequence notSynchronized = {.ending = Ending{.checkpoint = keyAllowed,
                                                      .message = messages::policyWriteFailed,
                                                      .isRulePending = true}};
const Consequence notStarted = launchFails(
    refreshed,
    "/Applications/Google Chrome.app/Contents/MacOS/Google Chrome: No such file or directory");
const Consequence noWindow = ends(windowOpened, notStarted.ending->message);

// A result with a type of its own, such as SecKeyRef, is never an object of another type: the
// framework's declaration rules that out. Only what may be any object, and an array's element, is.

const Table rows = {
    {Phase::loading,
     {{"SecItemCopyMatching",
       {{cancelled + noKeychainItem + unsupportedKey + otherStatus + failureWithObject,
         ends(untouched, messages::keychainFailure)},
        {itemNotFound + nothing + emptyArray, seen(noIdentities, notFound)},
        {object("other things", {List{text(u"text"), {7.0}}}), seen(noIdentities, notFound)},
        {firstElement, seen(firstIdentityAlone)},
        {foreignElements, harmless},
        {otherTypes, ends(untouched, messages::told(messages::keychainFailure, -2070))}}},
      {"SecIdentityCopyPrivateKey", {{anyFailure + nothing, leftOut}}},
      {"SecIdentityCopyCertificate", {{anyFailure + nothing, leftOut}}},
      {"SecCertificateCopyValues",
       {{noValues, leftOut},
        {values("no subject", subject) + values("a subject of another type", subject, {{7.0}}),
         seenOfOne(noSubject, at(keyAllowed, messages::certificateHasNoSubject))},
        {values("no issuer", issuer) + values("an issuer of another type", issuer, {{farAhead}}),
         seen(anotherName)}}},
      {"SecCertificateCopyData",
       {{nothing + noBytes, leftOut}, {otherBytes, seenOfOne(anotherCertificate, notFound)}}},
      {"CFLocaleCopyCurrent", {{nothing, harmless}}},
      {"CC_SHA256", {}},
      {"CFStringCompareWithOptionsAndLocale", {}},
      {"SecIdentityGetTypeID", {}}}},
    {Phase::authorizing,
     {{"SecItemCopyMatching", ofAnyCall + noObject +
                                  Lines{{noKeychainItem, failed},
                                        {itemNotFound + emptyArray, seen(noIdentities, notFound)},
                                        {firstElement, seen(firstMatchAlone)},
                                        {foreignElements + otherTypes, internal}}},
      {"SecIdentityCopyCertificate", ofOtherCalls + noObject},
      {"SecCertificateCopyData",
       {{nothing, internal}, {noBytes + otherBytes, seenOfOne(noMatch, notFound)}}},
      {"SecIdentityCopyPrivateKey",
       ofAnyCall + Lines{{noKeychainItem + failureWithObject, failed},
                         {itemNotFound + nothing,
                          ends(untouched, messages::selectedIdentityHasNoPrivateKey)}}},
      {"SecKeychainItemCopyKeychain",
       ofAnyCall + noObject +
           Lines{{status(-25304) + status(-25294) + status(-25243), unsupported},
                 {itemNotFound + status(-25306), failed}}},
      {"SecKeychainItemCopyAccess", ofAccessLists + noObject},
      {"SecAccessCopyACLList",
       ofAccessLists + noObject + Lines{{emptyArray, unsupported}, {foreignElements, internal}}},
      {"SecACLCopyAuthorizations",
       {{nothing, internal},
        {emptyArray + object("tags of another type", {List{{7.0}, {farAhead}}}) +
             object("unknown tags", {List{text(u"kSecACLAuthorizationSig"), text(u"")}}),
         seen(noSignature)},
        {foreignElements, harmless}}},
      {"SecACLCopyContents",
       ofAccessLists + Lines{{failureWithObject, failed},
                             {nothing, seen(anyApplication)},
                             {emptyArray, seen(noApplication)},
                             {{{"no description", Answer::withoutSecond()}}, internal},
                             {foreignElements, internal}}},
      {"SecTrustedApplicationCreateFromPath", ofOtherCalls + noObject},
      {"SecTrustedApplicationCopyData",
       ofOtherCalls + noObject + Lines{{noBytes + otherBytes, seen(unknownApplication)}}},
      {"SecACLSetContents", ofAccessLists},
      {"SecKeychainItemSetAccess",
       ofAccessLists +
           Lines{{{{"a failure after the first entry", Answer::status(-25293).afterEntries(1)}},
                  partlyStored}}},
      {"CC_SHA256", {}},
      {"CFEqual", {}},
      {"SecIdentityGetTypeID", {}},
      {"SecACLGetTypeID", {}},
      {"SecTrustedApplicationGetTypeID", {}}}},
    {Phase::readingRules,
     {{"CFPreferencesCopyValue",
       {{nothing + emptyArray, seen(noRules)}, {noListsOfTexts, notSaved}}}}},
    {Phase::writingRules,
     {{"CFPreferencesSetValue",
       {{{{"doing nothing", Answer::status(-1)}},
         seen(rulesAsBefore, at(keyAllowed, messages::policyVerificationFailed))}}},
      {"CFPreferencesSynchronize", {{status(-1), notSynchronized}}}}},
    {Phase::verifyingRules,
     {{"CFPreferencesCopyValue",
       {{nothing + emptyArray + object("another rule", {List{text(u"no rule")}}), notVerified},
        {foreignElements + noListsOfTexts, notVerified}}}}},
    {Phase::refreshing,
     {{"NSTask",
       {{nothing, notStarted},
        {status(1) + status(15) + status(255),
         launchFails(refreshed, messages::unsuccessfulExit)}}}}},
    {Phase::opening,
     {{"NSFileManager", {{status(-1), ends(ruleStored, messages::chromeNotInstalled)}}},
      {"NSRunningApplication", {}},
      {"NSTask", {{nothing, noWindow}, {status(1), harmless}}}}}};

/// A message that tells a status tells that of the fault.
Fault fault(const std::string& name, const Answer& answer, Consequence consequence) {
  if (auto& end = consequence.ending; end && end->message.find("<status>") != std::string::npos) {
    end->message = messages::told(end->message, answer.failure);
  }
  return {.name = name, .answer = answer, .consequence = std::move(consequence)};
}

}  // namespace

const std::map<Phase, std::map<std::string, Faults>>& table() {
  static const auto table = [] {
    std::map<Phase, std::map<std::string, Faults>> faults;
    for (const auto& [phase, functions] : rows) {
      for (const auto& [function, lines] : functions) {
        Faults& all = faults[phase][function];
        for (const auto& [kinds, consequence] : lines) {
          for (const auto& [name, answer] : kinds) {
            all.push_back(fault(name, answer, consequence));
          }
        }
      }
    }
    return faults;
  }();
  return table;
}

}  // namespace lumaret::tests::faults
