# What Debian wants otherwise than `cmake --install` leaves it, run by CPack in the package's tree.
set(share ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share)

file(MAKE_DIRECTORY ${share}/zsh/vendor-completions)
file(RENAME ${share}/zsh/site-functions/_lumaret-macos-helper
  ${share}/zsh/vendor-completions/_lumaret-macos-helper)
file(REMOVE_RECURSE ${share}/zsh/site-functions)

set(documents ${share}/doc/lumaret-macos-helper)
file(REMOVE ${documents}/LICENSE)
configure_file(${CMAKE_CURRENT_LIST_DIR}/copyright ${documents}/copyright COPYONLY)
configure_file(${CPACK_DEBIAN_CHANGELOG} ${documents}/changelog COPYONLY)

file(GLOB pages ${share}/man/man*/*)
execute_process(
  COMMAND gzip --best --no-name ${pages} ${documents}/changelog
  COMMAND_ERROR_IS_FATAL ANY)
