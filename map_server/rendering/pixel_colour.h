// Colours as the pixel writer takes them, and the per-channel arithmetic of
// the transparency kinds.
#pragma once

#include <cstdint>

#include "map_server/dataset/param_tables.h"

namespace vmp {

// Transparency kinds (a layer's TransType).
enum TransType : int64_t {
  kTransOpaque = 0,
  kTransAlphaWhite = 1,
  kTransAlphaBlack = 2,
  kTransXor = 3,
  kTransBumpMap = 4,
  kTransColourOpaque = 5,  // opaque, with a transparent colour for image samples
};

inline bool IsKnownTransType(int64_t kind) { return kind >= kTransOpaque && kind <= kTransColourOpaque; }

// A colour handed to the pixel writer: 0..255 channels, an alpha (0 to 1)
// and the transparency kind that combines it with the pixel underneath.
struct PixelColour {
  uint8_t red = 0;
  uint8_t green = 0;
  uint8_t blue = 0;
  double alpha = 1.0;
  int64_t trans_type = kTransOpaque;
};

// A value truncated toward zero and clamped to 0..255 (NaN gives 0).
inline uint8_t StoreChannel(double value) {
  if (!(value > 0.0)) return 0;
  if (value >= 255.0) return 255;
  return static_cast<uint8_t>(value);
}

// A record colour (0..255 doubles) with the layer's alpha and kind.
inline PixelColour MakePixelColour(const Rgb& rgb, double alpha, int64_t trans_type) {
  return {StoreChannel(rgb.red), StoreChannel(rgb.green), StoreChannel(rgb.blue), alpha, trans_type};
}

// The new value of one channel: p the old value, c the colour's, a the
// alpha, all in double precision as the formulas are written. Kind must be
// known (0..5); the caller handles alpha 0 (nothing drawn).
template <int64_t Kind>
inline uint8_t BlendChannel(uint8_t old_value, uint8_t colour_value, double a) {
  const double p = old_value;
  const double c = colour_value;
  if constexpr (Kind == kTransOpaque || Kind == kTransColourOpaque) {
    if (a == 1.0) return colour_value;  // copied without arithmetic
    return StoreChannel(p * (1.0 - a) + c * a);
  } else if constexpr (Kind == kTransAlphaWhite) {
    return StoreChannel((1.0 - c * a / 255.0) * p + c * a);
  } else if constexpr (Kind == kTransAlphaBlack) {
    return StoreChannel((p - c + 255.0) * (c * a) / 255.0 + p * (1.0 - a));
  } else if constexpr (Kind == kTransXor) {
    const double x = static_cast<double>(colour_value ^ old_value);
    return StoreChannel(x * a + p * (1.0 - a));
  } else {
    static_assert(Kind == kTransBumpMap);
    return StoreChannel((p - c + 127.5) * a + p * (1.0 - a));
  }
}

// Writes the colour into one RGB pixel.
template <int64_t Kind>
inline void BlendPixel(uint8_t* pixel, uint8_t r, uint8_t g, uint8_t b, double a) {
  pixel[0] = BlendChannel<Kind>(pixel[0], r, a);
  pixel[1] = BlendChannel<Kind>(pixel[1], g, a);
  pixel[2] = BlendChannel<Kind>(pixel[2], b, a);
}

// The same with the kind chosen at run time; false for an unknown kind
// (nothing written).
inline bool BlendPixelOfKind(int64_t kind, uint8_t* pixel, uint8_t r, uint8_t g, uint8_t b,
                             double a) {
  switch (kind) {
    case kTransOpaque: BlendPixel<kTransOpaque>(pixel, r, g, b, a); return true;
    case kTransAlphaWhite: BlendPixel<kTransAlphaWhite>(pixel, r, g, b, a); return true;
    case kTransAlphaBlack: BlendPixel<kTransAlphaBlack>(pixel, r, g, b, a); return true;
    case kTransXor: BlendPixel<kTransXor>(pixel, r, g, b, a); return true;
    case kTransBumpMap: BlendPixel<kTransBumpMap>(pixel, r, g, b, a); return true;
    case kTransColourOpaque: BlendPixel<kTransColourOpaque>(pixel, r, g, b, a); return true;
    default: return false;
  }
}

}  // namespace vmp
