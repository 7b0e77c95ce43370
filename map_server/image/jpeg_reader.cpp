// JPEG tiles through libjpeg (version 62 interface). libjpeg reports errors
// by calling error_exit, which must not return: ours longjmps back into the
// small functions below. Those functions hold no C++ objects with
// destructors, so the jump skips nothing that needs cleaning up.
#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstring>

// jpeglib.h needs <cstdio> (FILE, size_t) before it.
#include <jpeglib.h>

#include "map_server/image/image_decoders.h"
#include "map_server/image/image_loader.h"
#include "map_server/image/image_settings.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

// More scans than any sensible progressive file has; a file claiming more
// would take very long to decode.
constexpr int kMaxJpegScans = 500;

struct JpegErrorManager {
  jpeg_error_mgr pub;  // first, so that cinfo->err can be cast back
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
  const char* path;
};

JpegErrorManager* ErrorManagerOf(j_common_ptr cinfo) {
  return reinterpret_cast<JpegErrorManager*>(cinfo->err);
}

[[noreturn]] void JpegErrorExit(j_common_ptr cinfo) {
  JpegErrorManager* err = ErrorManagerOf(cinfo);
  (*cinfo->err->format_message)(cinfo, err->message);
  std::longjmp(err->jump, 1);
}

// libjpeg's warnings (corrupt data that it can decode around) are shown only
// to a verbose log.
void JpegOutputMessage(j_common_ptr cinfo) {
  if (Verbosity() < 1) return;
  char text[JMSG_LENGTH_MAX];
  (*cinfo->err->format_message)(cinfo, text);
  Report(kWarning, ErrorManagerOf(cinfo)->path, text);
}

void JpegProgress(j_common_ptr cinfo) {
  if (!cinfo->is_decompressor) return;
  if (reinterpret_cast<j_decompress_ptr>(cinfo)->input_scan_number <= kMaxJpegScans) return;
  JpegErrorManager* err = ErrorManagerOf(cinfo);
  std::snprintf(err->message, sizeof(err->message), "more than %d scans", kMaxJpegScans);
  std::longjmp(err->jump, 1);
}

bool JpegReadHeader(jpeg_decompress_struct* cinfo, jpeg_progress_mgr* progress, std::FILE* file,
                    long max_memory, const ImageDecodeHint& hint) {
  if (setjmp(ErrorManagerOf(reinterpret_cast<j_common_ptr>(cinfo))->jump)) return false;
  jpeg_create_decompress(cinfo);
  // Progressive files keep all coefficients in memory; keep that within a
  // few times the decoded size limit (libjpeg fails beyond it).
  cinfo->mem->max_memory_to_use = max_memory;
  cinfo->progress = progress;
  jpeg_stdio_src(cinfo, file);
  jpeg_read_header(cinfo, TRUE);
  const int scale = DecodeScaleFor(hint, cinfo->image_width, cinfo->image_height);
  if (scale > 1) {
    cinfo->scale_num = 1;
    cinfo->scale_denom = static_cast<unsigned int>(scale);
  }
  jpeg_calc_output_dimensions(cinfo);
  return true;
}

bool JpegStart(jpeg_decompress_struct* cinfo) {
  if (setjmp(ErrorManagerOf(reinterpret_cast<j_common_ptr>(cinfo))->jump)) return false;
  jpeg_start_decompress(cinfo);
  return true;
}

// Reads rows [first, end) into `out`, skipping the rows before them;
// decoding stops after the last.
bool JpegReadRows(jpeg_decompress_struct* cinfo, uint8_t* out, size_t stride, JDIMENSION first,
                  JDIMENSION end) {
  if (setjmp(ErrorManagerOf(reinterpret_cast<j_common_ptr>(cinfo))->jump)) return false;
  if (first > 0 && jpeg_skip_scanlines(cinfo, first) != first) return false;
  while (cinfo->output_scanline < end) {
    JSAMPROW row = out + static_cast<size_t>(cinfo->output_scanline - first) * stride;
    if (jpeg_read_scanlines(cinfo, &row, 1) != 1) return false;
  }
  return true;
}

// Destroys the decompressor on every way out of ReadJpegFile.
struct DecompressorGuard {
  jpeg_decompress_struct* cinfo;
  ~DecompressorGuard() { jpeg_destroy_decompress(cinfo); }
};

void ReportJpegFailure(const std::string& path, const char* libjpeg_message) {
  Report(kError, "Error reading JPEG image", path);
  if (Verbosity() >= 1 && libjpeg_message[0] != '\0') Report(kInfo, path, libjpeg_message);
}

}  // namespace

bool ReadJpegFile(std::FILE* file, const std::string& path, LoadedImage& image,
                  const ImageDecodeHint& hint) {
  jpeg_decompress_struct cinfo;
  std::memset(&cinfo, 0, sizeof(cinfo));
  JpegErrorManager err;
  std::memset(&err, 0, sizeof(err));
  err.path = path.c_str();
  cinfo.err = jpeg_std_error(&err.pub);
  err.pub.error_exit = JpegErrorExit;
  err.pub.output_message = JpegOutputMessage;
  jpeg_progress_mgr progress;
  std::memset(&progress, 0, sizeof(progress));
  progress.progress_monitor = JpegProgress;
  DecompressorGuard guard{&cinfo};

  const int64_t limit = ImageFiles().max_image_bytes;
  const long max_memory = limit > (int64_t{1} << 60) ? 0 : static_cast<long>(limit * 3);
  if (!JpegReadHeader(&cinfo, &progress, file, max_memory, hint)) {
    ReportJpegFailure(path, err.message);
    return false;
  }
  const int components = cinfo.output_components;
  if (components != 1 && components != 3) {
    // CMYK and YCCK files decode to 4 samples that are not RGBA.
    ReportNumber(kError, "Unsupported JPEG color space", path, components);
    return false;
  }
  const int scale = static_cast<int>(cinfo.scale_denom / cinfo.scale_num);
  const DecodeRows rows = DecodeRowsFor(hint, cinfo.image_height, scale);
  const auto end = std::min(static_cast<JDIMENSION>(rows.end), cinfo.output_height);
  const auto first = std::min(static_cast<JDIMENSION>(rows.first), end - 1);
  if (!AllocateLoadedImage(path, cinfo.output_width, end - first, components, 1, image)) return false;
  if (!JpegStart(&cinfo) || !JpegReadRows(&cinfo, image.pixels.data(),
                                          static_cast<size_t>(cinfo.output_width) * components, first, end)) {
    ReportJpegFailure(path, err.message);
    return false;
  }
  image.format = kJpegFormat;
  image.width = cinfo.output_width;
  image.height = end - first;
  image.first_row = first;
  image.samples_per_pixel = components;
  image.has_alpha = false;
  image.scale = scale;
  image.source_width = cinfo.image_width;
  image.source_height = cinfo.image_height;
  return true;
}

}  // namespace vmp
