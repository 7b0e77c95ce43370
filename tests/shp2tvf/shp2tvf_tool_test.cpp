// The converter as a tool ("map_server -shp2tvf"): command lines, file lists,
// directories, filter mode, the table listing, and a real shapefile.
#include <gtest/gtest.h>

#include <shapefil.h>

#include <string>
#include <vector>

#include "map_server/vector/tvf_reader.h"
#include "tests/shp2tvf/shapefile_builder.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

using test::RunResult;
using Args = std::vector<std::string>;

RunResult Shp2Tvf(Args args) {
  args.insert(args.begin(), "-shp2tvf");
  return test::RunMapServer(args);
}

std::string MakeShapefile(const test::TempDir& dir, const std::string& name) {
  return test::WriteShapefile(dir / name, SHPT_ARC, {{"NAME", FTString}, {"N", FTInteger}},
                              {{{{{0, 0}, {1, 1}}}, {name, "3"}}});
}

TEST(Shp2TvfToolTest, CommandLineFaults) {
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
      {{"-bogus", a}, "Unknown option: -bogus\n"},
      {{dir.path()},
       "Non-recursive mode, skipping directory: " + dir.path() + "\n######### ERRORS PROCESSING SOME OF THE FILES.\n"},
      {{"-attr", "9", a, b}, a + ": Invalid attribute index=9\n"},  // fatal: stops at once
      {many, "Too many attributes!\n"},
  };
  for (const auto& c : cases) {
    const RunResult r = Shp2Tvf(c.args);
    EXPECT_EQ(r.status, 1) << c.err;
    EXPECT_EQ(r.err.substr(0, c.err.size()), c.err) << r.err;
    EXPECT_EQ(r.out, "");
  }
  EXPECT_FALSE(test::FileExists(dir / "o.tvf") || test::FileExists(b + ".tvf"));
}

TEST(Shp2TvfToolTest, ListsDirectoriesAndFilters) {
  test::TempDir dir;
  const std::string a = MakeShapefile(dir, "a");
  dir.Write("sub/notes.txt", "not a shapefile");
  const std::string c = test::WriteShapefile(dir / "sub/c", SHPT_POINT, {{"NAME", FTString}},
                                             {test::PointShape(5, 6, {"c"})});
  RunResult r = Shp2Tvf({"-r", "-progress", "1", "-pattern", "*.shp", "-a", dir.path()});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "Processing directory: " + dir.path() + "\nProcessing shapefile: " + a +
                       "\nProcessing directory: " + dir / "sub" + "\nProcessing shapefile: " + c + "\nDone!\n");
  VectorData data;
  ASSERT_TRUE(LoadTvfFile(c + ".tvf", TvfSource::kTvf, data));
  EXPECT_EQ(data.marker_count, 1);
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
TEST(Shp2TvfToolTest, RealCountriesShapefile) {
  test::TempDir dir;
  const std::string shp = std::string(VMP_SOURCE_DIR) + "/data/natural_earth/ne_110m_admin_0_countries.shp";
  const RunResult r = Shp2Tvf({"-output", dir / "countries.tvf", shp});
  ASSERT_EQ(r.status, 0) << r.err;
  VectorData data;
  ASSERT_TRUE(LoadTvfFile(dir / "countries.tvf", TvfSource::kTvf, data));
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
  EXPECT_NEAR(france[0]->AsPolygon()->box.min_x, -54.524754, 1e-6);  // the group's head
}

}  // namespace
}  // namespace vmp
