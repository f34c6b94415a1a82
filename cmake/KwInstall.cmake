# Headers, library, find_package(Kw) and Kw.pc.
include(CMakePackageConfigHelpers)

install(TARGETS Kw EXPORT KwTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
# The headers that Kw.h brings; the rest are the sources' own.
set(kw_internal
  KwCalendar
  KwDBRTAccess
  KwDBRTData
  KwDBRTNameMap
  KwDBRTWriter
  KwDataBlocks
  KwDataFile
  KwDataParser
  KwDataSearchBlocks
  KwDataSearchStore
  KwDataWalk
  KwElfFormat
  KwElfImage
  KwEventTimeUnit
  KwFileWriter
  KwFormatNumber
  KwFormatSink
  KwFormatSpec
  KwGuardedCall
  KwHashMask
  KwIniIndex
  KwIniPreserve
  KwIniScan
  KwIniStore
  KwKeyRow
  KwKeyRowSearch
  KwListenEvent
  KwLogData
  KwLogLine
  KwLogQueue
  KwLogRotation
  KwMemoryBlock
  KwMemoryState
  KwModuleChain
  KwNetAsio
  KwNetClientWork
  KwNetDatagramIo
  KwNetDatagramWork
  KwNetFrame
  KwNetIo
  KwNetLink
  KwNetLoop
  KwNetServerWork
  KwNetTls
  KwNetWork
  KwMsSqlHandles
  KwMsSqlText
  KwMySqlCalls
  KwMySqlText
  KwNrv2b
  KwPackCache
  KwPackIndex
  KwPackLayout
  KwPackLock
  KwPackRequests
  KwPackScratch
  KwPeImage
  KwPackSpans
  KwPackTable
  KwResTable
  KwSQLText
  KwStaticLock
  KwStrText
  KwTableScan
  KwTableScanKernel
  KwTableScanSets
  KwTick
  KwUtfCode
  KwUtfKernel
)
list(TRANSFORM kw_internal APPEND "\\.h")
list(JOIN kw_internal "|" kw_internal)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/Kw DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h" PATTERN "Platform" EXCLUDE REGEX "/(${kw_internal})$" EXCLUDE)
install(EXPORT KwTargets NAMESPACE Kw:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Kw)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/KwConfig.cmake.in ${PROJECT_BINARY_DIR}/KwConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Kw)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KwConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KwConfig.cmake ${PROJECT_BINARY_DIR}/KwConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Kw)

# Relative to the file's own place, so that the tree can be installed and moved anywhere.
file(RELATIVE_PATH kw_pc_to_prefix /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/Kw.pc.in ${PROJECT_BINARY_DIR}/Kw.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/Kw.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
