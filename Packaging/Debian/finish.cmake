# SPDX-License-Identifier: Apache-2.0
# Changes what Debian requires to be different from the result of `cmake --install`. CPack runs this
# in the package's tree.
set(share ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share)

# CPack makes this folder itself, with the umask of whoever makes the package.
file(CHMOD ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

file(RENAME ${share}/zsh/site-functions ${share}/zsh/vendor-completions)

set(documents ${share}/doc/lumaret-macos-helper)
file(REMOVE ${documents}/LICENSE) # copyright names Debian's own copy
foreach(file IN ITEMS ${CMAKE_CURRENT_LIST_DIR}/copyright ${CPACK_DEBIAN_CHANGELOG})
  cmake_path(GET file FILENAME name)
  configure_file(${file} ${documents}/${name} COPYONLY
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endforeach()
execute_process(
  COMMAND date --utc --rfc-email --date=${CPACK_DEBIAN_RELEASE_DAY}
  OUTPUT_VARIABLE release_date
  OUTPUT_STRIP_TRAILING_WHITESPACE
  COMMAND_ERROR_IS_FATAL ANY)
file(APPEND ${documents}/changelog " -- ${CPACK_DEBIAN_PACKAGE_MAINTAINER}  ${release_date}\n")

file(GLOB pages ${share}/man/man*/*)
execute_process(
  COMMAND gzip --best --no-name ${pages} ${documents}/changelog
  COMMAND_ERROR_IS_FATAL ANY)
