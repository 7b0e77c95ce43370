// PNG output goes through libpng, whose error function longjmps back into
// WritePngRows; that function holds no C++ objects with destructors.
#include "map_server/wms/wms_image.h"

#include <png.h>

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "map_server/image/jpeg_writer.h"
#include "map_server/rendering/draw_surface.h"
#include "map_server/service/map_service.h"
#include "map_server/text/text_decode.h"
#include "map_server/text/text_painter.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

constexpr int kPngCompression = 6;
constexpr double kMessageMargin = 4.0;  // pixels around an image exception's text

size_t Channels(const WmsImage& image) { return image.has_alpha ? 4 : 3; }

WmsImage Filled(int64_t width, int64_t height, const std::array<uint8_t, 3>& rgb, bool alpha) {
  WmsImage image;
  image.width = width;
  image.height = height;
  image.has_alpha = alpha;
  const size_t channels = Channels(image);
  image.pixels.resize(static_cast<size_t>(width * height) * channels);
  for (size_t k = 0; k < image.pixels.size(); k += channels) {
    std::memcpy(&image.pixels[k], rgb.data(), 3);
    if (alpha) image.pixels[k + 3] = 0;
  }
  return image;
}

// --- PNG ---

void ReportPngWriteError(png_const_charp message) {
  Report(kError, "Error writing PNG image", message != nullptr ? message : "");
}

[[noreturn]] void PngWriteError(png_structp png, png_const_charp message) {
  ReportPngWriteError(message);
  png_longjmp(png, 1);
}

void PngWriteWarning(png_structp, png_const_charp) {}

void PngAppend(png_structp png, png_bytep data, png_size_t length) {
  static_cast<std::string*>(png_get_io_ptr(png))->append(reinterpret_cast<const char*>(data), length);
}

void PngFlush(png_structp) {}

bool WritePngRows(png_structp png, png_infop info, const uint8_t* pixels, png_uint_32 width,
                  png_uint_32 height, bool alpha) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_set_IHDR(png, info, width, height, 8, alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_set_compression_level(png, kPngCompression);
  png_write_info(png, info);
  const size_t stride = static_cast<size_t>(width) * (alpha ? 4 : 3);
  for (png_uint_32 y = 0; y < height; ++y) {
    png_write_row(png, const_cast<png_bytep>(pixels + y * stride));
  }
  png_write_end(png, info);
  return true;
}

bool EncodePng(const WmsImage& image, std::string& out) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, PngWriteError, PngWriteWarning);
  if (png == nullptr) {
    Report(kError, "Error writing PNG image", "out of memory");
    return false;
  }
  png_infop info = png_create_info_struct(png);
  bool ok = false;
  if (info != nullptr) {
    png_set_write_fn(png, &out, PngAppend, PngFlush);
    ok = WritePngRows(png, info, image.pixels.data(), static_cast<png_uint_32>(image.width),
                      static_cast<png_uint_32>(image.height), image.has_alpha);
  }
  png_destroy_write_struct(&png, &info);
  return ok;
}

// --- JPEG, through the map encoder into memory ---

bool EncodeJpeg(const WmsImage& image, std::string& out) {
  std::vector<uint8_t> rgb;
  const uint8_t* pixels = image.pixels.data();
  if (image.has_alpha) {
    rgb.resize(static_cast<size_t>(image.width * image.height) * 3);
    for (size_t p = 0, q = 0; q < rgb.size(); p += 4, q += 3) std::memcpy(&rgb[q], &image.pixels[p], 3);
    pixels = rgb.data();
  }
  char* buffer = nullptr;
  size_t size = 0;
  std::FILE* stream = open_memstream(&buffer, &size);
  if (stream == nullptr) {
    Report(kError, "Error writing JPEG image", "cannot open a memory stream");
    return false;
  }
  const bool ok = WriteMapJpeg(stream, "", pixels, image.width, image.height);
  std::fclose(stream);  // sets buffer and size
  if (ok) out.assign(buffer, size);
  std::free(buffer);
  return ok;
}

// --- Image exceptions ---

// Lines of `message` that fit `max_width` pixels when laid out.
std::u32string WrapText(TextPainter& painter, const LoadedFont& font, const TextStyle& style,
                        const std::string& message, double max_width) {
  std::u32string text, line, candidate, word;
  TextBlock block;
  std::u32string decoded;
  DecodeText(message, TextEncoding::kUtf8, decoded);
  auto flush_word = [&] {
    if (word.empty()) return;
    candidate = line.empty() ? word : line + U" " + word;
    if (!line.empty() && painter.Layout(font, candidate, style, nullptr, block) && block.width > max_width) {
      text += line + U"\n";
      line = word;
    } else {
      line = candidate;
    }
    word.clear();
  };
  for (char32_t c : decoded) {
    if (c == U' ' || c == U'\n' || c == U'\t') {
      flush_word();
    } else {
      word += c;
    }
  }
  flush_word();
  return text + line;
}

