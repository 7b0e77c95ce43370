// map_server: the map server (-generate) and the GIS data tools, one mode per run.
#include "map_server/driver/driver.h"

int main(int argc, char** argv) { return vmp::RunDriver(argc, argv); }
