# Objective-C++ is for AppKit alone. Elsewhere than on a Mac the tests bring what that one file
# defines, with their stand-in for the frameworks.
if(APPLE)
  enable_language(OBJCXX)
endif()

function(lumaret_add_macOS_sources target)
  set(folder ${CMAKE_CURRENT_FUNCTION_LIST_DIR})
  target_sources(${target} PRIVATE
    ${folder}/CertificateValues.cpp
    ${folder}/CoreFoundationValues.cpp
    ${folder}/CurrentUserChromePreferences.cpp
    ${folder}/IdentityMatching.cpp
    ${folder}/LocalizedOrder.cpp
    ${folder}/SHA256.cpp
    ${folder}/SystemChromeKeychainAuthorizationBackend.cpp
    ${folder}/SystemChromeLaunchEnvironment.cpp
    ${folder}/SystemKeychainIdentityQuery.cpp
    ${folder}/URL.cpp)
  if(APPLE)
    target_sources(${target} PRIVATE ${folder}/RunningApplications.mm)
    if(CMAKE_CROSSCOMPILING)
      # A driver that is not Apple's may add options of its own to Objective-C++ and warn of them.
      set_source_files_properties(${folder}/RunningApplications.mm
        PROPERTIES COMPILE_OPTIONS -Wno-unused-command-line-argument)
    endif()
    # Elsewhere the tests run over a stand-in: what it declares is held against Apple's own headers
    # wherever those are.
    add_library(AppleFrameworksDeclarations OBJECT
      ${PROJECT_SOURCE_DIR}/Tests/AppleFrameworks/Declarations.cpp)
    add_dependencies(${target} AppleFrameworksDeclarations)
    target_link_libraries(${target} PUBLIC
      "-framework Security" "-framework CoreFoundation" "-framework Foundation"
      "-framework AppKit")
  endif()
endfunction()
