// shp2tvf: the shapefile converter as a program of its own, with the same
// options as "map_server -shp2tvf".
#include <string>
#include <vector>

#include "shp2tvf/shp2tvf.h"

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + (argc > 0 ? 1 : 0), argv + argc);
  return vmp::Shp2TvfMain(args);
}
