// SPDX-License-Identifier: Apache-2.0
#include "Tests/OnLinux/MisbehavingModule/Misbehaviour.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

namespace lumaret::tests {
namespace {

constexpr CK_ULONG unavailable = CK_UNAVAILABLE_INFORMATION;
constexpr CK_ULONG huge = CK_ULONG{1} << 62;
constexpr CK_OBJECT_HANDLE keyObject = 1;
constexpr CK_OBJECT_HANDLE certificateObject = 2;
constexpr CK_OBJECT_HANDLE honestCertificateObject = 3;  // Its attributes are always correct.

std::vector<CK_OBJECT_HANDLE> found;
CK_OBJECT_CLASS searchedClass = 0;

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

bool misbehaves(const char* kind) { return misbehaviour() == kind; }

/// The reported length of a certificate's bytes. Their real length is `real`.
CK_ULONG announcedLength(CK_ULONG real, bool hasBuffer) {
  if (misbehaves("length-unavailable")) {
    return unavailable;
  }
  if (misbehaves("length-huge")) {
    return huge;
  }
  if (misbehaves("length-above-buffer")) {
    return hasBuffer ? 64 << 20 : real;
  }
  return real;
}

CK_RV answer(CK_ATTRIBUTE& attribute, CK_OBJECT_HANDLE object, const std::string& bytes) {
  const bool hasBuffer = attribute.pValue != nullptr;
  const bool isCertificate = attribute.type == CKA_VALUE && object == certificateObject;
  if (isCertificate && hasBuffer && misbehaves("length-never-fits")) {
    attribute.ulValueLen = unavailable;
    return CKR_BUFFER_TOO_SMALL;
  }
  if (misbehaves("attributes-fill-memory") && hasBuffer && isCertificate) {
    return CKR_OK;  // Each of many objects fills the buffer.
  }
  if (hasBuffer && attribute.ulValueLen < bytes.size() && !isCertificate) {
    attribute.ulValueLen = unavailable;
    return CKR_BUFFER_TOO_SMALL;
  }
  if (hasBuffer) {
    std::memcpy(attribute.pValue, bytes.data(),
                std::min<CK_ULONG>(bytes.size(), attribute.ulValueLen));
  }
  attribute.ulValueLen =
      isCertificate ? announcedLength(bytes.size(), hasBuffer) : CK_ULONG{bytes.size()};
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

}  // namespace

const std::string& misbehaviour() {
  static const std::string kind = variable("LUMARET_MISBEHAVIOUR");
  return kind;
}

const std::string& certificate() {
  static const std::string bytes = [] {
    std::ifstream file(variable("LUMARET_MODULE_CERTIFICATE"), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }();
  return bytes;
}

CK_RV getSlotList(CK_BBOOL /*present*/, CK_SLOT_ID* slots, CK_ULONG* count) {
  if (misbehaves("slots-unavailable")) {
    *count = unavailable;
  } else if (misbehaves("slots-huge")) {
    *count = huge;
  } else {
    *count = misbehaves("slots-none") ? 0 : 1;
    if (slots != nullptr) {
      *slots = 0;
    }
  }
  return CKR_OK;
}

CK_RV getMechanismList(CK_SLOT_ID /*slot*/, CK_MECHANISM_TYPE* /*mechanisms*/, CK_ULONG* count) {
  *count = misbehaves("mechanisms-unavailable") ? unavailable
           : misbehaves("mechanisms-huge")      ? huge
                                                : 0;
  return CKR_OK;
}

CK_RV findObjectsInit(CK_SESSION_HANDLE /*session*/, CK_ATTRIBUTE* wanted, CK_ULONG wantedCount) {
  found.clear();
  searchedClass = CKO_DATA;
  for (CK_ULONG index = 0; index < wantedCount; ++index) {
    if (wanted[index].type == CKA_CLASS) {
      std::memcpy(&searchedClass, wanted[index].pValue, sizeof searchedClass);
    }
  }
  if (searchedClass == CKO_PRIVATE_KEY) {
    found = {keyObject};
  } else if (searchedClass == CKO_CERTIFICATE) {
    found = {honestCertificateObject, certificateObject};
  }
  return misbehaves("search-fails") ? CKR_DEVICE_ERROR : CKR_OK;
}

CK_RV findObjects(CK_SESSION_HANDLE /*session*/, CK_OBJECT_HANDLE* objects, CK_ULONG most,
                  CK_ULONG* count) {
  const bool isOurs = searchedClass == CKO_PRIVATE_KEY || searchedClass == CKO_CERTIFICATE;
  if (isOurs && misbehaves("handles-unavailable")) {
    *count = unavailable;
  } else if (isOurs && misbehaves("handles-huge")) {
    *count = huge;
  } else if (isOurs && misbehaves("handles-too-many")) {
    std::fill_n(objects, most,
                searchedClass == CKO_PRIVATE_KEY ? keyObject : honestCertificateObject);
    *count = found.empty() ? 0 : most + 1;
    found.clear();
  } else if (isOurs && misbehaves("search-endless")) {
    std::fill_n(objects, most, keyObject);
    *count = most;
  } else if (isOurs && misbehaves("search-endless-in-single-steps")) {
    *objects = keyObject;
    *count = 1;
  } else if (searchedClass == CKO_CERTIFICATE && misbehaves("attributes-fill-memory")) {
    static CK_ULONG left = 99'000;
    *count = std::min(most, left);
    left -= *count;
    std::fill_n(objects, *count, left == 0 ? honestCertificateObject : certificateObject);
  } else if (searchedClass == CKO_CERTIFICATE && misbehaves("search-breaks-off")) {
    return CKR_DEVICE_REMOVED;
  } else {
    *count = std::min<CK_ULONG>(most, found.size());
    std::copy_n(found.begin(), *count, objects);
    found.erase(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(*count));
  }
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

}  // namespace lumaret::tests
