// Makes synthetic shapefiles for bench/vector_tools.sh, and counts the
// vertices of a shapefile.
//
//   bench_make_shapefile polygons BASE POINTS   polygons of 100 vertices in 2 rings
//   bench_make_shapefile points BASE POINTS     one point record per point
//   bench_make_shapefile count FILE.shp         prints records and vertices
//
// Every record carries a name (string), an id (integer) and a value
// (double). Coordinates are spread over the world, deterministic.
#include <shapefil.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int kRingPoints = 50;

int Usage() {
  std::fputs("usage: bench_make_shapefile polygons|points BASE POINTS\n"
             "       bench_make_shapefile count FILE.shp\n",
             stderr);
  return 2;
}

int Count(const char* file) {
  SHPHandle shp = SHPOpen(file, "rb");
  if (shp == nullptr) return 1;
  int records = 0;
  SHPGetInfo(shp, &records, nullptr, nullptr, nullptr);
  long long vertices = 0;
  for (int i = 0; i < records; ++i) {
    SHPObject* o = SHPReadObject(shp, i);
    if (o != nullptr) vertices += o->nVertices;
    SHPDestroyObject(o);
  }
  SHPClose(shp);
  std::printf("%d %lld\n", records, vertices);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::string(argv[1]) == "count") return Count(argv[2]);
  if (argc != 4) return Usage();
  const std::string kind = argv[1];
  const bool polygons = kind == "polygons";
  if (!polygons && kind != "points") return Usage();
  const long points = std::atol(argv[3]);
  SHPHandle shp = SHPCreate(argv[2], polygons ? SHPT_POLYGON : SHPT_POINT);
  DBFHandle dbf = DBFCreate(argv[2]);
  if (shp == nullptr || dbf == nullptr || points <= 0) return 1;
  DBFAddField(dbf, "NAME", FTString, 24, 0);
  DBFAddField(dbf, "ID", FTInteger, 10, 0);
  DBFAddField(dbf, "VALUE", FTDouble, 16, 4);

  std::mt19937_64 random(42);
  std::uniform_real_distribution<double> lon(-175, 175), lat(-85, 85), radius(0.05, 2.0);
  const long records = polygons ? points / (2 * kRingPoints) : points;
  std::vector<double> x, y;
  for (long r = 0; r < records; ++r) {
    x.clear();
    y.clear();
    SHPObject* o = nullptr;
    const double cx = lon(random), cy = lat(random), outer = radius(random);
    if (polygons) {
      // An outer ring (clockwise) and a hole (counter-clockwise), closed.
      const int starts[2] = {0, kRingPoints};
      for (int ring = 0; ring < 2; ++ring) {
        const double rr = ring == 0 ? outer : outer / 3;
        for (int k = 0; k < kRingPoints; ++k) {
          const double a = 2 * M_PI * (k % (kRingPoints - 1)) / (kRingPoints - 1);
          const double s = ring == 0 ? -1 : 1;
          x.push_back(cx + rr * std::cos(s * a));
          y.push_back(cy + rr * std::sin(s * a));
        }
      }
      o = SHPCreateObject(SHPT_POLYGON, -1, 2, starts, nullptr, static_cast<int>(x.size()),
                          x.data(), y.data(), nullptr, nullptr);
    } else {
      x.push_back(cx);
      y.push_back(cy);
      o = SHPCreateSimpleObject(SHPT_POINT, 1, x.data(), y.data(), nullptr);
    }
    SHPWriteObject(shp, -1, o);
    SHPDestroyObject(o);
    const int record = static_cast<int>(r);
    const std::string name = "feature " + std::to_string(r);
    DBFWriteStringAttribute(dbf, record, 0, name.c_str());
    DBFWriteIntegerAttribute(dbf, record, 1, record);
    DBFWriteDoubleAttribute(dbf, record, 2, outer * 1000);
  }
  SHPClose(shp);
  DBFClose(dbf);
  return 0;
}
