# What an installed quarry consists of, and the Debian package made of it: `cpack -G DEB`. scripts/package.sh makes and
# tries it, beside a tarball with a static program and one with the source.
include(GNUInstallDirs)

install(TARGETS quarry RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
install(FILES docs/quarry.1 DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
install(FILES LICENSE README.md SECURITY.md CONTRIBUTING.md CHANGELOG.md DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(DIRECTORY docs/ DESTINATION "${CMAKE_INSTALL_DOCDIR}/docs" FILES_MATCHING PATTERN "*.md" PATTERN "*.json")
install(FILES samples/README.md samples/MANIFEST.tsv samples/disk.img.xz DESTINATION "${CMAKE_INSTALL_DOCDIR}/samples")
install(FILES completions/quarry.bash DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" RENAME quarry)
install(FILES completions/_quarry DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/site-functions")
install(FILES completions/quarry.fish DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d")

# A package needs the program, not the tests beside it.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

set(CPACK_PACKAGE_NAME quarry)
set(CPACK_PACKAGE_VENDOR "the quarry authors")
set(CPACK_PACKAGE_CONTACT "the quarry authors <quarry@localhost>" CACHE STRING "Maintainer of the packages")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "copy streams and clusters out of NTFS volumes")
set(CPACK_PACKAGE_DESCRIPTION
"quarry copies one data stream of one file, or a run of clusters, out of an
NTFS volume by reading the volume's own structures. It never mounts anything
and never writes to its source, so it reaches named streams, system files,
deleted entries and slack. Sources are raw images, partitions, drives and
chains of sparse VMDK files.")
set(CPACK_RESOURCE_FILE_LICENSE "${CMAKE_CURRENT_SOURCE_DIR}/LICENSE")
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGE_DIRECTORY "${CMAKE_BINARY_DIR}/packages")
set(CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Loaded for an EWF image only; jq reads manifests.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "libewf2, jq")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/DebianLayout.cmake")

include(CPack)
