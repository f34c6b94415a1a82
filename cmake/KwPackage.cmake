# cpack --preset win32: a zip to unpack anywhere, with all that a host needs to be built and to run.
install(FILES ${PROJECT_SOURCE_DIR}/docs/windows.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md DESTINATION .)
if(KW_WITH_UCL)
  # Its code is inside Kw.dll.
  install(FILES ${KW_UCL_INCLUDE}/../licences/UCL-COPYING.txt DESTINATION licences OPTIONAL)
endif()

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_NAME Kw)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_PACKAGE_FILE_NAME Kw-${PROJECT_VERSION}-win32)
set(CPACK_STRIP_FILES ON)
include(CPack)
