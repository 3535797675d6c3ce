# Installation (`cmake --install`, `make install`) and the Debian package
# (`cpack -G DEB`, `make deb`): the program, its manual page, its bash
# completion, and the README, the copyright file and the demo inputs as
# documentation.
include(GNUInstallDirs)
set(SORVANE_DOC_DIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/sorvane)
set(SORVANE_CONTACT "Sorvane maintainers <maintainers@users.noreply.c-seed-0240231f.example>")

# Manual pages and the Debian changelog are installed compressed, without a
# name or time stamp in the gzip header, so that the same text gives the same
# bytes. The manual page is remade with the program.
function(sorvane_gzip source output)
  add_custom_command(OUTPUT ${output} COMMAND gzip -9nc ${source} > ${output} DEPENDS ${source} VERBATIM)
endfunction()
sorvane_gzip(${PROJECT_SOURCE_DIR}/doc/sorvane.1 ${PROJECT_BINARY_DIR}/sorvane.1.gz)
add_custom_target(sorvane_manual DEPENDS ${PROJECT_BINARY_DIR}/sorvane.1.gz)
add_dependencies(sorvane sorvane_manual)

# The copyright file in Debian's machine-readable form, its licence text
# taken from LICENSE (from the permission notice on, one blank-led line per
# line, " ." for an empty one).
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/LICENSE)
file(READ ${PROJECT_SOURCE_DIR}/LICENSE SORVANE_LICENSE)
string(FIND "${SORVANE_LICENSE}" "Permission" SORVANE_NOTICE_START)
string(SUBSTRING "${SORVANE_LICENSE}" ${SORVANE_NOTICE_START} -1 SORVANE_NOTICE)
string(STRIP "${SORVANE_NOTICE}" SORVANE_NOTICE)
string(REPLACE "\n\n" "\n.\n" SORVANE_NOTICE "${SORVANE_NOTICE}")
string(REPLACE "\n" "\n " SORVANE_NOTICE "${SORVANE_NOTICE}")
file(WRITE ${PROJECT_BINARY_DIR}/copyright
"Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: Sorvane
Upstream-Contact: ${SORVANE_CONTACT}

Files: *
Copyright: 2026 Sorvane maintainers
License: Expat

License: Expat
 ${SORVANE_NOTICE}
")

install(TARGETS sorvane RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_BINARY_DIR}/sorvane.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES tools/completion/sorvane DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions)
install(FILES README.md ${PROJECT_BINARY_DIR}/copyright DESTINATION ${SORVANE_DOC_DIR})
install(FILES examples/demo.sf2 examples/demo_loop.wav examples/demo_collection.dls examples/demo_song.rmi
        DESTINATION ${SORVANE_DOC_DIR}/examples)

# The package's own changelog and lintian overrides go into the package only
# (cpack runs the script on its staging folder before it builds the package).
set(SORVANE_DEBIAN_REVISION 1)
configure_file(packaging/changelog.Debian.in ${PROJECT_BINARY_DIR}/changelog.Debian @ONLY)
sorvane_gzip(${PROJECT_BINARY_DIR}/changelog.Debian ${PROJECT_BINARY_DIR}/changelog.Debian.gz)
add_custom_target(sorvane_debian_changelog DEPENDS ${PROJECT_BINARY_DIR}/changelog.Debian.gz)
add_dependencies(sorvane sorvane_debian_changelog)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian-files.cmake)
set(CPACK_SORVANE_SOURCE_DIR ${PROJECT_SOURCE_DIR})
set(CPACK_SORVANE_CHANGELOG ${PROJECT_BINARY_DIR}/changelog.Debian.gz)
set(CPACK_SORVANE_DOC_DIR ${SORVANE_DOC_DIR})

set(CPACK_PACKAGE_NAME sorvane)
set(CPACK_PACKAGE_VENDOR "Sorvane maintainers")
set(CPACK_PACKAGE_CONTACT "${SORVANE_CONTACT}")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${SORVANE_CONTACT}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "convert instrument banks and loops into SFZ instruments")
set(CPACK_PACKAGE_DESCRIPTION "Sorvane converts one sample-based instrument bank per run into SFZ
instruments: SFZ text files plus the WAVE audio they play. It reads
SoundFont 2 and 1 banks, DLS collections, RMID songs that carry a
collection, and ACID-tagged WAV loops. With it comes sorvane-batch, which
converts a whole library several banks at once, each into a folder of its
own, with progress, a summary, a JSON report and shards for many machines.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${SORVANE_DEBIAN_REVISION})
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Runtime dependencies come from the libraries the program links (the C and
# C++ runtimes only).
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
include(CPack)
