// The images of the standard GetMap answer: the map cut out of the map
// image, its transparency, image exceptions, and the JPEG and PNG encoding.
//
// Transparency: the renderer draws onto an opaque background, so a
// transparent map is drawn twice, over black and over white. A pixel that
// no layer touched shows the two backgrounds (alpha 0); one drawn opaquely
// is the same in both (alpha 255); one blended with alpha a over the
// background shows a * colour + (1 - a) * background in each, so the
// difference white - black is (1 - a) * 255 and the colour is black / a.
// This is exact for opaque and alpha-blended drawing; for the kinds that mix
// with what lies below in other ways (alpha white or black, XOR, bump map)
// the alpha is taken from the channel the background changes most.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "map_server/geometry/map_image.h"
#include "map_server/wms/wms_request.h"

namespace vmp {

struct WmsImage {
  int64_t width = 0;
  int64_t height = 0;
  bool has_alpha = false;
  std::vector<uint8_t> pixels;  // RGB or RGBA, rows from the top, no padding
};

// The width x height pixels of `image` from (x, y). False when the image
// does not hold them.
bool CropMapImage(const MapImage& image, int64_t x, int64_t y, int64_t width, int64_t height,
                  WmsImage& out);

// RGBA from the same map drawn over black and over white (see above);
// pixels with alpha 0 take the colour `clear`.
WmsImage CombineOverBlackAndWhite(const WmsImage& over_black, const WmsImage& over_white,
                                  const std::array<uint8_t, 3>& clear);

// A BLANK exception: the request's size in BGCOLOR, wholly transparent
// when a transparent PNG is asked for.
WmsImage BlankImage(const WmsRequest& request);

// An INIMAGE exception: the blank image with `message` written on it
// (wrapped to the width, in black or white, whichever shows on BGCOLOR).
WmsImage MessageImage(const WmsRequest& request, const std::string& message);

// "image/jpeg" or "image/png".
const char* ImageContentType(WmsImageFormat format);

// Encodes `image` as JPEG (the map encoder: baseline, quality 85; an alpha
// channel is dropped) or PNG (8-bit RGB or RGBA). False after reporting.
bool EncodeImage(const WmsImage& image, WmsImageFormat format, std::string& out);

}  // namespace vmp
