# Developer warnings for our own targets.
function(vmp_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow -Wno-unused-parameter)
endfunction()
