// JPEG output through libjpeg (version 62 interface). The encoder settings
// are libjpeg's defaults with quality 85 and baseline tables; errors longjmp
// back into CompressImage, which holds no C++ objects with destructors.
#include "map_server/image/jpeg_writer.h"

#include <chrono>
#include <csetjmp>
#include <cstdio>
#include <cstring>

// jpeglib.h needs <cstdio> (FILE, size_t) before it.
#include <jpeglib.h>

#include "map_server/geometry/map_image.h"
#include "map_server/util/paths.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

constexpr int kJpegQuality = 85;
constexpr int64_t kMaxJpegSide = 65500;  // largest side libjpeg writes

struct JpegErrorManager {
  jpeg_error_mgr pub;  // first, so that cinfo->err can be cast back
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
};

[[noreturn]] void JpegErrorExit(j_common_ptr cinfo) {
  auto* err = reinterpret_cast<JpegErrorManager*>(cinfo->err);
  (*cinfo->err->format_message)(cinfo, err->message);
  std::longjmp(err->jump, 1);
}

void JpegOutputMessage(j_common_ptr) {}

bool CompressImage(jpeg_compress_struct* cinfo, JpegErrorManager* err, std::FILE* out,
                   const uint8_t* pixels, JDIMENSION width, JDIMENSION height) {
  if (setjmp(err->jump)) return false;
  jpeg_create_compress(cinfo);
  jpeg_stdio_dest(cinfo, out);
  cinfo->image_width = width;
  cinfo->image_height = height;
  cinfo->input_components = 3;
  cinfo->in_color_space = JCS_RGB;
  jpeg_set_defaults(cinfo);
  jpeg_set_quality(cinfo, kJpegQuality, TRUE);
  jpeg_start_compress(cinfo, TRUE);
  const size_t stride = static_cast<size_t>(width) * 3;
  while (cinfo->next_scanline < cinfo->image_height) {
    // libjpeg only reads the rows it is given.
    JSAMPROW row = const_cast<uint8_t*>(pixels) + cinfo->next_scanline * stride;
    jpeg_write_scanlines(cinfo, &row, 1);
  }
  jpeg_finish_compress(cinfo);
  return true;
}

}  // namespace

bool WriteMapJpeg(std::FILE* stream, const std::string& path, const uint8_t* pixels, int64_t width,
                  int64_t height) {
  const char* target = stream != nullptr ? "output stream" : path.c_str();
  if (pixels == nullptr || width < 1 || height < 1 || width > kMaxJpegSide ||
      height > kMaxJpegSide) {
    Report(kError, "Invalid image size for JPEG output", target);
    return false;
  }
  std::FILE* out = stream;
  if (out == nullptr) {
    out = std::fopen(path.c_str(), "wb");
    if (out == nullptr) {
      Report(kError, "Could not be opened for writing", path);
      return false;
    }
  }

  jpeg_compress_struct cinfo;
  std::memset(&cinfo, 0, sizeof(cinfo));
  JpegErrorManager err;
  std::memset(&err, 0, sizeof(err));
  cinfo.err = jpeg_std_error(&err.pub);
  err.pub.error_exit = JpegErrorExit;
  err.pub.output_message = JpegOutputMessage;
  const bool compressed = CompressImage(&cinfo, &err, out, pixels, static_cast<JDIMENSION>(width),
                                        static_cast<JDIMENSION>(height));
  jpeg_destroy_compress(&cinfo);
  if (!compressed) {
    Report(kError, "Error writing image file", stream != nullptr ? err.message : path.c_str());
    if (stream == nullptr) {
      std::fclose(out);
      RemovePartialFile(path);  // no half-written image left behind
    }
    return false;
  }

  if (stream != nullptr) {
    // A failed flush is reported; the image has been handed to the stream.
    if (std::fflush(stream) != 0) Report(kError, "Error writing image file");
    return true;
  }
  if (std::fclose(out) != 0) {
    RemovePartialFile(path);
    Report(kError, "Error writing image file", path);
    return false;
  }
  return true;
}

bool SaveMapImage(std::FILE* stream, const std::string& path, const MapImage& image) {
  const auto start = std::chrono::steady_clock::now();
  const bool written = WriteMapJpeg(stream, path, image.pixels(), image.width(), image.height());
  if (Verbosity() <= -2) {
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    ReportNumber(kInfo, "Map image saving time", elapsed.count());
  }
  return written;
}

}  // namespace vmp
