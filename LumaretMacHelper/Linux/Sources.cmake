find_package(ICU REQUIRED COMPONENTS i18n uc)
find_package(PkgConfig REQUIRED)
pkg_check_modules(NSS REQUIRED IMPORTED_TARGET nss)
pkg_check_modules(URIPARSER REQUIRED IMPORTED_TARGET liburiparser)
# Of Nettle, SHA-256 alone is needed: the archive, where there is one, saves loading a library.
find_library(NETTLE NAMES libnettle.a nettle REQUIRED)

function(lumaret_add_Linux_sources target)
  target_sources(${target} PRIVATE
    ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/CertificateDatabase.cpp
    ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/CertificateDecoder.cpp
    ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/ChromeInstallation.cpp
    ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/CurrentUserChromePreferences.cpp
    ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/LocalizedOrder.cpp
    ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/ManagedPolicyFolder.cpp
    ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/PolicyFile.cpp
    ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/ProfileLock.cpp
    ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/SHA256.cpp
    ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/SystemChromeKeychainAuthorizationBackend.cpp
    ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/SystemChromeLaunchEnvironment.cpp
    ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/SystemKeychainIdentityQuery.cpp
    ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/TokenSession.cpp
    ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/URL.cpp
    ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/UserFolders.cpp)
  target_link_libraries(${target} PRIVATE
    ICU::i18n ICU::uc ${NETTLE} PkgConfig::NSS PkgConfig::URIPARSER)
endfunction()
