// SPDX-License-Identifier: Apache-2.0
#include "Tests/OnMac/TestKeychain.hpp"

#include <unistd.h>

#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "LumaretMacHelper/macOS/CoreFoundationValues.hpp"
#include "Tests/Support/Cpp/TemporaryFolder.hpp"

// Keychain files have been deprecated since macOS 10.10 and 12. Identities are still stored in
// them.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace lumaret::tests {
namespace {

std::filesystem::path newFolder() {
  const auto parent = testKeychainFolder();
  std::filesystem::create_directories(parent);
  std::string name = (parent / "XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error("no folder below " + parent.string());
  }
  // The system expects this folder in every home.
  std::filesystem::create_directories(std::filesystem::path(name) / "Library/Preferences");
  return name;
}

CoreFoundationReference<CFArrayRef> currentSearchList() {
  CoreFoundationReference<CFArrayRef> list;
  require(::SecKeychainCopySearchList(list.receive()), "SecKeychainCopySearchList");
  return list;
}

std::vector<std::string> paths(const CoreFoundationReference<CFArrayRef>& keychains) {
  std::vector<std::string> paths;
  for (const CFTypeRef keychain : elements(keychains.get())) {
    std::array<char, PATH_MAX> path{};
    auto length = static_cast<UInt32>(path.size());
    require(::SecKeychainGetPath(objectAs<SecKeychainRef>(keychain, ::SecKeychainGetTypeID()),
                                 &length, path.data()),
            "SecKeychainGetPath");
    paths.emplace_back(path.data(), length);
  }
  return paths;
}

}  // namespace

std::filesystem::path testKeychainFolder() {
  const char* folder = std::getenv("LUMARET_TEST_KEYCHAIN_FOLDER");
  if (folder == nullptr || *folder != '/') {
    throw std::runtime_error(
        "These tests change this user's keychain search list and Chrome's preferences while they "
        "run: let CTest run them, which names a folder in LUMARET_TEST_KEYCHAIN_FOLDER.");
  }
  return folder;
}

TestKeychain::TestKeychain()
    : folder_(newFolder()), home_(std::getenv("HOME")), searchList_(currentSearchList()) {
  ::setenv("HOME", folder_.c_str(), 1);
  require(::SecKeychainSetUserInteractionAllowed(false), "SecKeychainSetUserInteractionAllowed");
  constexpr std::string_view password = "test";
  require(::SecKeychainCreate(file_.c_str(), password.size(), password.data(),
                              /*promptUser=*/false, /*initialAccess=*/nullptr, keychain_.receive()),
          "SecKeychainCreate");
  const auto alone = coreFoundationArray(std::vector{keychain_});
  require(::SecKeychainSetSearchList(alone.get()), "SecKeychainSetSearchList");
}

TestKeychain::~TestKeychain() {
  ::SecKeychainDelete(keychain_.get());
  ::setenv("HOME", home_.c_str(), 1);
  try {
    if (paths(currentSearchList()) != paths(searchList_)) {
      require(::SecKeychainSetSearchList(searchList_.get()), "SecKeychainSetSearchList");
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "The keychain search list was not restored: %s\n", error.what());
  }
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

void TestKeychain::addIdentity(const FreshIdentity& identity) const {
  shell("/usr/bin/security import '" + identity.bundle.string() + "' -k '" + file_.string() +
        "' -P " + FreshIdentity::passphrase + " -A");
}

void TestKeychain::addCertificate(const FreshIdentity& identity) const {
  const auto data = CoreFoundationReference<CFDataRef>::adopt(::CFDataCreate(
      kCFAllocatorDefault, identity.der.data(), static_cast<CFIndex>(identity.der.size())));
  const auto certificate = CoreFoundationReference<SecCertificateRef>::adopt(
      ::SecCertificateCreateWithData(kCFAllocatorDefault, data.get()));
  require(::SecCertificateAddToKeychain(certificate.get(), keychain_.get()),
          "SecCertificateAddToKeychain");
}

std::string TestKeychain::bytes() const { return readFile(file_); }

}  // namespace lumaret::tests
