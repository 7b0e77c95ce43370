#include "map_server/geometry/conversions.h"

#include "toolkit/message_log.h"

namespace vmp {

void ReportUnsupportedProjection() {
  Report(kError, "Only support orthographic and rectangular projections for now");
}

}  // namespace vmp
