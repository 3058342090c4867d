# SPDX-License-Identifier: Apache-2.0
# What Debian wants otherwise than `cmake --install` leaves it, run by CPack in the package's tree.
set(share ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share)

file(RENAME ${share}/zsh/site-functions ${share}/zsh/vendor-completions)

# CMake takes the umask off the permissions of the folders that it makes.
file(GLOB_RECURSE entries LIST_DIRECTORIES true ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*)
foreach(entry IN LISTS entries ITEMS ${CPACK_TEMPORARY_INSTALL_DIRECTORY})
  if(IS_DIRECTORY ${entry})
    file(CHMOD ${entry} PERMISSIONS
      OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  endif()
endforeach()

set(documents ${share}/doc/lumaret-macos-helper)
file(REMOVE ${documents}/LICENSE ${documents}/NOTICE) # copyright says both
configure_file(${CMAKE_CURRENT_LIST_DIR}/copyright ${documents}/copyright COPYONLY)
configure_file(${CPACK_DEBIAN_CHANGELOG} ${documents}/changelog COPYONLY)

file(GLOB pages ${share}/man/man*/*)
execute_process(
  COMMAND gzip --best --no-name ${pages} ${documents}/changelog
  COMMAND_ERROR_IS_FATAL ANY)
