// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pk11pub.h>
#include <pkcs11t.h>

#include <string>
#include <vector>

#include "LumaretMacHelper/Linux/CertificateDatabase.hpp"

struct CK_FUNCTION_LIST;

namespace lumaret {

/// A session of PKCS#11 on one token, through the module that NSS has loaded. NSS's own object
/// calls ask for each attribute twice, for its length and then for its bytes, which doubles the
/// time of a listing. Every operation throws CertificateDatabaseError.
class TokenSession {
 public:
  /// The slot must outlive the session.
  explicit TokenSession(PK11SlotInfo* slot);
  TokenSession(const TokenSession&) = delete;
  TokenSession& operator=(const TokenSession&) = delete;
  ~TokenSession();

  /// The token's objects of a class that are visible without logging in, in its own order.
  [[nodiscard]] std::vector<CK_OBJECT_HANDLE> objects(CK_OBJECT_CLASS objectClass) const;

  /// An attribute's bytes; empty when the object has none, or is gone.
  [[nodiscard]] std::string attribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const;

 private:
  CK_FUNCTION_LIST* functions_;
  CK_SESSION_HANDLE session_ = CK_INVALID_HANDLE;
};

}  // namespace lumaret
