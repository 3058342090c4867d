// SPDX-License-Identifier: Apache-2.0
#include <Security/Security.h>

#include "Tests/OverStandIn/AppleFrameworks/Call.hpp"
#include "Tests/OverStandIn/AppleFrameworks/Objects.hpp"

using namespace standin;

extern "C" {

const CFStringRef kSecClass = constantText("kSecClass");
const CFStringRef kSecClassIdentity = constantText("kSecClassIdentity");
const CFStringRef kSecMatchLimit = constantText("kSecMatchLimit");
const CFStringRef kSecMatchLimitAll = constantText("kSecMatchLimitAll");
const CFStringRef kSecReturnRef = constantText("kSecReturnRef");
const CFStringRef kSecOIDX509V1IssuerName = constantText("kSecOIDX509V1IssuerName");
const CFStringRef kSecOIDX509V1SubjectName = constantText("kSecOIDX509V1SubjectName");
const CFStringRef kSecOIDX509V1ValidityNotAfter = constantText("kSecOIDX509V1ValidityNotAfter");
const CFStringRef kSecPropertyKeyLabel = constantText("kSecPropertyKeyLabel");
const CFStringRef kSecPropertyKeyValue = constantText("kSecPropertyKeyValue");

OSStatus SecItemCopyMatching(CFDictionaryRef query, CFTypeRef* result) {
  const Call call(__func__, described(query, __func__));
  if (machine().identities.empty() && call.answersItself()) {
    return errSecItemNotFound;
  }
  return call.leave(result, [] {
    std::vector<CFTypeRef> identities;
    for (const Identity& identity : machine().identities) {
      identities.push_back(create(IdentityObject{identity}));
    }
    return createArray(identities);
  });
}

CFTypeID SecIdentityGetTypeID() {
  const Call call(__func__, "");
  return typeIdentifier<IdentityObject>();
}

OSStatus SecIdentityCopyCertificate(SecIdentityRef identity, SecCertificateRef* certificate) {
  const Identity& stored = as<IdentityObject>(identity, __func__).identity;
  const Call call(__func__, stored.name);
  return call.leave(certificate,
                    [&] { return createAs<SecCertificateRef>(CertificateObject{stored}); });
}

OSStatus SecIdentityCopyPrivateKey(SecIdentityRef identity, SecKeyRef* privateKey) {
  const Identity& stored = as<IdentityObject>(identity, __func__).identity;
  const Call call(__func__, stored.name);
  if (!stored.privateKey && call.answersItself()) {
    return errSecItemNotFound;
  }
  const auto createKey = [&stored] {
    return createAs<SecKeyRef>(KeyObject{stored.name, stored.privateKey});
  };
  return call.leave(privateKey, createKey);
}

CFDataRef SecCertificateCopyData(SecCertificateRef certificate) {
  const Identity& stored = as<CertificateObject>(certificate, __func__).identity;
  const Call call(__func__, stored.name);
  return call.result<CFDataRef>([&] { return createAs<CFDataRef>(Value{stored.certificate}); });
}

// Returns all values of the certificate, whichever are requested.
CFDictionaryRef SecCertificateCopyValues(SecCertificateRef certificate, CFArrayRef keys,
                                         CFErrorRef* error) {
  const Identity& stored = as<CertificateObject>(certificate, __func__).identity;
  const Call call(__func__, stored.name + ", " + described(keys, __func__) + ", " +
                                (error == nullptr ? "null" : "error"));
  return call.result<CFDictionaryRef>([&]() -> CFDictionaryRef {
    return stored.certificateValues ? createAs<CFDictionaryRef>(Value{*stored.certificateValues})
                                    : nullptr;
  });
}
}
