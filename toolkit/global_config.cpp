#include "toolkit/global_config.h"

namespace kav {

GlobalConfig& Config() {
  static GlobalConfig config;
  return config;
}

}  // namespace kav
