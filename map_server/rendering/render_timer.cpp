#include "map_server/rendering/render_timer.h"

#include "toolkit/message_log.h"

namespace vmp {

double RenderTimer::Seconds() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

void RenderTimer::Finish() {
  if (finished_) return;
  finished_ = true;
  if (Verbosity() <= -2) ReportNumber(kInfo, name_, Seconds());
}

}  // namespace vmp
