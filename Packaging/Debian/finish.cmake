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
file(COPY ${CMAKE_CURRENT_LIST_DIR}/copyright ${CMAKE_CURRENT_LIST_DIR}/changelog
  DESTINATION ${documents}
  FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

file(GLOB pages ${share}/man/man*/*)
execute_process(
  COMMAND gzip --best --no-name ${pages} ${documents}/changelog
  COMMAND_ERROR_IS_FATAL ANY)
