// The shapefile converter ("map_server -shp2tvf") on shapefiles made here and
// on a real one: record layout, attribute numbering and types, labels,
// closing, skipped shapes, winding counts, command lines, file lists,
// directories, filter mode and the table listing; and the TVF loader reading
// shapefiles through it.
#include <gtest/gtest.h>

#include <shapefil.h>

#include <cstdio>
#include <string>
#include <vector>

#include "map_server/vector/tvf_reader.h"
#include "tests/shp2tvf/shapefile_builder.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_dir.h"
#include "tests/tools/tools_test_support.h"
#include "toolkit/strings.h"

namespace vmp {
namespace {

using test::FieldSpec;
using test::PointShape;
using test::Points;
using test::RunResult;
using Args = std::vector<std::string>;

RunResult Shp2Tvf(Args args) {
  args.insert(args.begin(), "-shp2tvf");
  return test::RunMapServer(args);
}

struct Converted {
  RunResult run;
  VectorData data;
};

// Converts `shp` to standard output ("-filter") with `args` and reads the TVF.
Converted Convert(Args args, const std::string& shp) {
  args.insert(args.begin(), "-filter");
  args.push_back(shp);
  Converted c{Shp2Tvf(args), {}};
  EXPECT_EQ(c.run.status, 0) << c.run.err;
  EXPECT_TRUE(test::LoadBytes(c.run.out, c.data));
  return c;
}

// Per record "flag:points" (polygons) or "m<type>:<label>" (markers), then
// its attributes "index=value", strings quoted.
std::string Describe(const VectorData& data) {
  std::string text;
  for (const auto& f : data.features) {
    if (const PolygonFeature* p = f->AsPolygon()) text += kav::StrPrintf("%d:%zu", f->flag, p->points.size());
    else text += kav::StrPrintf("m%u:%s", f->AsMarker()->marker_type, f->AsMarker()->label.value_or("-").c_str());
    for (const Attribute& a : f->attributes) {
      const bool string = a.value.type == ValueType::kString;
      text += string ? kav::StrPrintf(" %lld='%s'", static_cast<long long>(a.index), a.value.text.value_or("-").c_str())
                     : kav::StrPrintf(" %lld=%g", static_cast<long long>(a.index), a.value.numbers[0]);
    }
    text += "; ";
  }
  return text;
}

std::string MakeShapefile(const test::TempDir& dir, const std::string& name) {
  return test::WriteShapefile(dir / name, SHPT_ARC, {{"NAME", FTString}, {"N", FTInteger}},
                              {{{{{0, 0}, {1, 1}}}, {name, "3"}}});
}

const Points kSquare = {{0, 0}, {0, 1}, {1, 1}, {1, 0}};  // clockwise
const Points kHole = {{0.2, 0.2}, {0.8, 0.2}, {0.8, 0.8}, {0.2, 0.8}};  // counter-clockwise
const Points kFar = {{5, 5}, {5, 6}, {6, 6}};

// Selected fields are numbered in selection order; numbers that cannot be
// read become -1 (whatever the message says); logical fields 1 or 0.
TEST(Shp2TvfTest, FieldsAndLabels) {
  test::TempDir dir;
  const std::string shp = test::WriteShapefile(
      dir / "n", SHPT_POINTZ, {{"NAME", FTString}, {"POP", FTDouble, 12, 2}, {"OK", FTLogical, 1}, {"N", FTInteger}},
      {PointShape(1.5, -2.25, {"Paris", "12.5", "T", "42"}), PointShape(0, 0, {"", "lots", "y", "1"}),
       PointShape(0, 0, {"c", "-3", "F", "2"}), PointShape(0, 0, {"d", "7", "", "3"})});
  const std::string all = "m0:- 0='Paris' 1=12.5 2=1 3=42; m0:- 0='' 1=-1 2=1 3=1; m0:- 0='c' 1=-3 2=0 3=2; "
                          "m0:- 0='d' 1=7 2=0 3=3; ";
  const std::string lots = shp + ": Can't convert attribute value <lots> to double, using -1000.\n";
  const struct {
    Args args;
    std::string records, err;
  } cases[] = {
      {{}, all, lots},
      {{"-attr", "3", "-attr", "1", "-attr", "0", "-marker-label-attr", "0"},
       "m1:Paris 0=42 1=12.5 2='Paris'; m1: 0=1 1=-1 2=''; m1:c 0=2 1=-3 2='c'; m1:d 0=3 1=7 2='d'; ", lots},
      {{"-no-attrs"}, "m0:-; m0:-; m0:-; m0:-; ", ""},
      {{"-attr", "2", "-all-attrs"}, all, "Warning: Ignoring -attr used with -no-attrs or -all-attrs!\n" + lots},
  };
  for (const auto& c : cases) {
    const Converted r = Convert(c.args, shp);
    EXPECT_EQ(Describe(r.data), c.records);
    EXPECT_EQ(r.run.err, c.err);
  }
  EXPECT_EQ(test::Geometry(Convert({}, shp).data)[0], (Points{{1.5, -2.25}}));
}

TEST(Shp2TvfTest, PartsBecomeRecordsWithContinuationFlags) {
  test::TempDir dir;
  const std::vector<FieldSpec> fields = {{"NAME", FTString}};
  const std::string polygons = test::WriteShapefile(dir / "poly", SHPT_POLYGONZ, fields,
                                                    {{{kSquare, kHole, kFar}, {"three"}}, {{kFar}, {"one"}}});
  const std::string arcs = test::WriteShapefile(dir / "arc", SHPT_ARC, fields, {{{kSquare, kFar}, {"two"}}});
  const struct {
    Args args;
    std::string shp, records;
  } cases[] = {
      {{"-a"}, polygons, "1:4 0='three'; 1:4 0='three'; 0:3 0='three'; 0:3 0='one'; "},
      {{"-b", "-close-polygons"}, polygons, "1:5 0='three'; 1:5 0='three'; 0:4 0='three'; 0:4 0='one'; "},
      {{"-close-polygons"}, arcs, "1:4 0='two'; 0:3 0='two'; "},  // arcs are never closed
  };
  for (const auto& c : cases) EXPECT_EQ(Describe(Convert(c.args, c.shp).data), c.records) << c.args[0];
  Points closed = kHole;
  closed.push_back(kHole.front());
  EXPECT_EQ(test::Geometry(Convert({"-close-polygons"}, polygons).data)[1], closed);
}

TEST(Shp2TvfTest, SkippedShapesAndWindingCounts) {
  test::TempDir dir;
  const std::string shp = test::WriteShapefile(dir / "m", SHPT_ARC, {{"NAME", FTString}},
                                               {{{kFar}, {"a"}}, {{}, {"n"}, SHPT_NULL}, {{kFar}, {"b"}}});
  const std::string multi = test::WriteShapefile(dir / "mp", SHPT_MULTIPOINTZ, {{"NAME", FTString}}, {{{kFar}, {"m"}}});
  Converted c = Convert({}, shp);
  EXPECT_EQ(c.data.FeatureCount(), 2);
  EXPECT_EQ(c.run.err, "Skipping unknown feature type\n");
  c = Convert({}, multi);
  EXPECT_EQ(c.data.FeatureCount(), 0);
  EXPECT_EQ(c.run.err, "Skipping a multipoint\n");
  EXPECT_EQ(Convert({"-suppress-warnings"}, shp).run.err, "");

  const Points ccw_square(kSquare.rbegin(), kSquare.rend()), cw_hole(kHole.rbegin(), kHole.rend());
  const std::string wound = test::WriteShapefile(
      dir / "w", SHPT_POLYGON, {{"N", FTInteger}},
      {{{kSquare, kHole}, {"1"}}, {{ccw_square, cw_hole}, {"2"}}, {{kSquare, cw_hole}, {"3"}}});
  EXPECT_EQ(Convert({"-validate"}, wound).run.err,
            wound + ": 2 rings wound in the wrong direction\n" + wound + ": 1 rings wound in the wrong direction\n" +
                wound + ": 2 object has invalid ring ordering\n");

  std::remove((dir / "m.dbf").c_str());
  const RunResult r = Shp2Tvf({"-filter", shp});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, shp + ": DBFOpen failed, is the DBF file missing?\nErrors processing file " + shp + "\n");
}

TEST(Shp2TvfTest, CommandLineFaults) {
  test::TempDir dir;
  const std::string a = MakeShapefile(dir, "a"), b = MakeShapefile(dir, "b");
  Args many;
  for (int k = 0; k < 1001; ++k) many.insert(many.end(), {"-attr", "0"});
  const struct {
    Args args;
    std::string err;  // start of standard error
  } cases[] = {
      {{"-output", dir / "o.tvf", a, b}, "More than one input file: can't use -output option.\n"},
      {{"-b", "-r"}, "Missing shapefiles or directories list to convert.\n\nUsage:"},
      {{"-attr"}, "Missing value after -attr\n"},
      {{"-attr", "-1", a}, "Invalid attr index after -attr\n"},
      {{"-marker-label-attr", "x", a}, "Invalid attr index after -marker-label-attr\n"},
      {{"-verbosity", "v", a}, "Invalid verbosity value\n"},
      {{dir.path()},
       "Non-recursive mode, skipping directory: " + dir.path() + "\n######### ERRORS PROCESSING SOME OF THE FILES.\n"},
      // Fields that cannot be used stop the tool at once.
      {{"-attr", "9", a, b}, a + ": Invalid attribute index=9\n"},
      {{"-marker-label-attr", "1", a, b}, a + ": Marker label attr must be of FTString type!\n"},
      {{"-marker-label-attr", "2", a, b}, a + ": Marker label attr index is greater than num shp attrs.\n"},
      {many, "Too many attributes!\n"},
  };
  for (const auto& c : cases) {
    const RunResult r = Shp2Tvf(c.args);
    EXPECT_EQ(r.status, 1) << c.err;
    EXPECT_EQ(r.err.substr(0, c.err.size()), c.err) << r.err;
    EXPECT_EQ(r.out, "");
  }
  EXPECT_FALSE(test::FileExists(dir / "o.tvf") || test::FileExists(a + ".tvf") || test::FileExists(b + ".tvf"));
}

TEST(Shp2TvfTest, ListsDirectoriesAndFilters) {
  test::TempDir dir;
  const std::string a = MakeShapefile(dir, "a");
  dir.Write("sub/notes.txt", "not a shapefile");
  const std::string c = test::WriteShapefile(dir / "sub/c", SHPT_POINT, {{"NAME", FTString}},
                                             {test::PointShape(5, 6, {"c"})});
  RunResult r = Shp2Tvf({"-r", "-progress", "1", "-pattern", "*.shp", "-a", dir.path()});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "Processing directory: " + dir.path() + "\nProcessing shapefile: " + a +
                       "\nProcessing directory: " + dir / "sub" + "\nProcessing shapefile: " + c + "\nDone!\n");
  EXPECT_EQ(Describe(test::LoadOrFail(c + ".tvf")), "m0:- 0='c'; ");
  EXPECT_FALSE(test::FileExists(dir / "a.dbf.tvf"));

