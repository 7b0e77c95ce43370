#include "map_server/service/map_output.h"

#include "map_server/image/jpeg_writer.h"
#include "toolkit/message_log.h"

namespace vmp {

bool WriteMapAnswer(const MapImage& image, bool cgi, const std::optional<std::string>& output,
                    std::FILE* standard_output) {
  bool saved = false;
  std::string where;
  if (cgi) {
    std::fputs("Content-Type: image/jpeg\n\n", standard_output);
    saved = SaveMapImage(standard_output, "", image);
  } else if (output && *output == "-") {
    saved = SaveMapImage(standard_output, "", image);
  } else if (output) {
    where = *output;
    saved = SaveMapImage(nullptr, *output, image);
  }
  if (Verbosity() >= 2) {
    const char* message = saved ? "Saved image" : "Error saving image";
    if (where.empty())
      Report(kInfo, message);
    else
      Report(kInfo, message, where);
  }
  return saved;
}

}  // namespace vmp
