# Warnings for every first-party target; ZOLO_WERROR turns them into errors (CI sets it).
function(zolo_warnings target)
  # GCC's -Wshadow=local; clang has no such level and gets -Wshadow-uncaptured-local.
  set(shadow $<IF:$<CXX_COMPILER_ID:GNU>,-Wshadow=local,-Wshadow-uncaptured-local>)
  target_compile_options(${target} PRIVATE -Wall -Wextra ${shadow} -Wformat=2
                                           -Wno-format-nonliteral -Wnon-virtual-dtor
                                           $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>)
  if(ZOLO_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
