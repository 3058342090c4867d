// SPDX-License-Identifier: Apache-2.0
#include "Tests/OverStandIn/Faults/FaultTable.hpp"

#include <utility>

#include "Tests/OverStandIn/Faults/FaultKinds.hpp"
#include "Tests/OverStandIn/Faults/FaultMessages.hpp"
#include "Tests/OverStandIn/SampleIdentities.hpp"

namespace lumaret::tests::faults {
namespace {

using standin::Bytes;
using standin::Dictionary;
using standin::List;

Dictionary valuesWith(const standin::Text& oid, standin::Value value) {
  Dictionary values = certificateValues({attribute(u"2.5.4.3", u"someone")}, {farAhead});
  values.insert_or_assign(oid, std::move(value));
  return values;
}

Dictionary valuesWithout(const standin::Text& oid) {
  Dictionary values = certificateValues({attribute(u"2.5.4.3", u"someone")}, {farAhead});
  values.erase(oid);
  return values;
}

const standin::Text subject = u"kSecOIDX509V1SubjectName";
const standin::Text issuer = u"kSecOIDX509V1IssuerName";
const standin::Text notAfter = u"kSecOIDX509V1ValidityNotAfter";

// A result with a type of its own, such as SecKeyRef, is never an object of another type: the
// framework's declaration rules that out. Only what may be any object, and an array's element, is.

std::vector<Row> loadingRows() {
  constexpr Phase phase = Phase::loading;
  return {
      {phase, "SecItemCopyMatching",
       statuses(&StatusRow::ofQuery) +
           Faults{failureWithObject(unreadable), nothing(Effect::noIdentities),
                  emptyArray(Effect::noIdentities),
                  object("an array of other things", {List{text(u"text"), {7.0}}},
                         Effect::noIdentities),
                  firstElement(Effect::onlyFirstIdentity)} +
           foreignElements(Effect::none) + otherTypes(told(unreadable, -2070))},
      {phase, "SecIdentityCopyPrivateKey",
       anyStatus(Effect::leftOut) +
           Faults{failureWithObject(Effect::leftOut), nothing(Effect::leftOut)}},
      {phase, "SecIdentityCopyCertificate",
       anyStatus(Effect::leftOut) +
           Faults{failureWithObject(Effect::leftOut), nothing(Effect::leftOut)}},
      {phase,
       "SecCertificateCopyValues",
       {nothing(Effect::leftOut), object("no value", {Dictionary()}, Effect::leftOut),
        object("no expiry", {valuesWithout(notAfter)}, Effect::leftOut),
        object("an expiry of another type", {valuesWith(notAfter, {farAhead})}, Effect::leftOut),
        object("an expiry that is a text",
               {valuesWith(notAfter, property(text(u""), text(u"2099-12-31")))}, Effect::leftOut),
        object("an expiry in the past",
               {valuesWith(notAfter, property(text(u""), {standin::Date{0}}))}, Effect::leftOut),
        object("no subject", {valuesWithout(subject)}, Effect::noSubject),
        object("a subject of another type", {valuesWith(subject, {7.0})}, Effect::noSubject),
        object("no issuer", {valuesWithout(issuer)}, Effect::anotherName),
        object("an issuer of another type", {valuesWith(issuer, {farAhead})},
               Effect::anotherName)}},
      {phase,
       "SecCertificateCopyData",
       {nothing(Effect::leftOut), object("no bytes", {Bytes()}, Effect::leftOut),
        object("other bytes", {Bytes{1}}, Effect::anotherCertificate)}},
      {phase, "CFLocaleCopyCurrent", {nothing(Effect::none)}},
      {phase, "CC_SHA256", {}},
      {phase, "CFStringCompareWithOptionsAndLocale", {}},
      {phase, "SecIdentityGetTypeID", {}},
  };
}

std::vector<Row> authorizingRows() {
  constexpr Phase phase = Phase::authorizing;
  const Consequence internal = told(notAuthorized, -2070);
  return {
      {phase, "SecItemCopyMatching",
       statuses(&StatusRow::ofOther, {{-25300, Effect::noIdentities}}) +
           Faults{failureWithObject(notAuthorized), nothing(internal),
                  emptyArray(Effect::noIdentities), firstElement(Effect::onlyFirstIdentity)} +
           foreignElements(internal) + otherTypes(internal)},
      {phase, "SecIdentityCopyCertificate",
       statuses(&StatusRow::ofOther) + Faults{failureWithObject(notAuthorized), nothing(internal)}},
      {phase,
       "SecCertificateCopyData",
       {nothing(internal), object("no bytes", {Bytes()}, Effect::anotherCertificate),
        object("other bytes", {Bytes{1}}, Effect::anotherCertificate)}},
      {phase, "SecIdentityCopyPrivateKey",
       statuses(&StatusRow::ofOther, {{-25300, noPrivateKey}}) +
           Faults{failureWithObject(notAuthorized), nothing(noPrivateKey)}},
      {phase, "SecKeychainItemCopyAccess",
       statuses(&StatusRow::ofAccessList) +
           Faults{failureWithObject(notAuthorized), nothing(internal)}},
      {phase, "SecAccessCopyACLList",
       statuses(&StatusRow::ofAccessList) +
           Faults{failureWithObject(notAuthorized), nothing(internal),
                  emptyArray(Effect::noSigningEntries)} +
           foreignElements(internal)},
      {phase, "SecACLCopyAuthorizations",
       Faults{nothing(internal), emptyArray(Effect::notSigning),
              object("tags of another type", {List{{7.0}, {farAhead}}}, Effect::notSigning),
              object("unknown tags", {List{text(u"kSecACLAuthorizationSig"), text(u"")}},
                     Effect::notSigning)} +
           foreignElements(Effect::none)},
      {phase, "SecACLCopyContents",
       statuses(&StatusRow::ofAccessList) +
           Faults{failureWithObject(notAuthorized),
                  nothing(Effect::openToAnyApplication),
                  emptyArray(Effect::trustsNoApplication),
                  {"no description", standin::Answer::withoutSecond(), internal}} +
           foreignElements(internal)},
      {phase, "SecTrustedApplicationCreateFromPath",
       statuses(&StatusRow::ofOther) + Faults{failureWithObject(notAuthorized), nothing(internal)}},
      {phase, "SecTrustedApplicationCopyData",
       statuses(&StatusRow::ofOther) +
           Faults{failureWithObject(notAuthorized), nothing(internal),
                  object("no bytes", {Bytes()}, Effect::unknownApplication),
                  object("other bytes", {Bytes{1}}, Effect::unknownApplication)}},
      {phase, "SecACLSetContents", statuses(&StatusRow::ofAccessList)},
      {phase, "SecKeychainItemSetAccess", statuses(&StatusRow::ofAccessList)},
      {phase, "CC_SHA256", {}},
      {phase, "CFEqual", {}},
      {phase, "SecIdentityGetTypeID", {}},
      {phase, "SecACLGetTypeID", {}},
      {phase, "SecTrustedApplicationGetTypeID", {}},
  };
}

std::vector<Row> otherRows() {
  return {
      {Phase::readingRules, "CFPreferencesCopyValue",
       Faults{nothing(Effect::noRules), emptyArray(Effect::noRules)} + noListsOfTexts(notSaved)},
      {Phase::writingRules,
       "CFPreferencesSetValue",
       {{"doing nothing", standin::Answer::status(-1), Effect::rulesNotTaken}}},
      {Phase::writingRules, "CFPreferencesSynchronize", {status(-1, notSaved)}},
      {Phase::verifyingRules, "CFPreferencesCopyValue",
       Faults{nothing(notVerified), emptyArray(notVerified),
              object("another rule", {List{text(u"no rule")}}, notVerified)} +
           foreignElements(notVerified) + noListsOfTexts(notVerified)},
      {Phase::opening, "CFURLCreateWithBytes", {nothing(Effect::noAddress)}},
      {Phase::opening,
       "CFURLCopyScheme",
       {nothing(Effect::noWebAddress), object("another scheme", text(u"ftp"), Effect::noWebAddress),
        object("a text without a UTF-8 form", text({0xd800}), Effect::noWebAddress)}},
      {Phase::opening, "NSFileManager", {status(-1, notInstalled)}},
      {Phase::opening, "NSRunningApplication", {}},
      {Phase::refreshing,
       "NSTask",
       {nothing(notStarted), status(1, exited), status(15, exited), status(255, exited)}},
      {Phase::opening, "NSTask", {nothing(notStarted), status(1, Effect::none)}},
  };
}

}  // namespace

const std::vector<Row>& table() {
  static const std::vector<Row> rows = [] {
    std::vector<Row> all = loadingRows();
    for (const auto& more : {authorizingRows(), otherRows()}) {
      all.insert(all.end(), more.begin(), more.end());
    }
    return all;
  }();
  return rows;
}

}  // namespace lumaret::tests::faults
