# SPDX-License-Identifier: Apache-2.0
# `cpack` makes a Debian package of the installation. Configuring does not require Debian.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME lumaret-macos-helper)
set(CPACK_PACKAGE_VENDOR Lumaret)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Lumaret Maintainers <maintainers@lumaret.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "choose the client certificate that Google Chrome uses")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Google Chrome and Chromium ask which client certificate to show whenever a
server demands one. lumaret-macos-helper lists the identities in the user's
certificate database, and makes one of them the one that the browser uses
without asking: it writes the browser's auto-select policy, verifies it, has a
running browser take it up, and opens a window. A small system service stores
the rule for users whom polkit lets.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION web)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The rule service needs the bus and polkit; the tool calls it with systemd's busctl.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "default-dbus-system-bus | dbus-system-bus, polkitd, systemd")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "chromium | google-chrome-stable")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "bash-completion, jq, libnss3-tools")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_LIST_DIR}/postinst ${CMAKE_CURRENT_LIST_DIR}/postrm
  ${CMAKE_CURRENT_LIST_DIR}/prerm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/finish.cmake)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_VERBATIM_VARIABLES ON)
# Packaging does not build: that was done before.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
include(CPack)
