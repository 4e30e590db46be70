# Warnings for every first-party target; ZOLO_WERROR turns them into errors (CI sets it).
function(zolo_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow=local -Wformat=2
                                           -Wno-format-nonliteral -Wnon-virtual-dtor
                                           $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>)
  if(ZOLO_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
