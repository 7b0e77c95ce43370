#include "map_server/image/tiff_writer.h"

#include <tiffio.h>

#include <cstring>
#include <cstdio>
#include <limits>
#include <new>
#include <vector>

#include "map_server/image/tiff_support.h"
#include "map_server/util/paths.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

constexpr uint16_t kDeflateCompression = 32946;

// Tags and rows; false at the first failure.
bool WriteTiffContents(TIFF* tif, const uint8_t* pixels, uint32_t width, uint32_t height, int kind,
                       bool alpha, bool signed_samples) {
  const bool elevation = kind == kTiffElevationKind;
  const uint16_t samples = elevation ? 1 : (alpha ? 4 : 3);
  const uint16_t bits = elevation ? 16 : 8;
  const uint16_t photometric = elevation ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB;
  bool ok = TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, width) &&
            TIFFSetField(tif, TIFFTAG_IMAGELENGTH, height) &&
            TIFFSetField(tif, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT) &&
            TIFFSetField(tif, TIFFTAG_COMPRESSION, kDeflateCompression) &&
            TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, 1u) &&
            TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
            TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, samples) &&
            TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, bits) &&
            TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, photometric);
  if (ok && elevation && signed_samples) {
    ok = TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_INT);
  }
  if (ok && !elevation && alpha) {
    const uint16_t extra[1] = {EXTRASAMPLE_UNASSALPHA};
    ok = TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, extra);
  }
  if (!ok) return false;

  // libtiff may change the buffer it is given, so each row goes through a
  // copy of its own.
  const size_t row_bytes = static_cast<size_t>(width) * samples * (bits / 8);
  std::vector<uint8_t> row;
  try {
    row.resize(row_bytes);
  } catch (const std::bad_alloc&) {
    return false;
  }
  for (uint32_t y = 0; y < height; ++y) {
    std::memcpy(row.data(), pixels + y * row_bytes, row_bytes);
    if (TIFFWriteScanline(tif, row.data(), y, 0) < 0) return false;
  }
  return TIFFFlush(tif) != 0;
}

}  // namespace

bool VmpWriteTiff(std::FILE* stream, const std::string& path, const void* pixels, int64_t width,
                  int64_t height, int kind, bool alpha, bool signed_samples) {
  if (stream != nullptr) {
    Report(kInternalError, "Unexpected FILE* in VmpWriteTiff");
    return false;
  }
  const int64_t limit = std::numeric_limits<uint32_t>::max();
  if (pixels == nullptr || width < 1 || height < 1 || width > limit || height > limit) {
    Report(kError, "Error writing image file ", path);
    return false;
  }
  TiffMessages messages;
  TIFF* tif = OpenTiffForWriting(path, &messages);
  if (tif == nullptr) {
    Report(kError, "Could not be opened for writing", path);
    return false;
  }
  const bool written =
      WriteTiffContents(tif, static_cast<const uint8_t*>(pixels), static_cast<uint32_t>(width),
                        static_cast<uint32_t>(height), kind, alpha, signed_samples) &&
      TIFFFlush(tif) == 1;
  TIFFClose(tif);
  if (!written) {
    RemovePartialFile(path);  // no half-written tile left behind
    Report(kError, "Error writing image file ", path);
    if (Verbosity() >= 1 && messages.first_error[0] != '\0')
      Report(kInfo, path, messages.first_error);
    return false;
  }
  return true;
}

}  // namespace vmp
