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

namespace vmp {
namespace {

using test::FieldSpec;
using test::PointShape;
using test::ShapeSpec;
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

std::vector<int> Flags(const VectorData& data) {
  std::vector<int> flags;
  for (const auto& f : data.features) flags.push_back(f->flag);
  return flags;
}

Points PointsOf(const Feature& f) {
  Points points;
  for (const PolygonPoint& p : f.AsPolygon()->points) points.emplace_back(p.x, p.y);
  return points;
}

const Points kSquare = {{0, 0}, {0, 1}, {1, 1}, {1, 0}};  // clockwise
const Points kHole = {{0.2, 0.2}, {0.8, 0.2}, {0.8, 0.8}, {0.2, 0.8}};  // counter-clockwise
const Points kFar = {{5, 5}, {5, 6}, {6, 6}};

TEST(ConverterTest, SelectedFieldsAreNumberedInSelectionOrder) {
  test::TempDir dir;
  const std::vector<FieldSpec> fields = {{"F0", FTString}, {"F1", FTString}, {"F2", FTInteger},
                                         {"F3", FTString}, {"F4", FTString}, {"F5", FTString}};
  const std::vector<std::string> row = {"v0", "v1", "42", "v3", "v4", "v5"};
  const std::string shp =
      test::WriteShapefile(dir / "t", SHPT_POINT, fields, {PointShape(1, 2, row)});
  Shp2TvfSettings s;
  s.selection = AttrSelection::kList;
  s.attrs = {5, 2};
  Converted c = Convert(shp, s);
  ASSERT_EQ(c.status, ConvertStatus::kOk) << c.messages;
  ASSERT_EQ(c.data.FeatureCount(), 1);
  const Feature& f = *c.data.features[0];
  ASSERT_EQ(f.AttributeCount(), 2);
  EXPECT_EQ(f.FindAttribute(0)->value, TypedValue::String("v5"));
  EXPECT_EQ(f.FindAttribute(1)->value, TypedValue::Double(42.0));

  s.selection = AttrSelection::kNone;
  EXPECT_EQ(Convert(shp, s).data.features[0]->AttributeCount(), 0);
  EXPECT_EQ(Convert(shp).data.features[0]->AttributeCount(), 6);
}

TEST(ConverterTest, PartsBecomeRecordsWithContinuationFlags) {
  test::TempDir dir;
  const std::vector<FieldSpec> fields = {{"NAME", FTString}};
  const std::string polygons = test::WriteShapefile(
      dir / "poly", SHPT_POLYGONZ, fields,
      {{{kSquare, kHole, kFar}, {"three"}}, {{kFar}, {"one"}}});
  const std::string arcs = test::WriteShapefile(dir / "arc", SHPT_ARC, fields,
                                                {{{kSquare, kFar}, {"two"}}});
  struct Case {
    const char* name;
    std::string shp;
    bool close;
    std::vector<int> flags;
    std::vector<size_t> counts;
  } cases[] = {
      {"polygon", polygons, false, {1, 1, 0, 0}, {4, 4, 3, 3}},
      {"closed polygon", polygons, true, {1, 1, 0, 0}, {5, 5, 4, 4}},
      {"arcs are never closed", arcs, true, {1, 0}, {4, 3}},
  };
  for (const Case& k : cases) {
    Shp2TvfSettings s;
    s.close_polygons = k.close;
    for (TvfFormat format : {TvfFormat::kAscii, TvfFormat::kBinary}) {
      Converted c = Convert(k.shp, s, format);
      ASSERT_EQ(c.status, ConvertStatus::kOk) << k.name << c.messages;
      EXPECT_EQ(Flags(c.data), k.flags) << k.name;
      std::vector<size_t> counts;
      for (const auto& f : c.data.features) {
        counts.push_back(f->AsPolygon()->points.size());
        EXPECT_EQ(f->FindAttribute(0)->value.type, ValueType::kString) << k.name;
      }
      EXPECT_EQ(counts, k.counts) << k.name;
    }
  }
  Shp2TvfSettings closing;
  closing.close_polygons = true;
  Converted c = Convert(polygons, closing);
  Points expected = kHole;
  expected.push_back(kHole.front());
  EXPECT_EQ(PointsOf(*c.data.features[1]), expected);
  EXPECT_EQ(*c.data.features[0]->FindAttribute(0)->value.text, "three");
  EXPECT_EQ(*c.data.features[2]->FindAttribute(0)->value.text, "three");
}

TEST(ConverterTest, FieldTypesAndLabels) {
  test::TempDir dir;
  const std::vector<FieldSpec> fields = {{"NAME", FTString}, {"POP", FTDouble, 12, 2},
                                         {"OK", FTLogical, 1}};
  const std::string shp = test::WriteShapefile(
      dir / "n", SHPT_POINTZ, fields,
      {PointShape(1.5, -2.25, {"Paris", "12.5", "T"}), PointShape(0, 0, {"", "lots", "y"}),
       PointShape(0, 0, {"c", "-3", "F"}), PointShape(0, 0, {"d", "7", ""})});
  Shp2TvfSettings labeled;
  labeled.marker_label_attr = 0;
  Converted c = Convert(shp, labeled);
  ASSERT_EQ(c.status, ConvertStatus::kOk);
  const double expected[][2] = {{12.5, 1.0}, {-1.0, 1.0}, {-3.0, 0.0}, {7.0, 0.0}};
  for (size_t k = 0; k < 4; ++k) {
    EXPECT_EQ(c.data.features[k]->FindAttribute(1)->value, TypedValue::Double(expected[k][0]));
    EXPECT_EQ(c.data.features[k]->FindAttribute(2)->value, TypedValue::Double(expected[k][1]));
  }
  EXPECT_EQ(c.messages, shp + ": Can't convert attribute value <lots> to double, using -1000.\n");
  const MarkerFeature& paris = *c.data.features[0]->AsMarker();
  EXPECT_EQ(paris.marker_type, 1u);
  EXPECT_EQ(paris.label, "Paris");
  EXPECT_EQ(std::make_pair(paris.x, paris.y), std::make_pair(1.5, -2.25));
  EXPECT_EQ(c.data.features[1]->AsMarker()->label, "");
  EXPECT_EQ(Convert(shp).data.features[0]->AsMarker()->marker_type, 0u);

  const std::pair<int, std::string> bad[] = {
      {1, ": Marker label attr must be of FTString type!\n"},
      {3, ": Marker label attr index is greater than num shp attrs.\n"}};
  for (const auto& [label, message] : bad) {
    Shp2TvfSettings s;
    s.marker_label_attr = label;
    Converted r = Convert(shp, s);
    EXPECT_EQ(r.status, ConvertStatus::kFatal);
    EXPECT_EQ(r.messages, shp + message);
    EXPECT_FALSE(test::FileExists(shp + ".tvf.tmp" + std::to_string(getpid())));
  }
}

TEST(ConverterTest, SkippedShapesAndStoppingConditions) {
  test::TempDir dir;
  const std::vector<FieldSpec> fields = {{"NAME", FTString}};
  ShapeSpec null_shape{{}, {"n"}, SHPT_NULL};
  const std::string shp = test::WriteShapefile(dir / "m", SHPT_ARC, fields,
                                               {{{kFar}, {"a"}}, null_shape, {{kFar}, {"b"}}});
  const std::string multi = test::WriteShapefile(dir / "mp", SHPT_MULTIPOINTZ, fields,
                                                 {{{kFar}, {"m"}}});
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

  Shp2TvfSettings bad_field;
  bad_field.selection = AttrSelection::kList;
  bad_field.attrs = {0, 7};
  Converted r = Convert(shp, bad_field);
  EXPECT_EQ(r.status, ConvertStatus::kFatal);
  EXPECT_EQ(r.messages, shp + ": Invalid attribute index=7\n");

  std::remove((dir / "m.dbf").c_str());
  EXPECT_EQ(Convert(shp).messages, shp + ": DBFOpen failed, is the DBF file missing?\n");
  EXPECT_EQ(Convert(shp).status, ConvertStatus::kFailed);
  EXPECT_EQ(Convert(dir / "none.shp").status, ConvertStatus::kFailed);
}

TEST(ConverterTest, ValidateCountsRingsWoundTheWrongWay) {
  test::TempDir dir;
  Points ccw_square(kSquare.rbegin(), kSquare.rend());
  Points cw_hole(kHole.rbegin(), kHole.rend());
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
  EXPECT_EQ(Flags(data), (std::vector<int>{1, 0}));
  EXPECT_EQ(PointsOf(*data.features[1]), kFar);
  test::MessageCapture capture;
  EXPECT_FALSE(LoadTvfFile(dir / "missing.shp", TvfSource::kByName, data));
  EXPECT_TRUE(capture.Contains("Error converting shape file: "));
}

}  // namespace
}  // namespace vmp
