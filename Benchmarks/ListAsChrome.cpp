// SPDX-License-Identifier: Apache-2.0
// Looks for client certificates with NSS as Chrome for Linux does, and prints their number and
// NSS's version. In Chromium's sources, NSSInitSingleton (crypto/nss_util.cc) and
// ClientCertStoreNSS::GetPlatformCertsOnWorkerThread (net/ssl/client_cert_store_nss.cc) make these
// calls. What Chrome then does with each certificate is left out.
//
// ListAsChrome FOLDER
#include <cert.h>
#include <nss.h>
#include <pk11pub.h>
#include <prerror.h>
#include <secmod.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

char* noPassword(PK11SlotInfo* /*slot*/, PRBool /*retry*/, void* /*argument*/) { return nullptr; }

int fail(const char* call) {
  std::fprintf(stderr, "%s: NSS error %d\n", call, PR_GetError());
  return EXIT_FAILURE;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  if (argumentCount != 2) {
    std::fputs("ListAsChrome FOLDER\n", stderr);
    return EXIT_FAILURE;
  }
  const std::string database = std::string("sql:") + arguments[1];
  if (NSS_InitReadWrite(database.c_str()) != SECSuccess) {
    return fail("NSS_InitReadWrite");
  }
  PK11_SetPasswordFunc(noPassword);
  std::string roots = R"(name="Root Certs" library="libnssckbi.so")";
  if (SECMOD_LoadUserModule(roots.data(), nullptr, PR_FALSE) == nullptr) {
    return fail("SECMOD_LoadUserModule");
  }

  int count = 0;
  CERTCertList* found = CERT_FindUserCertsByUsage(CERT_GetDefaultCertDB(), certUsageSSLClient,
                                                  PR_FALSE, PR_FALSE, nullptr);
  if (found != nullptr) {  // Null if there is none.
    for (const CERTCertListNode* node = CERT_LIST_HEAD(found); !CERT_LIST_END(node, found);
         node = CERT_LIST_NEXT(node)) {
      ++count;
    }
  }
  std::printf("%d %s\n", count, NSS_GetVersion());
  return EXIT_SUCCESS;  // Chrome does not shut NSS down either.
}
