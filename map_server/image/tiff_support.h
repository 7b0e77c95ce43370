// Opening TIFF files through libtiff with the program's own error and
// warning handling.
#pragma once

#include <tiffio.h>

#include <cstdio>
#include <string>

namespace vmp {

// Collects what libtiff says about one file: the first error's text (shown
// to a verbose log after the program's own message) and, at verbosity 1 and
// above, its warnings.
struct TiffMessages {
  char first_error[512] = {0};
};

// Reads the TIFF from an open file (libtiff never closes it). Null when
// libtiff cannot read the header; the first error is in `messages`.
TIFF* OpenTiffForReading(std::FILE* file, const std::string& path, TiffMessages* messages);
TIFF* OpenTiffForWriting(const std::string& path, TiffMessages* messages);

// Installs the program's libtiff warning handler once per process when the
// image settings ask for it.
void InstallTiffWarningHandlerOnce();

// Closes a TIFF when it goes out of scope.
struct TiffCloser {
  TIFF* tif;
  ~TiffCloser() {
    if (tif != nullptr) TIFFClose(tif);
  }
};

}  // namespace vmp
