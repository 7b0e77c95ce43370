#include "map_server/rendering/raster_style.h"

#include <cmath>

#include "map_server/rendering/pixel_colour.h"
#include "map_server/vector/attribute_map.h"

namespace vmp {

namespace {

struct RampStop {
  double elevation;
  uint8_t r, g, b;
};

constexpr RampStop kRamp[] = {
    {-11000, 8, 16, 64},    {-6000, 16, 48, 112},  {-2000, 40, 96, 160},  {-200, 96, 150, 200},
    {-1, 150, 200, 230},    {0, 72, 136, 72},      {200, 120, 168, 88},   {500, 184, 192, 112},
    {1000, 200, 168, 104},  {2000, 168, 120, 80},  {3000, 136, 96, 72},   {4500, 200, 200, 200},
    {6000, 255, 255, 255},
};

uint8_t Mix(uint8_t a, uint8_t b, double t) { return StoreChannel(a + (b - a) * t + 0.5); }

bool WithinKey(const SampledColour& c, const double key[3], double tolerance) {
  return std::fabs(c.r - key[0]) <= tolerance && std::fabs(c.g - key[1]) <= tolerance &&
         std::fabs(c.b - key[2]) <= tolerance;
}

}  // namespace

SampledColour HypsometricColour(double elevation) {
  constexpr size_t n = sizeof kRamp / sizeof kRamp[0];
  if (!(elevation > kRamp[0].elevation)) return {kRamp[0].r, kRamp[0].g, kRamp[0].b, 255};
  for (size_t i = 1; i < n; ++i) {
    if (elevation <= kRamp[i].elevation) {
      const RampStop& a = kRamp[i - 1];
      const RampStop& b = kRamp[i];
      const double t = (elevation - a.elevation) / (b.elevation - a.elevation);
      return {Mix(a.r, b.r, t), Mix(a.g, b.g, t), Mix(a.b, b.b, t), 255};
    }
  }
  return {kRamp[n - 1].r, kRamp[n - 1].g, kRamp[n - 1].b, 255};
}

SampledColour ThresholdColour(const TypedValue& output) {
  return {StoreChannel(output.numbers[0] * 255.0), StoreChannel(output.numbers[1] * 255.0),
          StoreChannel(output.numbers[2] * 255.0), 255};
}

void ElevationPalette::Build(const ThresholdTable* table, bool key, const double key_colour[3],
                             double tolerance) {
  if (built_ && has_table_ == (table != nullptr) && (table == nullptr || *table == table_) && key_ == key &&
      (!key || (key_colour_[0] == key_colour[0] && key_colour_[1] == key_colour[1] &&
                key_colour_[2] == key_colour[2] && tolerance_ == tolerance))) {
    return;
  }
  built_ = true;
  has_table_ = table != nullptr;
  if (table != nullptr) table_ = *table;
  key_ = key;
  for (int i = 0; i < 3; ++i) key_colour_[i] = key_colour[i];
  tolerance_ = tolerance;
  colours_.resize(65536 + 32768);
  const bool use_table = table != nullptr && !table->empty() && table->front().input.type == ValueType::kDouble;
  for (size_t i = 0; i < colours_.size(); ++i) {
    const double elevation = static_cast<double>(i) - 32768.0;
    SampledColour c;
    if (use_table) {
      const Threshold* chosen = SelectThreshold(*table, TypedValue::Double(elevation));
      c = chosen != nullptr ? ThresholdColour(chosen->output) : SampledColour{0, 0, 0, 0};
    } else {
      c = HypsometricColour(elevation);
    }
    if (key && WithinKey(c, key_colour, tolerance)) c.a = 0;
    colours_[i] = c;
  }
  colours_[0] = {0, 0, 0, 0};  // the signed no-data sample
}

void PixelMapper::Build(const ThresholdTable& table) {
  entries_.clear();
  has_last_ = false;
  fallback_ = table.empty() ? SampledColour{0, 0, 0, 255} : ThresholdColour(table.back().output);
  for (size_t i = 0; i + 1 < table.size(); ++i) {
    const auto& in = table[i].input.numbers;
    entries_.push_back({{in[0] * 255.0, in[1] * 255.0, in[2] * 255.0}, ThresholdColour(table[i].output)});
  }
}

}  // namespace vmp