  r = Shp2Tvf({"-filter", "-b", a, c});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "Skipping extra shapefile names in filter mode.\n");
  EXPECT_EQ(r.out.substr(0, 8), "69c 2 1 ");
  r = Shp2Tvf({"-filter", dir / "none.shp"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("Errors processing file " + dir / "none.shp" + "\n"), std::string::npos);

  r = Shp2Tvf({"-output", dir / "named.tvf", "-b", a});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(test::ReadFile(dir / "named.tvf").substr(0, 8), "69c 2 1 ");

  r = Shp2Tvf({"-show-attrs", "-h", "-m", dir / "a.dbf"});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("Attributes for: " + dir / "a.dbf" + "\n"), std::string::npos);
  EXPECT_NE(r.out.find("NAME        String"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("N: 3\n"), std::string::npos) << r.out;
  r = Shp2Tvf({"-show-attrs", dir / "none.dbf"});
  EXPECT_EQ(r.err, "DBFOpen(\"" + dir / "none.dbf" + "\",\"r\") failed.\n");
  EXPECT_EQ(r.status, 1);
}

// The 1:110m countries: 177 records of 289 rings, grouped by flags 1 ... 1
// then 0, each ring with every field of the table.
TEST(Shp2TvfTest, RealCountriesShapefile) {
  test::TempDir dir;
  const std::string shp = std::string(VMP_SOURCE_DIR) + "/data/natural_earth/ne_110m_admin_0_countries.shp";
  const RunResult r = Shp2Tvf({"-output", dir / "countries.tvf", shp});
  ASSERT_EQ(r.status, 0) << r.err;
  const VectorData data = test::LoadOrFail(dir / "countries.tvf");
  EXPECT_EQ(data.polygon_count, 289);
  DBFHandle table = DBFOpen(shp.c_str(), "rb");
  ASSERT_NE(table, nullptr);
  const int name = DBFGetFieldIndex(table, "NAME"), iso = DBFGetFieldIndex(table, "ISO_A3");
  const int fields = DBFGetFieldCount(table);
  DBFClose(table);
  int countries = 0;
  std::vector<const Feature*> group, france;
  for (const auto& f : data.features) {
    EXPECT_EQ(f->AttributeCount(), fields);
    group.push_back(f.get());
    if (f->flag != 0) continue;
    ++countries;
    if (*f->FindAttribute(name)->value.text == "France") france = group;
    group.clear();
  }
  EXPECT_EQ(countries, 177);
  ASSERT_EQ(france.size(), 3u);  // French Guiana, the mainland, Corsica
  for (const Feature* f : france) EXPECT_EQ(*f->FindAttribute(iso)->value.text, "-99");  // as the table has it
}

TEST(Shp2TvfTest, LoaderReadsShapefilesThroughTheConverter) {
  test::TempDir dir;
  const std::string shp = test::WriteShapefile(dir / "l", SHPT_POLYGON, {{"NAME", FTString}},
                                               {{{kSquare, kFar}, {"x"}}});
  VectorData data;
  ASSERT_TRUE(LoadTvfFile(shp, TvfSource::kByName, data));
  EXPECT_EQ(Describe(data), "1:4 0='x'; 0:3 0='x'; ");
  EXPECT_EQ(test::Geometry(data)[1], kFar);
}

}  // namespace
}  // namespace vmp
