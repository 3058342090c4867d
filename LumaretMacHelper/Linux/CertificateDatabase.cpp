// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/CertificateDatabase.hpp"

#include <nss.h>
#include <pk11pub.h>
#include <prerror.h>
#include <secerr.h>
#include <secmod.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "LumaretMacHelper/Linux/DatabaseFolder.hpp"
#include "LumaretMacHelper/Linux/TokenModules.hpp"
#include "LumaretMacHelper/Linux/TokenSession.hpp"
#include "LumaretMacHelper/POSIX/ScopeExit.hpp"

namespace lumaret {
namespace {

using SlotList =
    std::unique_ptr<PK11SlotList, decltype([](auto* slots) { PK11_FreeSlotList(slots); })>;

/// Gives no password, whatever NSS asks for.
char* noPassword(PK11SlotInfo* /*slot*/, PRBool /*retry*/, void* /*context*/) { return nullptr; }

/// Initializes NSS with this database, opened for reading. NSS_INIT_NOROOTINIT leaves out the
/// module of the built-in root certificates, which contains no keys.
void openDatabase(const std::filesystem::path& folder) {
  PK11_SetPasswordFunc(noPassword);
  if (NSS_Initialize(("sql:" + folder.string()).c_str(), "", "", SECMOD_DB,
                     NSS_INIT_READONLY | NSS_INIT_NOMODDB | NSS_INIT_NOROOTINIT |
                         NSS_INIT_OPTIMIZESPACE) != SECSuccess) {
    throw CertificateDatabaseError(PR_GetError());
  }
}

/// The identifiers that tie a token's certificates to its private keys. A token may hide its
/// private keys until someone logs in. A public key then shows that its private key is there.
std::set<std::string> privateKeyIdentifiers(PK11SlotInfo* slot, TokenSession& token) {
  std::set<std::string> ids;
  const auto collect = [&](CK_OBJECT_CLASS keyClass) {
    for (const CK_OBJECT_HANDLE key : token.objects(keyClass)) {
      ids.insert(token.attribute(key, CKA_ID));
    }
  };
  collect(CKO_PRIVATE_KEY);
  if (PK11_NeedLogin(slot) != PR_FALSE && PK11_IsLoggedIn(slot, nullptr) == PR_FALSE) {
    collect(CKO_PUBLIC_KEY);
  }
  ids.erase("");
  return ids;
}

std::vector<StoredIdentity> identitiesOf(PK11SlotInfo* slot) {
  TokenSession token(slot);
  const std::set<std::string> keys = privateKeyIdentifiers(slot, token);
  if (keys.empty()) {
    return {};
  }
  const bool unguarded =
      PK11_IsInternalKeySlot(slot) != PR_FALSE && PK11_NeedLogin(slot) == PR_FALSE;
  std::vector<StoredIdentity> identities;
  for (const CK_OBJECT_HANDLE certificate : token.objects(CKO_CERTIFICATE)) {
    if (keys.contains(token.attribute(certificate, CKA_ID))) {
      const std::string der = token.attribute(certificate, CKA_VALUE);
      identities.push_back({{der.begin(), der.end()}, unguarded});
    }
  }
  return identities;
}

}  // namespace

std::vector<StoredIdentity> readStoredIdentities() {
  const auto folder = databaseFolder();
  if (isDatabaseMissing(folder)) {
    return {};
  }
  if (isDatabaseDamaged(folder)) {
    throw CertificateDatabaseError(SEC_ERROR_BAD_DATABASE);
  }
  openDatabase(folder);
  const ScopeExit shutDown([] { NSS_Shutdown(); });
  loadTokenModules(folder);
  const SlotList slots(PK11_GetAllTokens(CKM_INVALID_MECHANISM, PR_FALSE, PR_FALSE, nullptr));
  if (!slots) {
    throw CertificateDatabaseError(PR_GetError());
  }

  std::vector<StoredIdentity> identities;
  // Nobody else changes this list, so its elements need no references of their own.
  for (const auto* element = slots->head; element != nullptr; element = element->next) {
    try {
      std::vector<StoredIdentity> found = identitiesOf(element->slot);
      std::move(found.begin(), found.end(), std::back_inserter(identities));
    } catch (const CertificateDatabaseError&) {
      if (PK11_IsInternal(element->slot) != PR_FALSE) {
        throw;
      }
    }
  }
  return identities;
}

}  // namespace lumaret
