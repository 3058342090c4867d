// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/CertificateDatabase.hpp"

#include <nss.h>
#include <pk11pub.h>
#include <prerror.h>
#include <secerr.h>
#include <secmod.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <system_error>
#include <utility>

#include "LumaretMacHelper/Linux/TokenModules.hpp"
#include "LumaretMacHelper/Linux/TokenSession.hpp"
#include "LumaretMacHelper/Linux/UserFolders.hpp"
#include "LumaretMacHelper/POSIX/ScopeExit.hpp"

namespace lumaret {
namespace {

/// Also true if the path cannot be examined: that does not mean that nothing is there.
bool mayExist(const std::filesystem::path& path) {
  std::error_code error;
  return std::filesystem::symlink_status(path, error).type() !=
         std::filesystem::file_type::not_found;
}

bool isDatabaseMissing(const std::filesystem::path& folder) {
  std::error_code ignored;
  const bool isElsewhere = mayExist(folder) && !std::filesystem::is_directory(folder, ignored);
  return !isElsewhere && !mayExist(folder / "cert9.db") && !mayExist(folder / "key4.db") &&
         !mayExist(folder / "pkcs11.txt");
}

/// A SQLite file consists of whole pages, whose size is in its header. SQLite would read the
/// missing part of the last page as zeros.
bool isCutShort(const std::filesystem::path& file) {
  std::array<unsigned char, 18> header{};
  std::ifstream stream(file, std::ios::binary);
  if (!stream.read(reinterpret_cast<char*>(header.data()), header.size())) {
    return false;  // NSS reports what is wrong with it.
  }
  const unsigned pageSize = header[16] * 256U + header[17];
  std::error_code error;
  const auto size = std::filesystem::file_size(file, error);
  return !error && size % (pageSize == 1 ? 65536 : std::max(pageSize, 1U)) != 0;
}

/// Whether a file is cut short, which NSS would not notice, or is not a regular file: opening a
/// pipe waits for somebody at its other end, and reading a device may never end.
bool isDatabaseDamaged(const std::filesystem::path& folder) {
  // SQLite also opens the journals, in which an interrupted program left its changes.
  constexpr std::array files = {"pkcs11.txt",      "cert9.db",     "key4.db",    "cert9.db-journal",
                                "key4.db-journal", "cert9.db-wal", "key4.db-wal"};
  const auto isSomethingElse = [&](const char* file) {
    std::error_code ignored;
    return std::filesystem::exists(folder / file, ignored) &&
           !std::filesystem::is_regular_file(folder / file, ignored);
  };
  return std::ranges::any_of(files, isSomethingElse) || isCutShort(folder / "cert9.db") ||
         isCutShort(folder / "key4.db");
}

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
    if (!keys.contains(token.attribute(certificate, CKA_ID))) {
      continue;
    }
    if (const std::string der = token.attribute(certificate, CKA_VALUE); !der.empty()) {
      identities.push_back({{der.begin(), der.end()}, unguarded});
    }
  }
  return identities;
}

}  // namespace

std::filesystem::path databaseFolder() {
  const auto folder = homeFolder() / ".pki/nssdb";
  std::error_code error;
  // A dangling link counts as missing, as it does for Chrome.
  const bool isMissing =
      std::filesystem::status(folder, error).type() == std::filesystem::file_type::not_found;
  return isMissing ? dataHomeFolder() / "pki/nssdb" : folder;
}

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
