// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "Tests/OverStandIn/Adapters/BackendTest.hpp"

namespace lumaret::tests {
namespace {

using standin::Answer;

struct Expectation {
  std::string function;
  Answer answer;
  std::function<void()> operation;
  BackendError error;
};

void PrintTo(const Expectation& expectation, std::ostream* out) { *out << expectation.function; }

class Failing : public BackendTest, public testing::WithParamInterface<Expectation> {};

TEST_P(Failing, EndsTheOperationWithItsError) {
  machine().answer(GetParam().function, GetParam().answer);
  EXPECT_EQ(failure(GetParam().operation), GetParam().error);
}

std::vector<Expectation> expectations() {
  struct Operation {
    std::string function;
    std::function<void()> run;
    bool isLegacyAccess;
    bool returnsObject;
  };
  const std::vector<Operation> operations = {
      {"SecItemCopyMatching", [] { (void)backend.copyIdentities(); }, false, true},
      {"SecIdentityCopyCertificate", [] { (void)backend.certificateData(firstIdentity()); }, false,
       true},
      {"SecIdentityCopyPrivateKey", [] { (void)backend.copyPrivateKey(firstIdentity()); }, false,
       false},
      {"SecKeychainItemCopyAccess", [] { (void)firstAccess(); }, true, true},
      {"SecAccessCopyACLList", [] { (void)backend.copySigningACLs(firstAccess()); }, true, true},
      {"SecACLCopyContents", [] { (void)backend.copyContents(firstEntry()); }, true, false},
      {"SecACLSetContents",
       [] {
         backend.setContents({{}, "d", 0}, firstEntry());
       },
       true, false},
      {"SecKeychainItemSetAccess", [] { backend.setAccess(firstAccess(), firstKey()); }, true,
       false},
      {"SecTrustedApplicationCreateFromPath", [] { (void)backend.chromeTrustedApplication(); },
       false, true},
      {"SecTrustedApplicationCopyData",
       [] { (void)backend.identityData(backend.chromeTrustedApplication()); }, false, true},
  };
  std::vector<Expectation> all;
  for (const auto& [function, run, isLegacyAccess, returnsObject] : operations) {
    for (const std::int32_t status : {-25304, -25306}) {
      all.push_back({function, Answer::status(status), run,
                     isLegacyAccess ? BackendError::unsupported() : BackendError::status(status)});
    }
    for (const std::int32_t status : {-128, -25293, 1}) {
      all.push_back({function, Answer::status(status), run, BackendError::status(status)});
    }
    if (returnsObject) {
      all.push_back({function, Answer::nothing(), run, BackendError::status(-2070)});
    }
  }
  // No function returns these for an answer that has a status of its own.
  all.push_back({"SecCertificateCopyData", Answer::nothing(),
                 [] { (void)backend.certificateData(firstIdentity()); },
                 BackendError::status(-2070)});
  all.push_back({"SecACLCopyAuthorizations", Answer::nothing(),
                 [] { (void)backend.copySigningACLs(firstAccess()); },
                 BackendError::status(-2070)});
  // Objects of another type.
  for (const std::size_t index : {0U, 1U}) {
    all.push_back({"SecItemCopyMatching", Answer::foreignElement(index),
                   [] { (void)backend.copyIdentities(); }, BackendError::status(-2070)});
    all.push_back({"SecAccessCopyACLList", Answer::foreignElement(index),
                   [] { (void)backend.copySigningACLs(firstAccess()); },
                   BackendError::status(-2070)});
    all.push_back({"SecACLCopyContents", Answer::foreignElement(index),
                   [] { (void)backend.copyContents(firstEntry()); }, BackendError::status(-2070)});
  }
  all.push_back({"SecItemCopyMatching", Answer::object(text(u"identity")),
                 [] { (void)backend.copyIdentities(); }, BackendError::status(-2070)});
  return all;
}

INSTANTIATE_TEST_SUITE_P(A, Failing, testing::ValuesIn(expectations()), [](const auto& test) {
  const Answer& answer = test.param.answer;
  const std::string what =
      answer.kind == Answer::Kind::status
          ? (answer.failure < 0 ? "Minus" : "") + std::to_string(std::abs(answer.failure))
      : answer.kind == Answer::Kind::foreignElement
          ? "ForeignElement" + std::to_string(answer.elementIndex)
      : answer.value ? "ForeignObject"
                     : "Nothing";
  return test.param.function + what;
});

}  // namespace
}  // namespace lumaret::tests
