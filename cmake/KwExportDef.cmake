# Writes a module definition with what the object given defines of the library's classes:
#   cmake -DNM=nm -DOBJECT=file -DDEF=file -P KwExportDef.cmake
# The compiler exports what it emits of an exported class, except for operations defined inside the class.
execute_process(COMMAND ${NM} --defined-only ${OBJECT} OUTPUT_VARIABLE symbols RESULT_VARIABLE failed)
if(failed)
  message(FATAL_ERROR "${NM} failed on ${OBJECT}")
endif()
string(REGEX MATCHALL "[0-9a-f]+ [TRV] [^\n\r]+" lines "${symbols}")
set(text "EXPORTS\n")
foreach(line IN LISTS lines)
  string(REGEX REPLACE "^[0-9a-f]+ [TRV] _" "" name "${line}")
  if(name MATCHES "^_ZNK?[0-9]+(Kw|CKw|CBKw|SKw|CNet|ICBNet|IKwNet|SNet|CMTMSSQL|CMTMYSQL|CMySqlLib|CTestProssTime)" AND NOT name MATCHES "^_ZN10KwPlatform")
    string(APPEND text "  ${name}\n")
  endif()
endforeach()
file(WRITE ${DEF} "${text}")
