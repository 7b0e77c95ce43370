# Third-party libraries, found the standard way. Everything is linked into
# one interface target so that every executable proves the whole tool chain.
find_package(PkgConfig REQUIRED)
find_package(JPEG REQUIRED)
find_package(PNG REQUIRED)
find_package(TIFF REQUIRED)
find_package(Freetype REQUIRED)
find_package(ZLIB REQUIRED)
find_package(Threads REQUIRED)
pkg_check_modules(SHAPELIB REQUIRED IMPORTED_TARGET shapelib)

# The JPEG code is written against the version 62 interface.
include(CheckCSourceCompiles)
set(CMAKE_REQUIRED_INCLUDES ${JPEG_INCLUDE_DIRS})
check_c_source_compiles("
#include <stdio.h>
#include <jpeglib.h>
#if JPEG_LIB_VERSION != 62
#error not the version 62 interface
#endif
int main(void) { return 0; }" VMP_JPEG_IS_62)
unset(CMAKE_REQUIRED_INCLUDES)
if(NOT VMP_JPEG_IS_62)
  message(FATAL_ERROR "libjpeg with the version 62 interface is required (Debian: libjpeg62-turbo-dev)")
endif()

add_library(vmp_third_party INTERFACE)
target_link_libraries(vmp_third_party INTERFACE
  JPEG::JPEG PNG::PNG TIFF::TIFF Freetype::Freetype ZLIB::ZLIB
  PkgConfig::SHAPELIB Threads::Threads)

if(VMP_TESTS)
  find_package(GTest REQUIRED)
endif()
if(VMP_BENCHMARKS AND NOT VMP_SANITIZE)
  find_package(benchmark QUIET)
endif()
