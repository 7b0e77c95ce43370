// PNG tiles through libpng. libpng reports errors through our error
// function, which longjmps back into the small functions below; those hold
// no C++ objects with destructors, so the jump skips nothing that needs
// cleaning up.
#include <png.h>

#include <csetjmp>
#include <cstdio>
#include <string>

#include "map_server/image/image_decoders.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

struct PngHeader {
  png_uint_32 width = 0;
  png_uint_32 height = 0;
  int bit_depth = 0;
  int color_type = 0;
  bool has_trns = false;
  size_t file_row_bytes = 0;  // before any transformation
};

struct PngOutput {
  int channels = 0;
  size_t row_bytes = 0;  // after the transformations
  int passes = 1;
};

// Kept out of PngError so that its strings are gone before the longjmp.
void ReportPngError(png_const_charp message) {
  kav::KavError("Error reading PNG file.", kError);
  if (Verbosity() >= 1 && message != nullptr) kav::KavError(message, kInfo);
}

[[noreturn]] void PngError(png_structp png, png_const_charp message) {
  ReportPngError(message);
  png_longjmp(png, 1);
}

void PngWarning(png_structp, png_const_charp message) {
  if (Verbosity() >= 1 && message != nullptr) kav::KavError(message, kWarning);
}

bool PngReadHeader(png_structp png, png_infop info, std::FILE* file, PngHeader* header) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_init_io(png, file);
  png_read_info(png, info);
  png_get_IHDR(png, info, &header->width, &header->height, &header->bit_depth, &header->color_type,
               nullptr, nullptr, nullptr);
  header->has_trns = png_get_valid(png, info, PNG_INFO_tRNS) != 0;
  header->file_row_bytes = png_get_rowbytes(png, info);
  return true;
}

// 16-bit samples become 8-bit, palettes and low bit depths are expanded,
// transparency becomes an alpha channel, and gray with alpha becomes RGBA:
// the result is gray, RGB or RGBA with 8-bit samples.
bool PngSetTransforms(png_structp png, png_infop info, const PngHeader& header, PngOutput* out) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_set_strip_16(png);
  const bool gray = header.color_type == PNG_COLOR_TYPE_GRAY;
  if (header.color_type == PNG_COLOR_TYPE_GRAY_ALPHA || (gray && header.has_trns)) {
    png_set_gray_to_rgb(png);
  }
  png_set_packing(png);
  png_set_expand(png);
  out->passes = png_set_interlace_handling(png);
  png_read_update_info(png, info);
  out->channels = png_get_channels(png, info);
  out->row_bytes = png_get_rowbytes(png, info);
  return true;
}

bool PngReadRows(png_structp png, uint8_t* pixels, size_t stride, png_uint_32 height, int passes) {
  if (setjmp(png_jmpbuf(png))) return false;
  for (int pass = 0; pass < passes; ++pass) {
    for (png_uint_32 y = 0; y < height; ++y) png_read_row(png, pixels + y * stride, nullptr);
  }
  return true;
}

// Samples a pixel by the header's colour type; 0 for a type not supported.
int SamplesForColorType(int color_type) {
  switch (color_type) {
    case PNG_COLOR_TYPE_GRAY:
      return 1;
    case PNG_COLOR_TYPE_RGB:
      return 3;
    case PNG_COLOR_TYPE_PALETTE:
      return 1;
    case PNG_COLOR_TYPE_GRAY_ALPHA:
      return 4;
    case PNG_COLOR_TYPE_RGB_ALPHA:
      return 4;
    default:
      return 0;
  }
}

struct ReadStructGuard {
  png_structp png;
  png_infop info;
  ~ReadStructGuard() { png_destroy_read_struct(&png, info ? &info : nullptr, nullptr); }
};

}  // namespace

bool ReadPngFile(std::FILE* file, const std::string& path, LoadedImage& image) {
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, PngError, PngWarning);
  if (png == nullptr) {
    kav::KavError("Error reading PNG file.", kError);
    return false;
  }
  ReadStructGuard guard{png, png_create_info_struct(png)};
  if (guard.info == nullptr) {
    kav::KavError("Error reading PNG file.", kError);
    return false;
  }

  PngHeader header;
  if (!PngReadHeader(png, guard.info, file, &header)) return false;
  const int samples = SamplesForColorType(header.color_type);
  if (samples == 0) {
    kav::KavError("Unsupported PNG color format.", kError);
    return false;
  }
  // A file of byte samples must have rows of the colour type's sample count:
  // this admits 8-bit gray, RGB, RGBA and palette files. Files of 1, 2, 4 or
  // 16 bits a sample are judged by their decoded rows below.
  if (header.bit_depth == 8 && header.file_row_bytes != static_cast<size_t>(samples) * header.width) {
    kav::KavError("PNG row size mismatch.", kInternalError);
    return false;
  }

  PngOutput out;
  if (!PngSetTransforms(png, guard.info, header, &out)) return false;
  // The decoded layout decides the image's samples (a palette decodes to
  // RGB, or RGBA with transparency); rows must be exactly that wide.
  if ((out.channels != 1 && out.channels != 3 && out.channels != 4) ||
      out.row_bytes != static_cast<size_t>(out.channels) * header.width) {
    kav::KavError("PNG row size mismatch.", kInternalError);
    return false;
  }
  if (!AllocateLoadedImage(path, header.width, header.height, out.channels, 1, image)) return false;
  if (!PngReadRows(png, image.pixels.data(), out.row_bytes, header.height, out.passes))
    return false;

  image.format = kPngFormat;
  image.width = header.width;
  image.height = header.height;
  image.samples_per_pixel = out.channels;
  image.has_alpha = out.channels >= 4;
  return true;
}

}  // namespace vmp
