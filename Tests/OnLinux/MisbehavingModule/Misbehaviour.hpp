// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pkcs11.h>

#include <string>

namespace lumaret::tests {

/// The kind of misbehaviour: the value of LUMARET_MISBEHAVIOUR. Without it, the module is correct.
const std::string& misbehaviour();

/// The DER bytes of the certificate on the token, from the file that LUMARET_MODULE_CERTIFICATE
/// names.
const std::string& certificate();

/// A token with a private key, and with its certificate twice.
CK_RV getSlotList(CK_BBOOL present, CK_SLOT_ID* slots, CK_ULONG* count);
CK_RV getMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE* mechanisms, CK_ULONG* count);
CK_RV findObjectsInit(CK_SESSION_HANDLE session, CK_ATTRIBUTE* wanted, CK_ULONG wantedCount);
CK_RV findObjects(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE* objects, CK_ULONG most,
                  CK_ULONG* count);
CK_RV getAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                        CK_ATTRIBUTE* attributes, CK_ULONG count);

}  // namespace lumaret::tests
