// The timing lines of a render, printed (Info) at verbosity -2 or less.
#pragma once

#include <chrono>

namespace vmp {

// Names of the timing lines, one per stage of a render.
inline constexpr const char* kTileClippingTime = "Tile clipping time";
inline constexpr const char* kBgLayersSetupTime = "BG layers setup time";
inline constexpr const char* kImageLayersTime = "Image layer(s) rendering time";
inline constexpr const char* kGridLayerTime = "Grid layer rendering time";
inline constexpr const char* kVectorLayerTime = "Vector layer rendering time";
inline constexpr const char* kBackgroundLayerTime = "Background layer rendering time";
inline constexpr const char* kOutlineLayerTime = "Outline layer rendering time";
inline constexpr const char* kTotalRenderTime = "Total map rendering time";

// Measures from construction; reports "<name>: <seconds>" when destroyed
// (or at Finish) if the verbosity is -2 or less at that time.
class RenderTimer {
 public:
  explicit RenderTimer(const char* name) : name_(name), start_(std::chrono::steady_clock::now()) {}
  ~RenderTimer() { Finish(); }
  RenderTimer(const RenderTimer&) = delete;
  RenderTimer& operator=(const RenderTimer&) = delete;

  double Seconds() const;
  // Reports now; later calls and the destructor report nothing more.
  void Finish();

 private:
  const char* name_;
  std::chrono::steady_clock::time_point start_;
  bool finished_ = false;
};

}  // namespace vmp
