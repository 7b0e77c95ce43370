// Slimming a TVF file (the "-slim" tool): every polygon point is snapped to
// a square grid of the given resolution, consecutive points on the same
// grid node are merged, and polygons left with fewer than two distinct
// points are dropped. Markers and attributes pass through unchanged.
#pragma once

#include <cstdio>
#include <string>

namespace vmp {

// v / r, rounded half away from zero to a whole number, times r. Values too
// large for a 64-bit whole number are truncated in floating point instead.
double SnapToGrid(double value, double resolution);

// Slims `input` (TVF, or a shapefile by its ".shp" name) into `output` in
// the current TVF output encoding and prints the point and polygon report
// on `report`. A resolution that is not above zero is refused. The output
// replaces an earlier file of its name only once it is complete.
bool SlimTvfFile(const std::string& input, const std::string& output, double resolution,
                 FILE* report = stdout);

}  // namespace vmp
