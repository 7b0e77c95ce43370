// Colours of image layer samples: elevation colouring and pixel maps.
//
// Elevation layers (ElevationMode, 16-bit elevation tiles):
// - COLOR (2): each elevation is coloured through the layer's "PIXEL MAP="
//   thresholds when it has them (input VMP_D elevations, output VMP_G
//   colours, 0..1 a channel; the entry chosen as SelectThreshold chooses for
//   D inputs: the last entry whose input is at most the elevation), and
//   otherwise through a hypsometric ramp for elevations in metres (deep blue
//   at -11000 to pale blue just below 0; green at 0 through yellow and
//   brown to grey at 4500 and white from 6000), interpolated between its
//   stops.
// - DATA AS COLOR (3): the 16-bit sample itself as the colour, unchanged:
//   red its high byte, green its low byte, blue 0 (signed samples by their
//   two's-complement bits), so that clients can read the data back from the
//   image. Never interpolated.
// The no-data sample of signed tiles (-32768) is transparent.
//
// Colour images with a "PIXEL MAP=" (input and output VMP_G): a pixel whose
// colour lies within half a step (of 255) of an entry's input on every
// channel, the first such of the entries before the last, takes that entry's
// output; any other pixel takes the last entry's output. Output colours are
// taken x 255 and truncated, as layer colours are.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "map_server/rendering/tile_sampler.h"
#include "map_server/vector/typed_value.h"

namespace vmp {

// ElevationMode values.
enum ElevationMode : int32_t {
  kElevationNone = 0,
  kElevationData = 1,
  kElevationColour = 2,
  kElevationDataAsColour = 3,
};

// The hypsometric ramp's colour of an elevation (metres).
SampledColour HypsometricColour(double elevation);

// The colour of a threshold output (0..1 a channel).
SampledColour ThresholdColour(const TypedValue& output);

// The colour of every 16-bit elevation (signed and unsigned), looked up per
// sample. Rebuilt only when what it is built from changes.
class ElevationPalette {
 public:
  // `table`: the pixel map, or null for the ramp. With `key`, colours
  // within `tolerance` (0..255 scale) of `key_colour` on every channel are
  // made transparent.
  void Build(const ThresholdTable* table, bool key, const double key_colour[3], double tolerance);

  SampledColour Colour(uint16_t raw, bool is_signed) const {
    const int64_t value = is_signed ? static_cast<int16_t>(raw) : raw;
    return colours_[static_cast<size_t>(value + 32768)];
  }

 private:
  std::vector<SampledColour> colours_;  // by elevation + 32768
  bool built_ = false;
  bool has_table_ = false;
  ThresholdTable table_;  // a copy: the layer's table may be replaced at the same address
  bool key_ = false;
  double key_colour_[3] = {0, 0, 0};
  double tolerance_ = 0;
};

// A colour image's pixel map.
class PixelMapper {
 public:
  void Build(const ThresholdTable& table);
  SampledColour Map(SampledColour c) const {
    if (c.r == last_in_.r && c.g == last_in_.g && c.b == last_in_.b && has_last_) {
      return {last_out_.r, last_out_.g, last_out_.b, c.a};
    }
    SampledColour out = fallback_;
    for (const Entry& e : entries_) {
      if (std::fabs(e.in[0] - c.r) <= 0.5 && std::fabs(e.in[1] - c.g) <= 0.5 && std::fabs(e.in[2] - c.b) <= 0.5) {
        out = e.out;
        break;
      }
    }
    has_last_ = true;
    last_in_ = c;
    last_out_ = out;
    return {out.r, out.g, out.b, c.a};
  }

 private:
  struct Entry {
    double in[3];  // 0..255
    SampledColour out;
  };
  std::vector<Entry> entries_;
  SampledColour fallback_{0, 0, 0, 255};
  mutable bool has_last_ = false;
  mutable SampledColour last_in_{0, 0, 0, 0};
  mutable SampledColour last_out_{0, 0, 0, 0};
};

}  // namespace vmp
