# SPDX-License-Identifier: Apache-2.0
# The files by which the system starts the rule service and asks for permission. dbus, systemd and
# polkit look for them in folders of their own, wherever the tool itself is installed.

# A cache variable for the folder in a variable of a package's pkg-config file, or else below
# /usr, and a path below it. A folder below the prefix is a relative one, so that
# `cmake --install --prefix` and packages can move it.
function(find_folder name package variable default below help)
  pkg_get_variable(folder ${package} ${variable})
  if(NOT folder)
    set(folder ${default})
  endif()
  cmake_path(APPEND folder ${below})
  file(REAL_PATH ${folder} folder) # /lib may be a link to /usr/lib
  cmake_path(IS_PREFIX CMAKE_INSTALL_PREFIX ${folder} is_below_prefix)
  if(is_below_prefix)
    cmake_path(RELATIVE_PATH folder BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX})
  endif()
  set(${name} ${folder} CACHE STRING "The folder where ${help}")
endfunction()
find_folder(LUMARET_BUS_SERVICES dbus-1 datadir /usr/share dbus-1/system-services
  "the system bus finds services that it can start")
find_folder(LUMARET_BUS_POLICIES dbus-1 datadir /usr/share dbus-1/system.d
  "the system bus finds who may own and call a service")
find_folder(LUMARET_POLKIT_ACTIONS polkit-gobject-1 actiondir /usr/share/polkit-1/actions ""
  "polkit finds actions")
find_folder(LUMARET_UNITS systemd systemd_system_unit_dir /usr/lib/systemd/system ""
  "systemd finds units")

# systemd names such folders by their paths below /etc.
cmake_path(RELATIVE_PATH LUMARET_GOOGLE_CHROME_POLICIES BASE_DIRECTORY /etc OUTPUT_VARIABLE google_chrome_policies)
cmake_path(RELATIVE_PATH LUMARET_CHROMIUM_POLICIES BASE_DIRECTORY /etc OUTPUT_VARIABLE chromium_policies)
set(rule_service ${CMAKE_INSTALL_FULL_LIBEXECDIR}/lumaret-macos-helper/rule-service)
foreach(file IN ITEMS com.lumaret.MacHelper1.service lumaret-rule-service.service)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${file}.in ${file} @ONLY)
endforeach()

install_into(${CMAKE_INSTALL_LIBEXECDIR}/lumaret-macos-helper TARGETS rule-service)
install_into(${LUMARET_BUS_SERVICES} FILES ${CMAKE_CURRENT_BINARY_DIR}/com.lumaret.MacHelper1.service)
install_into(${LUMARET_BUS_POLICIES} FILES ${CMAKE_CURRENT_LIST_DIR}/com.lumaret.MacHelper1.conf)
install_into(${LUMARET_UNITS} FILES ${CMAKE_CURRENT_BINARY_DIR}/lumaret-rule-service.service)
install_into(${LUMARET_POLKIT_ACTIONS} FILES ${CMAKE_CURRENT_LIST_DIR}/com.lumaret.mac-helper.policy)
