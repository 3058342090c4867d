// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>

#include "Tests/Support/Cpp/CertificateBytes.hpp"

namespace lumaret::tests {
namespace {

// Examples of FIPS 180-4 and its predecessors.
TEST(SHA256, CoversTwoBlocks) {
  EXPECT_EQ(idOf("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

TEST(SHA256, CoversAMillionBytes) {
  EXPECT_EQ(idOf(std::string(1'000'000, 'a')),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

}  // namespace
}  // namespace lumaret::tests
