// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "Tests/OverStandIn/AppleFrameworks/StandIn.hpp"

namespace lumaret::tests {

using standin::calls;
using standin::json;
using standin::machine;

/// A new Mac for a test. The test fails if it does not release every object.
class FreshMac {
 public:
  FreshMac() { standin::startOver(); }
  FreshMac(const FreshMac&) = delete;
  FreshMac& operator=(const FreshMac&) = delete;
  ~FreshMac() { EXPECT_EQ(standin::liveObjects(), 0U); }

  /// From now on, only this answer is given in place of the Mac's own.
  static void answer(const std::string& function, json answer) {
    machine()["answers"] = {{function, json::array({std::move(answer)})}};
  }
};

class OverStandIn : public testing::Test, protected FreshMac {};

inline constexpr const char* chromeApplication = "/Applications/Google Chrome.app";

/// 2099-12-31 23:59:59 UTC, in seconds since 2001, as the Security framework returns a validity.
inline constexpr double farAhead = 3124137599;

/// A property of a certificate: an attribute of a name, or a section.
inline json property(json label, json value) {
  return {{"kSecPropertyKeyLabel", std::move(label)}, {"kSecPropertyKeyValue", std::move(value)}};
}

inline json certificateValues(json subject, json notAfter = farAhead) {
  return {{"kSecOIDX509V1SubjectName", property("Subject Name", std::move(subject))},
          {"kSecOIDX509V1IssuerName",
           property("Issuer Name", json::array({property("2.5.4.3", "Example CA")}))},
          {"kSecOIDX509V1ValidityNotAfter", property("Not Valid After", std::move(notAfter))}};
}

/// An entry of an access list for these applications, which is null for any.
inline json entry(const std::string& tag, json applications, std::string description = "key",
                  int promptSelector = 0) {
  return {{"authorizations", json::array({tag})},
          {"applications", std::move(applications)},
          {"description", std::move(description)},
          {"promptSelector", promptSelector}};
}

inline json signingEntry(const std::vector<std::string>& applications) {
  return entry("kSecACLAuthorizationSign", applications);
}

inline const json openEntry = entry("kSecACLAuthorizationAny", nullptr);

/// The bytes of its certificate are its name.
inline json identity(const std::string& name, json accessList = json::array({signingEntry({})})) {
  return {{"certificate", name},
          {"values", certificateValues(json::array({property("2.5.4.3", name)}))},
          {"accessList", std::move(accessList)}};
}

}  // namespace lumaret::tests
