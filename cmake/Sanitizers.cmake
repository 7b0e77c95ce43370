# AddressSanitizer + UndefinedBehaviorSanitizer for the whole build, and
# coverage instrumentation for libFuzzer when fuzz targets are built.
if(VMP_SANITIZE)
  set(VMP_SANITIZER_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_compile_options(${VMP_SANITIZER_FLAGS})
  add_link_options(${VMP_SANITIZER_FLAGS})
endif()

if(VMP_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(STATUS "VMP_FUZZ needs clang; fuzz targets are not built")
    set(VMP_FUZZ OFF)
  else()
    add_compile_options(-fsanitize=fuzzer-no-link)
  endif()
endif()