void WriteMessage(WmsImage& image, const std::array<uint8_t, 3>& ink, const std::string& message) {
  MapImage canvas;
  try {
    canvas.Resize(image.width, image.height);
  } catch (const std::bad_alloc&) {
    Report(kError, "Not enough memory for the exception image");
    return;
  }
  const size_t channels = Channels(image);
  for (size_t p = 0, q = 0; q < canvas.size_bytes(); p += channels, q += 3) {
    std::memcpy(canvas.pixels() + q, &image.pixels[p], 3);
  }
  MapGeometry geometry;
  geometry.projection = kRectangularProjection;
  geometry.width = image.width;
  geometry.height = image.height;
  geometry.max_x = image.width - 1;
  geometry.max_y = image.height - 1;
  DrawSurface surface(&canvas, geometry);

  const Dataset fonts_only("WmsMessages");  // no fonts of its own: the bundled ones
  const LoadedFont* font =
      Service().text_engine().ResolveFont(fonts_only, std::string("roman"), Service().font_library());
  if (font == nullptr) return;
  TextStyle style;
  style.text_type = kTextFlat;
  style.anchor = kAnchorHLeft + kAnchorVTop;
  style.font_scale = 1.2;
  style.colour = PixelColour{ink[0], ink[1], ink[2], 1.0, kTransOpaque};
  TextPainter painter;
  TextBlock block;
  const std::u32string text =
      WrapText(painter, *font, style, message, static_cast<double>(image.width) - 2 * kMessageMargin);
  if (!painter.Layout(*font, text, style, nullptr, block)) return;
  const TextPlacement placement = PlaceText(block, kMessageMargin, kMessageMargin, FlatFrame(0.0), style.anchor);
  painter.Draw(surface, block, placement, style, nullptr);

  for (size_t p = 0, q = 0; q < canvas.size_bytes(); p += channels, q += 3) {
    const uint8_t* drawn = canvas.pixels() + q;
    if (image.has_alpha && std::memcmp(drawn, &image.pixels[p], 3) != 0) image.pixels[p + 3] = 255;
    std::memcpy(&image.pixels[p], drawn, 3);
  }
}

}  // namespace

bool CropMapImage(const MapImage& image, int64_t x, int64_t y, int64_t width, int64_t height, WmsImage& out) {
  if (x < 0 || y < 0 || width < 1 || height < 1 || x + width > image.width() || y + height > image.height() ||
      image.pixels() == nullptr) {
    return false;
  }
  out = WmsImage{width, height, false, {}};
  out.pixels.resize(static_cast<size_t>(width * height) * 3);
  const size_t row = static_cast<size_t>(width) * 3;
  for (int64_t r = 0; r < height; ++r) {
    std::memcpy(&out.pixels[static_cast<size_t>(r) * row], image.pixels() + ((y + r) * image.width() + x) * 3, row);
  }
  return true;
}

WmsImage CombineOverBlackAndWhite(const WmsImage& over_black, const WmsImage& over_white,
                                  const std::array<uint8_t, 3>& clear) {
  WmsImage out{over_black.width, over_black.height, true, {}};
  const size_t count = static_cast<size_t>(out.width * out.height);
  out.pixels.resize(count * 4);
  for (size_t n = 0; n < count; ++n) {
    const uint8_t* b = &over_black.pixels[n * 3];
    const uint8_t* w = &over_white.pixels[n * 3];
    uint8_t* o = &out.pixels[n * 4];
    int shows = 0;  // how much of the background shows through, 0..255
    for (int c = 0; c < 3; ++c) shows = std::max(shows, static_cast<int>(w[c]) - static_cast<int>(b[c]));
    const int alpha = 255 - shows;
    o[3] = static_cast<uint8_t>(alpha);
    for (int c = 0; c < 3; ++c) {
      o[c] = alpha == 0 ? clear[c] : static_cast<uint8_t>(std::min(255, (b[c] * 255 + alpha / 2) / alpha));
    }
  }
  return out;
}

WmsImage BlankImage(const WmsRequest& request) {
  const bool alpha = request.transparent && request.format == WmsImageFormat::kPng;
  WmsImage image = Filled(request.width, request.height, request.bgcolor, alpha);
  return image;
}

WmsImage MessageImage(const WmsRequest& request, const std::string& message) {
  WmsImage image = BlankImage(request);
  const auto& bg = request.bgcolor;
  const int luminance = (299 * bg[0] + 587 * bg[1] + 114 * bg[2]) / 1000;
  const std::array<uint8_t, 3> ink = luminance < 128 ? std::array<uint8_t, 3>{255, 255, 255}
                                                     : std::array<uint8_t, 3>{0, 0, 0};
  WriteMessage(image, ink, message);
  return image;
}

const char* ImageContentType(WmsImageFormat format) {
  return format == WmsImageFormat::kPng ? "image/png" : "image/jpeg";
}

bool EncodeImage(const WmsImage& image, WmsImageFormat format, std::string& out) {
  out.clear();
  return format == WmsImageFormat::kPng ? EncodePng(image, out) : EncodeJpeg(image, out);
}

}  // namespace vmp
