// SPDX-License-Identifier: Apache-2.0
#include <pkcs11.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

// A token with a private key, and with its certificate twice: the second time, its attributes are
// always correct.

namespace lumaret::tests {
namespace {

constexpr CK_OBJECT_HANDLE keyObject = 1;
constexpr CK_OBJECT_HANDLE certificateObject = 2;
constexpr CK_OBJECT_HANDLE correctCertificateObject = 3;

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

/// Whether this is the kind of misbehaviour. Without any, the module is correct.
bool misbehaves(std::string_view kind) {
  static const std::string wanted = variable("LUMARET_MISBEHAVIOUR");
  return wanted == kind;
}

/// In DER.
const std::string& certificate() {
  static const std::string bytes = [] {
    std::ifstream file(variable("LUMARET_MODULE_CERTIFICATE"), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }();
  return bytes;
}

void printWhere(const char* place) {
  if (misbehaves("prints")) {
    std::printf("buffered %s\n", place);
    dprintf(STDOUT_FILENO, "printed %s\n", place);
  }
}

/// Prints when the module is loaded, and when it is unloaded or the process ends.
struct Loaded {
  Loaded() {
    printWhere("at load");
    if (misbehaves("prints")) {
      std::atexit([] { printWhere("at exit"); });
    }
  }
  Loaded(const Loaded&) = delete;
  Loaded& operator=(const Loaded&) = delete;
  ~Loaded() { printWhere("at unload"); }
};
const Loaded loaded;

// The module and its token

CK_RV initialize(void* /*arguments*/) {
  printWhere("at start");
  return misbehaves("does-not-start") ? CKR_GENERAL_ERROR : CKR_OK;
}

CK_RV finalize(void* /*reserved*/) {
  printWhere("at the end");
  return CKR_OK;
}

CK_RV getInfo(CK_INFO* info) {
  *info = {};
  info->cryptokiVersion = {2, 20};
  return CKR_OK;
}

CK_RV getSlotList(CK_BBOOL /*present*/, CK_SLOT_ID* slots, CK_ULONG* count) {
  *count = 1;
  if (slots != nullptr) {
    *slots = 0;
  }
  return CKR_OK;
}

CK_RV getSlotInfo(CK_SLOT_ID /*slot*/, CK_SLOT_INFO* info) {
  *info = {};
  info->flags = CKF_TOKEN_PRESENT;
  return CKR_OK;
}

CK_RV getTokenInfo(CK_SLOT_ID /*slot*/, CK_TOKEN_INFO* info) {
  *info = {};
  info->flags = CKF_TOKEN_INITIALIZED | CKF_WRITE_PROTECTED | CKF_USER_PIN_INITIALIZED;
  info->ulMaxSessionCount = CK_EFFECTIVELY_INFINITE;
  info->ulSessionCount = CK_UNAVAILABLE_INFORMATION;
  return CKR_OK;
}

CK_RV getMechanismList(CK_SLOT_ID /*slot*/, CK_MECHANISM_TYPE* /*mechanisms*/, CK_ULONG* count) {
  *count = 0;
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

// Its objects

std::vector<CK_OBJECT_HANDLE> found;
CK_OBJECT_CLASS searchedClass = 0;

CK_RV findObjectsInit(CK_SESSION_HANDLE /*session*/, CK_ATTRIBUTE* wanted, CK_ULONG wantedCount) {
  searchedClass = CKO_DATA;
  for (CK_ULONG index = 0; index < wantedCount; ++index) {
    if (wanted[index].type == CKA_CLASS) {
      std::memcpy(&searchedClass, wanted[index].pValue, sizeof searchedClass);
    }
  }
  found.clear();
  if (searchedClass == CKO_PRIVATE_KEY) {
    found = {keyObject};
  } else if (searchedClass == CKO_CERTIFICATE) {
    found = {correctCertificateObject, certificateObject};
    if (misbehaves("attributes-fill-memory")) {
      found.insert(found.end(), 98'000, certificateObject);
    }
  }
  return misbehaves("search-fails") ? CKR_DEVICE_ERROR : CKR_OK;
}

CK_RV findObjects(CK_SESSION_HANDLE /*session*/, CK_OBJECT_HANDLE* objects, CK_ULONG most,
                  CK_ULONG* count) {
  if (!found.empty() && misbehaves("handles-too-many")) {
    std::fill_n(objects, most, found.front());
    *count = most + 1;
    found.clear();
  } else if (!found.empty() && misbehaves("search-endless")) {
    *objects = found.front();
    *count = 1;
  } else if (searchedClass == CKO_CERTIFICATE && misbehaves("search-breaks-off")) {
    return CKR_DEVICE_REMOVED;
  } else {
    *count = std::min<CK_ULONG>(most, found.size());
    std::copy_n(found.begin(), *count, objects);
    found.erase(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(*count));
  }
  return CKR_OK;
}

std::string valueOf(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
  const CK_OBJECT_CLASS objectClass = object == keyObject ? CKO_PRIVATE_KEY : CKO_CERTIFICATE;
  switch (type) {
    case CKA_CLASS:
      return {reinterpret_cast<const char*>(&objectClass), sizeof objectClass};
    case CKA_ID:
      return "the key";
    case CKA_VALUE:
      return object == keyObject ? "" : certificate();
    default:
      return "";
  }
}

CK_RV answer(CK_ATTRIBUTE& attribute, CK_OBJECT_HANDLE object, const std::string& bytes) {
  const bool hasBuffer = attribute.pValue != nullptr;
  bool neverFits = false;
  if (object == certificateObject && attribute.type == CKA_VALUE) {
    neverFits = misbehaves("length-never-fits");
    if (misbehaves("attributes-fill-memory") && hasBuffer) {
      return CKR_OK;  // They fill the buffer.
    }
    if (misbehaves("length-above-buffer")) {
      attribute.ulValueLen = hasBuffer ? 64 << 20 : bytes.size();
      return CKR_OK;
    }
  }
  if (hasBuffer && (attribute.ulValueLen < bytes.size() || neverFits)) {
    attribute.ulValueLen = CK_UNAVAILABLE_INFORMATION;
    return CKR_BUFFER_TOO_SMALL;
  }
  if (hasBuffer) {
    std::memcpy(attribute.pValue, bytes.data(), bytes.size());
  }
  attribute.ulValueLen = bytes.size();
  return CKR_OK;
}

CK_RV getAttributeValue(CK_SESSION_HANDLE /*session*/, CK_OBJECT_HANDLE object,
                        CK_ATTRIBUTE* attributes, CK_ULONG count) {
  CK_RV result = CKR_OK;
  for (CK_ULONG index = 0; index < count; ++index) {
    const CK_RV each = answer(attributes[index], object, valueOf(object, attributes[index].type));
    result = each == CKR_OK ? result : each;
  }
  return result;
}

// All functions of PKCS#11

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
