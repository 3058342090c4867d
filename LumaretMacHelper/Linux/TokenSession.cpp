// SPDX-License-Identifier: Apache-2.0
#include "LumaretMacHelper/Linux/TokenSession.hpp"

#include <pkcs11.h>
#include <secerr.h>
#include <secmod.h>

#include <algorithm>
#include <array>

#include "LumaretMacHelper/POSIX/ScopeExit.hpp"

namespace lumaret {
namespace {

void check(CK_RV result) {
  if (result != CKR_OK) {
    throw CertificateDatabaseError(result == CKR_DEVICE_ERROR ? SEC_ERROR_PKCS11_DEVICE_ERROR
                                                              : SEC_ERROR_PKCS11_GENERAL_ERROR);
  }
}

void checkBound(CK_ULONG count, CK_ULONG most) {
  check(count <= most ? CKR_OK : CKR_GENERAL_ERROR);
}

bool meansNoAttribute(CK_RV result) {
  return result == CKR_ATTRIBUTE_TYPE_INVALID || result == CKR_ATTRIBUTE_SENSITIVE ||
         result == CKR_OBJECT_HANDLE_INVALID || result == CKR_BUFFER_TOO_SMALL;
}

}  // namespace

TokenSession::TokenSession(PK11SlotInfo* slot)
    : functions_(static_cast<CK_FUNCTION_LIST*>(PK11_GetModule(slot)->functionList)) {
  check(functions_->C_OpenSession(PK11_GetSlotID(slot), CKF_SERIAL_SESSION, nullptr, nullptr,
                                  &session_));
}

TokenSession::~TokenSession() { functions_->C_CloseSession(session_); }

std::vector<CK_OBJECT_HANDLE> TokenSession::objects(CK_OBJECT_CLASS objectClass) {
  CK_ATTRIBUTE wanted = {CKA_CLASS, &objectClass, sizeof objectClass};
  const CK_RV begun = functions_->C_FindObjectsInit(session_, &wanted, 1);
  if (begun == CKR_USER_NOT_LOGGED_IN) {
    return {};  // Some tokens refuse to search for what only a login would show.
  }
  check(begun);
  const ScopeExit endSearch([this] { functions_->C_FindObjectsFinal(session_); });
  std::vector<CK_OBJECT_HANDLE> found;
  std::array<CK_OBJECT_HANDLE, 256> batch{};
  CK_ULONG count = 0;
  do {
    check(functions_->C_FindObjects(session_, batch.data(), batch.size(), &count));
    checkBound(count, std::min(batch.size(), mostObjects - found.size()));
    found.insert(found.end(), batch.begin(), batch.begin() + count);
  } while (count > 0);
  return found;
}

std::string TokenSession::attribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
  CK_ATTRIBUTE wanted = {type, buffer_->data(), mostAttributeBytes};
  const CK_RV result = functions_->C_GetAttributeValue(session_, object, &wanted, 1);
  if (meansNoAttribute(result)) {
    return {};
  }
  check(result);
  checkBound(wanted.ulValueLen, std::min(mostAttributeBytes, mostBytes - bytes_));
  bytes_ += wanted.ulValueLen;
  return {buffer_->data(), wanted.ulValueLen};
}

}  // namespace lumaret
