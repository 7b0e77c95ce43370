// Cutting one image into a grid of equally sized tile images (JPEG or TIFF).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vmp {

// Colour of the pixels of an edge tile that lie outside the image.
struct TileFillColour {
  uint8_t red = 0;
  uint8_t green = 0;
  uint8_t blue = 0;
  uint8_t alpha = 0;  // used by tiles with an alpha channel
  bool operator==(const TileFillColour&) const = default;
};

// Process-wide settings of the image tiler.
struct ImageTilerSettings {
  // The fill colour of padded colour tiles (elevation tiles pad with 0).
  // Fixed the first time it is needed (TileFill) from the environment
  // variable VMP_TILE_FILL_COLOR: "red,green,blue" or "red,green,blue,alpha",
  // each 0..255 (blanks may stand for the commas). Unset: black with alpha 0,
  // so that padding is transparent in tiles that have alpha. Tests set it
  // back to nullopt to make the next use read the variable again.
  std::optional<TileFillColour> fill_colour;
};

ImageTilerSettings& ImageTiler();

// The fill colour, fixed on first use. A variable that cannot be read is
// reported as a warning and the default is used.
TileFillColour TileFill();

// "r,g,b" or "r,g,b,a" with values 0..255 (alpha 0 when not given).
std::optional<TileFillColour> ParseTileFillColour(std::string_view text);

// Cuts `input` (JPEG, TIFF or PNG; with `elevation` a 16-bit TIFF) into
// num_x x num_y tiles of TileSpan(width, num_x) x TileSpan(height, num_y)
// pixels, column by column. Tile (i, j) is written to the template expanded
// with i and then j (ExpandTileName): a ".jpg" ending writes JPEG, ".tif"
// TIFF, ".png" is refused before anything is read, and any other ending
// keeps the input's type. Colour tiles are RGB, or RGBA in TIFF for an input
// with alpha; elevation tiles keep the input's 16-bit samples (signed stay
// signed). Every `progress`-th tile prints "Writing tile #%d" on standard
// output (0: never). A tile that cannot be written makes the result false;
// the remaining tiles are still written.
bool TileImage(const std::string& input, const std::string& output_template, int64_t num_x,
               int64_t num_y, bool elevation, int64_t progress);

}  // namespace vmp
