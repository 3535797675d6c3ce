# Installation (`cmake --install`, `make install`) and the Debian package
# (`cpack -G DEB`, `make deb`): the program, its manual page, and the README
# with the demo inputs as documentation.
include(GNUInstallDirs)
set(SORVANE_DOC_DIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/sorvane)

install(TARGETS sorvane RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES doc/sorvane.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES README.md DESTINATION ${SORVANE_DOC_DIR})
install(FILES examples/demo.sf2 examples/demo_loop.wav examples/demo_collection.dls examples/demo_song.rmi
        DESTINATION ${SORVANE_DOC_DIR}/examples)

set(CPACK_PACKAGE_NAME sorvane)
set(CPACK_PACKAGE_VENDOR "Sorvane developers")
set(CPACK_PACKAGE_CONTACT "Sorvane developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "convert instrument banks and loops into SFZ instruments")
set(CPACK_PACKAGE_DESCRIPTION "Sorvane converts one sample-based instrument bank per run into SFZ
instruments: SFZ text files plus the WAVE audio they play. It reads
SoundFont 2 and 1 banks, DLS collections, RMID songs that carry a
collection, and ACID-tagged WAV loops.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
# Runtime dependencies come from the libraries the program links (the C and
# C++ runtimes only).
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
include(CPack)
