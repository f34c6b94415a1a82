# kw_own_sources(target): the warnings, sanitizers and instrumentation of everything built here.
function(kw_own_sources target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wshadow -Wconversion -Wno-sign-conversion -Wnon-virtual-dtor -Wold-style-cast -Wcast-align
    $<$<BOOL:${KW_WERROR}>:-Werror>)
  if(KW_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${KW_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(${target} PRIVATE -fsanitize=${KW_SANITIZE})
  endif()
  if(KW_COVERAGE)
    target_compile_options(${target} PRIVATE --coverage)
    target_link_options(${target} PRIVATE --coverage)
  endif()
endfunction()
