// Names of tile files, shared by the tiling tools and the grid layers that
// serve their output.
//
// A name template is expanded once per number: the first "%" is replaced by
// the number in decimal, and a template without "%" gets the number
// appended. Tile (column, row) expands the column first, then the row, so
//   ExpandTileName("tile_%_%.jpg", 3, 5) == "tile_3_5.jpg"
//   ExpandTileName("tile_%.tvf", 3, 5)   == "tile_3.tvf5"
//   ExpandTileName("tile", 3, 5)         == "tile35"
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vmp {

// One expansion: `number` in place of the first "%", or appended.
std::string ExpandTileTemplate(std::string_view name_template, int64_t number);

// The name of tile (column, row): the template expanded with the column,
// then with the row.
std::string ExpandTileName(std::string_view name_template, int64_t column, int64_t row);

}  // namespace vmp
