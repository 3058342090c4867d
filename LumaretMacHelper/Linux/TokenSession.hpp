// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pk11pub.h>
#include <pkcs11t.h>

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "LumaretMacHelper/Linux/CertificateDatabase.hpp"

struct CK_FUNCTION_LIST;

namespace lumaret {

/// A PKCS#11 session with one token, through the module that NSS has loaded. NSS's own object calls
/// ask for each attribute's length first, which doubles the time of a listing. Every operation
/// throws CertificateDatabaseError.
///
/// The module is foreign code. Every count and length that it returns is compared with the request
/// and with these limits before it is used, and is an error beyond them.
class TokenSession {
 public:
  static constexpr std::size_t mostObjects = 100'000;  // of one class on a token
  static constexpr std::size_t mostAttributeBytes = std::size_t{1} << 20;
  static constexpr std::size_t mostBytes = std::size_t{256} << 20;  // of a session's attributes

  /// The slot must outlive the session.
  explicit TokenSession(PK11SlotInfo* slot);
  TokenSession(const TokenSession&) = delete;
  TokenSession& operator=(const TokenSession&) = delete;
  ~TokenSession();

  /// The token's objects of a class that are visible without logging in, in the token's order.
  [[nodiscard]] std::vector<CK_OBJECT_HANDLE> objects(CK_OBJECT_CLASS objectClass);

  /// An attribute's bytes; empty if the object lacks it, does not show it, or no longer exists, or
  /// if they are more than `mostAttributeBytes`, so that one oversized object hides no other.
  [[nodiscard]] std::string attribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type);

 private:
  CK_FUNCTION_LIST* functions_;
  CK_SESSION_HANDLE session_ = CK_INVALID_HANDLE;
  using Buffer = std::array<char, mostAttributeBytes>;
  std::unique_ptr<Buffer> buffer_ = std::make_unique_for_overwrite<Buffer>();
  std::size_t bytes_ = 0;
};

}  // namespace lumaret
