// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"

namespace lumaret::tests {

inline constexpr const char* chromeApplication = "/Applications/Google Chrome.app";

/// 2099-12-31 23:59:59 UTC, as a date. The Security framework returns a validity as the number.
inline constexpr standin::Date farAhead = {3124137599};

inline standin::Value text(standin::Text value) { return {std::move(value)}; }

/// A property of a certificate: an attribute of a name, or a section.
inline standin::Value property(standin::Value label, standin::Value value) {
  return {standin::Dictionary{{u"kSecPropertyKeyLabel", std::move(label)},
                              {u"kSecPropertyKeyValue", std::move(value)}}};
}

inline standin::Value attribute(standin::Text identifier, standin::Text value) {
  return property(text(std::move(identifier)), text(std::move(value)));
}

inline standin::Value section(standin::Text label, standin::List attributes) {
  return property(text(std::move(label)), {std::move(attributes)});
}

/// A part of a name that holds several attributes: a section without a label.
inline standin::Value multiValuedPart(standin::List attributes) {
  return {standin::Dictionary{{u"kSecPropertyKeyValue", {std::move(attributes)}}}};
}

inline standin::Dictionary certificateValues(standin::List subject, standin::Value notAfter) {
  return {
      {u"kSecOIDX509V1SubjectName", section(u"Subject Name", std::move(subject))},
      {u"kSecOIDX509V1IssuerName", section(u"Issuer Name", {attribute(u"2.5.4.3", u"Example CA")})},
      {u"kSecOIDX509V1ValidityNotAfter", property(text(u"Not Valid After"), std::move(notAfter))}};
}

/// An entry of an access list that lets these applications sign.
inline standin::AccessListEntry signingEntry(std::vector<std::string> applications) {
  return {{"kSecACLAuthorizationSign"}, std::move(applications), u"Ana's key", 0};
}

/// The bytes of its certificate are its name.
inline standin::Identity identity(const std::string& name,
                                  standin::AccessList accessList = {signingEntry({})}) {
  return {
      name,
      {name.begin(), name.end()},
      certificateValues({attribute(u"2.5.4.3", {name.begin(), name.end()})}, {farAhead.seconds}),
      std::make_shared<standin::PrivateKey>(standin::PrivateKey{std::move(accessList)})};
}

}  // namespace lumaret::tests
