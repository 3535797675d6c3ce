# Run by cpack on its staging folder before it builds the package: adds the
# files only the package carries, its changelog and its lintian overrides.
set(root ${CPACK_TEMPORARY_DIRECTORY}${CPACK_PACKAGING_INSTALL_PREFIX})
set(readable FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
file(COPY ${CPACK_SORVANE_CHANGELOG} DESTINATION ${root}/${CPACK_SORVANE_DOC_DIR} ${readable})
file(COPY ${CPACK_SORVANE_SOURCE_DIR}/packaging/lintian-overrides DESTINATION ${root}/share/lintian/overrides ${readable})
file(RENAME ${root}/share/lintian/overrides/lintian-overrides ${root}/share/lintian/overrides/sorvane)
