// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include "LumaretMacHelper/Fingerprint.hpp"
#include "Tests/OverStandIn/Adapters/OverStandIn.hpp"
#include "Tests/Support/Cpp/CertificateBytes.hpp"

namespace lumaret::tests {
namespace {

using testing::ElementsAre;

class CommonCryptoDigest : public OverStandIn {};

TEST_F(CommonCryptoDigest, CoversAllBytes) {
  EXPECT_EQ(fingerprint(bytes("abc")),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(fingerprint({}), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_THAT(standin::trace(), ElementsAre("CC_SHA256(3 bytes)", "CC_SHA256(0 bytes)"));
}

}  // namespace
}  // namespace lumaret::tests
