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
    set(copy ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${dll})
    if(NOT EXISTS ${copy})
      file(COPY ${path} DESTINATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
      # Debian's have their debugging symbols, 20 MB of them.
      execute_process(COMMAND ${CMAKE_STRIP} --strip-unneeded ${copy})
    endif()
    list(APPEND kw_runtime_dlls ${copy})
  endif()
endforeach()
install(FILES ${kw_runtime_dlls} DESTINATION ${CMAKE_INSTALL_BINDIR})

# Windows 7 and a processor of this century: its vector registers also make doubles the 64 bits they are elsewhere.
add_compile_definitions(_WIN32_WINNT=0x0601)
add_compile_options(-msse2 -mfpmath=sse)

# kw_export_whole(target): also exports what the classes define inline. The compiler leaves that out, even where it
# has emitted it, so one source emits all of it and a module definition names it to the linker.
function(kw_export_whole target)
  add_library(KwExport OBJECT ${PROJECT_SOURCE_DIR}/Kw/KwExport.cpp)
  target_compile_definitions(KwExport PRIVATE KW_BUILDING)
  target_compile_options(KwExport PRIVATE -Os -fkeep-inline-functions)
  target_include_directories(KwExport PRIVATE ${PROJECT_SOURCE_DIR})
  kw_own_sources(KwExport)
  set(def ${PROJECT_BINARY_DIR}/Kw.def)
  add_custom_command(OUTPUT ${def}
    COMMAND ${CMAKE_COMMAND} -DNM=${CMAKE_NM} -DOBJECT=$<TARGET_OBJECTS:KwExport> -DDEF=${def}
      -P ${PROJECT_SOURCE_DIR}/cmake/KwExportDef.cmake
    DEPENDS KwExport $<TARGET_OBJECTS:KwExport> ${PROJECT_SOURCE_DIR}/cmake/KwExportDef.cmake VERBATIM)
  target_sources(${target} PRIVATE $<TARGET_OBJECTS:KwExport> ${def})
endfunction()
