# Windows: programs and DLLs in one folder, with the compiler's shared runtime beside them: exceptions and
# strings cross the border of Kw.dll.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(kw_runtime_dlls)
foreach(dll libstdc++-6.dll libgcc_s_dw2-1.dll libwinpthread-1.dll)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${dll}
    OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT IS_ABSOLUTE "${path}")
    set(path /usr/i686-w64-mingw32/lib/${dll})
  endif()
  if(EXISTS ${path})
    file(COPY ${path} DESTINATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
    list(APPEND kw_runtime_dlls ${path})
  endif()
endforeach()
install(FILES ${kw_runtime_dlls} DESTINATION ${CMAKE_INSTALL_BINDIR})
