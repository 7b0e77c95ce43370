// Shapefiles made by the tests with shapelib: a geometry file of one shape
// type and a table whose rows are given as text.
#pragma once

#include <shapefil.h>

#include <string>
#include <utility>
#include <vector>

namespace vmp::test {

struct FieldSpec {
  std::string name;
  DBFFieldType type;
  int width = 12;
  int decimals = 0;
};

// One shape: its parts (each a list of x, y) and its row; an empty text is
// a null value.
struct ShapeSpec {
  std::vector<std::vector<std::pair<double, double>>> parts;
  std::vector<std::string> row;
  int type = -1;  // -1: the file's type
};

inline ShapeSpec PointShape(double x, double y, std::vector<std::string> row, int type = -1) {
  return {{{{x, y}}}, std::move(row), type};
}

// Writes `base`.shp/.shx/.dbf and returns base + ".shp" ("" on failure).
inline std::string WriteShapefile(const std::string& base, int shape_type,
                                  const std::vector<FieldSpec>& fields,
                                  const std::vector<ShapeSpec>& shapes) {
  SHPHandle shp = SHPCreate(base.c_str(), shape_type);
  DBFHandle dbf = DBFCreate(base.c_str());
  if (shp == nullptr || dbf == nullptr) return "";
  for (const FieldSpec& f : fields) DBFAddField(dbf, f.name.c_str(), f.type, f.width, f.decimals);
  for (int s = 0; s < static_cast<int>(shapes.size()); ++s) {
    std::vector<int> starts;
    std::vector<double> x, y, z;
    for (const auto& part : shapes[s].parts) {
      starts.push_back(static_cast<int>(x.size()));
      for (auto [px, py] : part) x.push_back(px), y.push_back(py), z.push_back(99.0);  // a Z no output may carry
    }
    SHPObject* o = SHPCreateObject(shapes[s].type >= 0 ? shapes[s].type : shape_type, -1,
                                   static_cast<int>(starts.size()), starts.data(), nullptr,
                                   static_cast<int>(x.size()), x.data(), y.data(), z.data(), nullptr);
    SHPWriteObject(shp, -1, o);
    SHPDestroyObject(o);
    for (int k = 0; k < static_cast<int>(fields.size()); ++k) {
      const std::string v = k < static_cast<int>(shapes[s].row.size()) ? shapes[s].row[k] : "";
      // Written as text, so a number field can hold a word.
      if (v.empty()) DBFWriteNULLAttribute(dbf, s, k);
      else DBFWriteAttributeDirectly(dbf, s, k, const_cast<char*>(v.c_str()));
    }
  }
  SHPClose(shp);
  DBFClose(dbf);
  return base + ".shp";
}

}  // namespace vmp::test
