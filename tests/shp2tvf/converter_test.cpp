// The converter on shapefiles made here: record layout, attribute numbering
// and types, labels, closing, skipped shapes, winding counts and the
// conditions that stop the tool.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "map_server/vector/tvf_reader.h"
#include "shp2tvf/shp2tvf.h"
#include "tests/shp2tvf/shapefile_builder.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"
#include "tests/tools/tools_test_support.h"
#include "toolkit/strings.h"

namespace vmp {
namespace {

using test::FieldSpec;
using test::PointShape;
using test::Points;

struct Converted {
  ConvertStatus status;
  VectorData data;
  std::string messages;
};

Converted Convert(const std::string& shp, Shp2TvfSettings settings = {},
                  TvfFormat format = TvfFormat::kAscii) {
  test::MemoryStream messages;
  Shp2TvfRun run;
  run.settings = settings;
  run.messages = messages.get();
  const std::string out = shp + ".tvf";
  Converted c;
  c.status = ConvertShapefile(run, shp, &out, nullptr, false, format, settings.close_polygons);
  if (c.status == ConvertStatus::kOk) {
    EXPECT_TRUE(LoadTvfFile(out, TvfSource::kTvf, c.data));
  }
  c.messages = messages.text();
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

const Points kSquare = {{0, 0}, {0, 1}, {1, 1}, {1, 0}};  // clockwise
const Points kHole = {{0.2, 0.2}, {0.8, 0.2}, {0.8, 0.8}, {0.2, 0.8}};  // counter-clockwise
const Points kFar = {{5, 5}, {5, 6}, {6, 6}};

// Selected fields are numbered in selection order; numbers that cannot be
// read become -1 (whatever the message says); logical fields 1 or 0.
TEST(ConverterTest, FieldsAndLabels) {
  test::TempDir dir;
  const std::vector<FieldSpec> fields = {{"NAME", FTString}, {"POP", FTDouble, 12, 2}, {"OK", FTLogical, 1},
                                         {"N", FTInteger}};
  const std::string shp = test::WriteShapefile(
      dir / "n", SHPT_POINTZ, fields,
      {PointShape(1.5, -2.25, {"Paris", "12.5", "T", "42"}), PointShape(0, 0, {"", "lots", "y", "1"}),
       PointShape(0, 0, {"c", "-3", "F", "2"}), PointShape(0, 0, {"d", "7", "", "3"})});
  Shp2TvfSettings all, list, none;
  list.selection = AttrSelection::kList;
  list.attrs = {3, 1, 0};
  list.marker_label_attr = 0;
  none.selection = AttrSelection::kNone;
  const std::string lots = shp + ": Can't convert attribute value <lots> to double, using -1000.\n";
  const struct {
    Shp2TvfSettings settings;
    std::string records, messages;
  } cases[] = {
      {all,
       "m0:- 0='Paris' 1=12.5 2=1 3=42; m0:- 0='' 1=-1 2=1 3=1; m0:- 0='c' 1=-3 2=0 3=2; "
       "m0:- 0='d' 1=7 2=0 3=3; ",
       lots},
      {list, "m1:Paris 0=42 1=12.5 2='Paris'; m1: 0=1 1=-1 2=''; m1:c 0=2 1=-3 2='c'; m1:d 0=3 1=7 2='d'; ", lots},
      {none, "m0:-; m0:-; m0:-; m0:-; ", ""},
  };
  for (const auto& c : cases) {
    Converted r = Convert(shp, c.settings);
    ASSERT_EQ(r.status, ConvertStatus::kOk) << r.messages;
    EXPECT_EQ(Describe(r.data), c.records);
    EXPECT_EQ(r.messages, c.messages);
  }
  const MarkerFeature& paris = *Convert(shp).data.features[0]->AsMarker();
  EXPECT_EQ(std::make_pair(paris.x, paris.y), std::make_pair(1.5, -2.25));

  // Fields that cannot be used stop the tool, leaving no output behind.
  const std::pair<std::vector<int>, std::string> bad[] = {
      {{1}, ": Marker label attr must be of FTString type!\n"},
      {{4}, ": Marker label attr index is greater than num shp attrs.\n"},
      {{0, 7}, ": Invalid attribute index=7\n"}};
  for (const auto& [columns, message] : bad) {
    Shp2TvfSettings s;
    if (columns.size() == 1) s.marker_label_attr = columns[0];
    else s.selection = AttrSelection::kList, s.attrs = columns;
    Converted r = Convert(shp, s);
    EXPECT_EQ(r.status, ConvertStatus::kFatal);
    EXPECT_EQ(r.messages, shp + message);
    EXPECT_FALSE(test::FileExists(shp + ".tvf.tmp" + std::to_string(getpid())));
  }
}

TEST(ConverterTest, PartsBecomeRecordsWithContinuationFlags) {
  test::TempDir dir;
  const std::vector<FieldSpec> fields = {{"NAME", FTString}};
  const std::string polygons = test::WriteShapefile(dir / "poly", SHPT_POLYGONZ, fields,
                                                    {{{kSquare, kHole, kFar}, {"three"}}, {{kFar}, {"one"}}});
  const std::string arcs = test::WriteShapefile(dir / "arc", SHPT_ARC, fields, {{{kSquare, kFar}, {"two"}}});
  const struct {
    std::string shp;
    bool close;
    std::string records;
  } cases[] = {
      {polygons, false, "1:4 0='three'; 1:4 0='three'; 0:3 0='three'; 0:3 0='one'; "},
      {polygons, true, "1:5 0='three'; 1:5 0='three'; 0:4 0='three'; 0:4 0='one'; "},
      {arcs, true, "1:4 0='two'; 0:3 0='two'; "},  // arcs are never closed
  };
  for (const auto& c : cases) {
    Shp2TvfSettings s;
    s.close_polygons = c.close;
    for (TvfFormat format : {TvfFormat::kAscii, TvfFormat::kBinary}) {
      Converted r = Convert(c.shp, s, format);
      ASSERT_EQ(r.status, ConvertStatus::kOk) << r.messages;
      EXPECT_EQ(Describe(r.data), c.records);
    }
  }
  Shp2TvfSettings closing;
  closing.close_polygons = true;
  Points expected = kHole;
  expected.push_back(kHole.front());
  EXPECT_EQ(test::Geometry(Convert(polygons, closing).data)[1], expected);
}

TEST(ConverterTest, SkippedShapesAndMissingFiles) {
  test::TempDir dir;
  const std::string shp = test::WriteShapefile(dir / "m", SHPT_ARC, {{"NAME", FTString}},
                                               {{{kFar}, {"a"}}, {{}, {"n"}, SHPT_NULL}, {{kFar}, {"b"}}});
  const std::string multi = test::WriteShapefile(dir / "mp", SHPT_MULTIPOINTZ, {{"NAME", FTString}}, {{{kFar}, {"m"}}});
  Converted c = Convert(shp);
  ASSERT_EQ(c.status, ConvertStatus::kOk);
  EXPECT_EQ(c.data.FeatureCount(), 2);
  EXPECT_EQ(c.messages, "Skipping unknown feature type\n");
  c = Convert(multi);
  EXPECT_EQ(c.data.FeatureCount(), 0);
  EXPECT_EQ(c.messages, "Skipping a multipoint\n");
  Shp2TvfSettings quiet;
  quiet.suppress_warnings = true;
  EXPECT_EQ(Convert(shp, quiet).messages, "");

  std::remove((dir / "m.dbf").c_str());
  c = Convert(shp);
  EXPECT_EQ(c.status, ConvertStatus::kFailed);
  EXPECT_EQ(c.messages, shp + ": DBFOpen failed, is the DBF file missing?\n");
  EXPECT_EQ(Convert(dir / "none.shp").status, ConvertStatus::kFailed);
}

TEST(ConverterTest, ValidateCountsRingsWoundTheWrongWay) {
  test::TempDir dir;
  const Points ccw_square(kSquare.rbegin(), kSquare.rend()), cw_hole(kHole.rbegin(), kHole.rend());
  const std::string shp = test::WriteShapefile(
      dir / "w", SHPT_POLYGON, {{"N", FTInteger}},
      {{{kSquare, kHole}, {"1"}}, {{ccw_square, cw_hole}, {"2"}}, {{kSquare, cw_hole}, {"3"}}});
  Shp2TvfSettings s;
  s.validate = true;
  Converted c = Convert(shp, s);
  EXPECT_EQ(c.status, ConvertStatus::kOk);
  EXPECT_EQ(c.messages, shp + ": 2 rings wound in the wrong direction\n" + shp +
                            ": 1 rings wound in the wrong direction\n" + shp +
                            ": 2 object has invalid ring ordering\n");
}

TEST(ConverterTest, LoaderReadsShapefilesThroughTheConverter) {
  test::TempDir dir;
  const std::string shp = test::WriteShapefile(dir / "l", SHPT_POLYGON, {{"NAME", FTString}},
                                               {{{kSquare, kFar}, {"x"}}});
  VectorData data;
  ASSERT_TRUE(LoadTvfFile(shp, TvfSource::kByName, data));
  EXPECT_EQ(Describe(data), "1:4 0='x'; 0:3 0='x'; ");
  EXPECT_EQ(test::Geometry(data)[1], kFar);
  test::MessageCapture capture;
  EXPECT_FALSE(LoadTvfFile(dir / "missing.shp", TvfSource::kByName, data));
  EXPECT_TRUE(capture.Contains("Error converting shape file: "));
}

}  // namespace
}  // namespace vmp
