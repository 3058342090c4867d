// SPDX-License-Identifier: Apache-2.0
#include "Tests/OverStandIn/AppleFrameworks/Objects.hpp"

#include <cstdio>
#include <cstdlib>

namespace standin {
namespace {

struct Describer {
  std::string operator()(const IdentityObject& object) const { return object.identity.name; }
  std::string operator()(const CertificateObject& object) const { return object.identity.name; }
  std::string operator()(const KeyObject& object) const { return object.name; }
  std::string operator()(const KeychainObject&) const { return "keychain"; }
  std::string operator()(const AccessObject& object) const { return object.name; }
  std::string operator()(const ACLObject& object) const {
    return "entry " + std::to_string(object.index);
  }
  std::string operator()(const ApplicationObject& object) const { return object.path; }
};

}  // namespace

void refuse(const char* function, const std::string& why) {
  std::fprintf(stderr, "%s was given %s.\n", function, why.c_str());
  std::abort();
}

std::string described(const SecurityObject& object) { return std::visit(Describer(), object); }

}  // namespace standin
