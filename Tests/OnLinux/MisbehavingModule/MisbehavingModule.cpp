// SPDX-License-Identifier: Apache-2.0
#include <pkcs11.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "Tests/OnLinux/MisbehavingModule/Misbehaviour.hpp"

namespace lumaret::tests {
namespace {

void printWhere(const char* place) {
  if (misbehaviour() == "prints") {
    std::printf("buffered %s\n", place);
    dprintf(STDOUT_FILENO, "printed %s\n", place);
  }
}

/// Prints when the module is loaded, and when it is unloaded or the process ends.
struct Loaded {
  Loaded() {
    printWhere("at load");
    if (misbehaviour() == "prints") {
      std::atexit([] { printWhere("at exit"); });
    }
  }
  Loaded(const Loaded&) = delete;
  Loaded& operator=(const Loaded&) = delete;
  ~Loaded() { printWhere("at unload"); }
};
const Loaded loaded;

/// PKCS#11 pads its strings with spaces.
template <std::size_t size>
void setText(CK_UTF8CHAR (&field)[size], std::string_view text) {
  std::fill_n(field, size, static_cast<CK_UTF8CHAR>(' '));
  std::copy_n(text.begin(), std::min(size, text.size()), field);
}

CK_RV initialize(void* /*arguments*/) {
  printWhere("at start");
  return misbehaviour() == "does-not-start" ? CKR_GENERAL_ERROR : CKR_OK;
}

CK_RV finalize(void* /*reserved*/) {
  printWhere("at the end");
  return CKR_OK;
}

CK_RV getInfo(CK_INFO* info) {
  *info = {};
  info->cryptokiVersion = {2, 20};
  setText(info->manufacturerID, "Lumaret");
  setText(info->libraryDescription, "Misbehaving module");
  return CKR_OK;
}

CK_RV getSlotInfo(CK_SLOT_ID /*slot*/, CK_SLOT_INFO* info) {
  *info = {};
  setText(info->slotDescription, "Slot");
  setText(info->manufacturerID, "Lumaret");
  info->flags = CKF_TOKEN_PRESENT;
  return CKR_OK;
}

CK_RV getTokenInfo(CK_SLOT_ID /*slot*/, CK_TOKEN_INFO* info) {
  *info = {};
  if (misbehaviour() == "token-unknown") {
    return CKR_DEVICE_ERROR;
  }
  setText(info->label, "Token");
  setText(info->manufacturerID, "Lumaret");
  setText(info->model, "Token");
  setText(info->serialNumber, "1");
  info->flags = CKF_TOKEN_INITIALIZED | CKF_WRITE_PROTECTED | CKF_USER_PIN_INITIALIZED;
  info->ulMaxSessionCount = CK_EFFECTIVELY_INFINITE;
  info->ulSessionCount = CK_UNAVAILABLE_INFORMATION;
  return CKR_OK;
}

CK_RV openSession(CK_SLOT_ID /*slot*/, CK_FLAGS /*flags*/, void* /*application*/,
                  CK_NOTIFY /*notify*/, CK_SESSION_HANDLE* session) {
  *session = 1;
  return CKR_OK;
}

CK_RV getSessionInfo(CK_SESSION_HANDLE /*session*/, CK_SESSION_INFO* info) {
  *info = {0, CKS_RO_PUBLIC_SESSION, CKF_SERIAL_SESSION, 0};
  return CKR_OK;
}

template <typename... Arguments>
CK_RV succeed(Arguments... /*arguments*/) {
  return CKR_OK;
}

template <typename... Arguments>
CK_RV refuse(Arguments... /*arguments*/) {
  return CKR_FUNCTION_NOT_SUPPORTED;
}

CK_RV getFunctionList(CK_FUNCTION_LIST** list);

CK_FUNCTION_LIST makeFunctions() {
  CK_FUNCTION_LIST functions{};
#define CK_PKCS11_FUNCTION_INFO(name) functions.name = refuse;
#include <pkcs11f.h>
#undef CK_PKCS11_FUNCTION_INFO
  functions.version = {2, 20};
  functions.C_GetFunctionList = getFunctionList;
  functions.C_Initialize = initialize;
  functions.C_Finalize = finalize;
  functions.C_GetInfo = getInfo;
  functions.C_GetSlotList = getSlotList;
  functions.C_GetSlotInfo = getSlotInfo;
  functions.C_GetTokenInfo = getTokenInfo;
  functions.C_GetMechanismList = getMechanismList;
  functions.C_OpenSession = openSession;
  functions.C_GetSessionInfo = getSessionInfo;
  functions.C_CloseSession = succeed;
  functions.C_CloseAllSessions = succeed;
  functions.C_FindObjectsInit = findObjectsInit;
  functions.C_FindObjects = findObjects;
  functions.C_FindObjectsFinal = succeed;
  functions.C_GetAttributeValue = getAttributeValue;
  return functions;
}

CK_RV getFunctionList(CK_FUNCTION_LIST** list) {
  static CK_FUNCTION_LIST functions = makeFunctions();
  *list = &functions;
  return CKR_OK;
}

}  // namespace
}  // namespace lumaret::tests

extern "C" __attribute__((visibility("default"))) CK_RV C_GetFunctionList(CK_FUNCTION_LIST** list) {
  return lumaret::tests::getFunctionList(list);
}
