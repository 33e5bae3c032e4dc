# Run by CPack on the files of a package before they are packed: what Debian keeps in another place or form.
if(NOT CPACK_GENERATOR STREQUAL "DEB")
  return()
endif()
set(root "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share")

# Manual page and changelog compressed, without a time in them, so that the same files give the same package.
file(RENAME "${root}/doc/quarry/CHANGELOG.md" "${root}/doc/quarry/changelog")
file(RENAME "${root}/doc/quarry/LICENSE" "${root}/doc/quarry/copyright")
execute_process(COMMAND gzip -9n "${root}/doc/quarry/changelog" "${root}/man/man1/quarry.1" COMMAND_ERROR_IS_FATAL ANY)

# zsh looks for the functions of packages here, for those of the administrator in site-functions.
file(MAKE_DIRECTORY "${root}/zsh/vendor-completions")
file(RENAME "${root}/zsh/site-functions/_quarry" "${root}/zsh/vendor-completions/_quarry")
file(REMOVE_RECURSE "${root}/zsh/site-functions")
