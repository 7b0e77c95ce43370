#include "map_server/dataset/lif_reader.h"

#include <gtest/gtest.h>

#include <variant>

#include "map_server/dataset/dataset.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

using Texts = std::vector<std::string>;

constexpr const char* kLifPath = "/lifs/t.lif";
constexpr const char* kVector = "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=roads.tvf\n";
constexpr const char* kImage =
    "TYPE=IMAGE\nTRANS TYPE=OPAQUE\nFILENAME=world.jpg\nWIDTH=100\nHEIGHT=50\n";
constexpr const char* kGrid = "TYPE=GRID\nTRANS TYPE=OPAQUE\nGRID LAT INTERVAL=15\n";

struct Parsed {
  std::unique_ptr<Layer> layer;
  Texts messages;
};

Parsed Parse(std::string_view text, std::string_view path = kLifPath,
             const Dataset* dataset = nullptr) {
  static const std::unique_ptr<Dataset> kDefault = CreateDataset("DefaultDataset", "");
  test::MessageCapture capture;
  Parsed out;
  out.layer = ParseLifText(dataset ? *dataset : *kDefault, "t", path, text, false, false);
  out.messages = capture.Texts();
  return out;
}

using Expected = std::variant<double, std::string, Rgb, std::nullopt_t>;

void ExpectResource(const Layer& layer, const char* name, const Expected& expected) {
  const Resource* r = layer.resources.Find(name);
  ASSERT_NE(r, nullptr) << name;
  if (auto* d = std::get_if<double>(&expected)) {
    ASSERT_EQ(r->kind, ResourceKind::kNumber) << name;
    EXPECT_DOUBLE_EQ(r->number, *d) << name;
  } else if (auto* s = std::get_if<std::string>(&expected)) {
    ASSERT_EQ(r->kind, ResourceKind::kString) << name;
    EXPECT_EQ(r->text, *s) << name;
  } else if (auto* c = std::get_if<Rgb>(&expected)) {
    ASSERT_EQ(r->kind, ResourceKind::kColor) << name;
    EXPECT_EQ(r->color, *c) << name;
  } else {
    EXPECT_FALSE(r->text.has_value()) << name;
  }
}

TEST(LifReaderTest, KeywordsSetTheirParameters) {
  struct Case {
    const char* line;
    const char* resource;
    Expected value;
  };
  const Case cases[] = {
      {"TRANS TYPE=ALPHA WHITE OPAQUE", "TransType", 1.0},
      {"TRANS TYPE=\"TRANSPARENT COLOR OPAQUE\"", "TransType", 5.0},
      {"FILTER=\"gzip -dc\"", "Filter", std::string("gzip -dc")},
      {"FALLBACK LAYER=roads_lowres", "FallbackLayer", std::string("roads_lowres")},
      {"BACKGROUND LAYER=land", "BackgroundLayer", std::string("land")},
      {"MAX TILES=4", "MaxTiles", 4.0},
      {"MAX CACHE SIZE=8", "MaxCacheSize", 8.0},
      {"VOLATILE=1", "Volatile", 1.0},
      {"VOLATILE ERRORS=1", "VolatileErrors", 1.0},
      {"LOCK FILE=/var/lock/tiles", "LockFile", std::string("/var/lock/tiles")},
      {"LOCK FILE=tiles.lock", "LockFile", std::string("/lifs/tiles.lock")},
      {"LOCK TIMEOUT=0.5", "LockTimeout", 0.5},
      {"LOCK TILES=1", "LockTiles", 1.0},
      {"TILES OVERLAP=2", "TilesOverlap", 2.0},
      {"MIN ZOOM=1.5", "MinZoom", 1.5},
      {"MAX ZOOM=30", "MaxZoom", 30.0},
      {"FONT=sans", "TextFont", std::string("sans")},
      {"FONT SCALE=2", "FontScale", 2.0},
      {"TEXT TYPE=MAPPED FLAT", "TextType", 1.0},
      {"FONT TYPE=FLAT", "TextType", 0.0},
      {"TEXT ANGLE=45", "TextAngle", 45.0},
      {"FONT ANGLE=30", "TextAngle", 30.0},
      {"TEXT ANCHOR=HLEFT VTOP", "TextAnchor", 17.0},
      {"TEXT ANCHOR=HRIGHT, VBOTTOM", "TextAnchor", 34.0},
      {"FONT ANCHOR=HCENTER VCENTER", "TextAnchor", 0.0},
      {"LABEL FORMAT=\"%s (%d)\"", "LabelFormat", std::string("%s (%d)")},
      {"LABEL STYLE=OUTLINE", "LabelStyle", 4.0},
      {"LABEL STYLE=BG_EDGE|BG_FILL", "LabelStyle", 3.0},
      {"MARKER ICON TYPE=CROSS DOT", "MarkerType", 33.0},
      {"MARKER ICON TYPE=NONE", "MarkerType", 0.0},
      {"MARKER ICON SIZE=7", "MarkerSize", 7.0},
      {"MARKER MARGIN=2", "MarkerMargin", 2.0},
      {"TBOX MARGIN=3", "TextBoxMargin", 3.0},
      {"MARKER EDGE COLOR=1 0 0", "MarkerEdgeColor", Rgb{1, 0, 0}},
      {"MARKER FILL COLOR=0,1,0", "MarkerFillColor", Rgb{0, 1, 0}},
      {"MARKER ICON FILE=icons/pin.png", "MarkerIconFile", std::string("/lifs/icons/pin.png")},
      {"EDGE COLOR=0.2, 0.4, 0.6", "EdgeColor", Rgb{0.2, 0.4, 0.6}},
      {"FILL COLOR=1\t1\t0", "FillColor", Rgb{1, 1, 0}},
      {"BACKGROUND COLOR=1, 0.5, 0", "BGColorRed", 255.0},
      {"BACKGROUND COLOR=1, 0.5, 0", "BGColorGreen", 127.0},
      {"BACKGROUND COLOR=1, 0.5, 0", "BGColorBlue", 0.0},
      {"BACKGROUND COLOR=2, -1, 0.2", "BGColorRed", 255.0},
      {"BACKGROUND COLOR=2, -1, 0.2", "BGColorGreen", 0.0},
      {"FILL TYPE=FILL AND EDGE", "FillType", 3.0},
      {"FILL TYPE=EDGE", "FillType", 1.0},
      {"ALPHA=0.5", "Alpha", 0.5},
      {"LINE WIDTH=3", "LineWidth", 3.0},
      {"TBOX LINE WIDTH=2", "TextBoxLineWidth", 2.0},
      {"VTEXT LINE WIDTH=4", "VTextLineWidth", 4.0},
      {"DEFAULT ON=1", "IsDefault", 1.0},
      {"ALLOW MISSING TILES=1", "AllowMissingTiles", 1.0},
      {"POLY LABEL FORMAT=%s", "PolyLabelFormat", std::string("%s")},
      {"LABEL COLOR=1 1 1", "LabelColor", Rgb{1, 1, 1}},
      {"LABEL EDGE COLOR=0 0 1", "LabelOutlineColor", Rgb{0, 0, 1}},
      {"LABEL OUTLINE COLOR=0 1 1", "LabelOutlineColor", Rgb{0, 1, 1}},
      {"LABEL MIN ZOOM=2", "LabelMinZoom", 2.0},
      {"LABEL MAX ZOOM=9", "LabelMaxZoom", 9.0},
      {"LABEL PRIORITY=3", "LabelPriority", 3.0},
      {"POLY LABEL TYPE=BBOX LABEL", "PolyLabelType", 3.0},
      {"LABEL TYPE=MID LINE LABEL", "PolyLabelType", 1.0},
      {"POLY LABEL CENTER=1", "PolyLabelCenter", 1.0},
      {"LABEL CENTER=0", "PolyLabelCenter", 0.0},
      {"LAYOUT TYPE=GLOBAL", "LayoutType", 2.0},
      {"LAYOUT MARGIN=4", "LayoutMargin", 4.0},
      {"BOX EDGE COLOR=0.5 0.5 0.5", "BoxEdgeColor", Rgb{0.5, 0.5, 0.5}},
      {"BOX FILL COLOR=1 0 1", "BoxFillColor", Rgb{1, 0, 1}},
      {"IMAGE ANTIALIASING=0", "ImageAntiAliasing", 0.0},
      {"ELEVATION MODE=DATA AS COLOR", "ElevationMode", 3.0},
      {"MIN PIXEL SIZE=2.5", "MinPixelSize", 2.5},
      {"CLIP=0", "Clip", 0.0},
      {"TRANS COLOR=1 1 1", "TransColor", Rgb{1, 1, 1}},
      {"TRANS COLOR PRECISION=0.1", "TransColorPrecision", 0.1},
      {"ALLOW OVERRIDE=0", "AllowOverride", 0.0},
      {"LABEL SELECTION MODE=INTILE", "LabelSelectionMode", 1.0},
      {"LABEL SELECTION MODE=YES", "LabelSelectionMode", 2.0},
      {"LABEL SELECTION MODE=UNSET", "LabelSelectionMode", 3.0},
      {"GRID LAT INTERVAL=5", "GridLatInterval", 5.0},
      {"GRID LON INTERVAL=7.5", "GridLonInterval", 7.5},
      {"ADAPTIVE GRID=2", "AdaptiveGrid", 2.0},
      {"ADAPTIVE=3", "AdaptiveGrid", 3.0},
      {"GRID LABELS=1", "GridLabels", 1.0},
      {"LABELS=1", "GridLabels", 1.0},
      {"DECIMAL GRID LABELS=0", "DecimalGridLabels", 0.0},
      {"GRID LABEL FORMAT=%.1f", "GridLabelFormat", std::string("%.1f")},
      {"GRID LABEL CHAR=PREPEND", "GridLabelChar", 2.0},
      {"LON LABEL ANGLE=45", "LonLabelAngle", 45.0},
      {"ROTATE LON LABELS=0", "RotateLonLabels", 0.0},
      {"GRID MIN LON=-10", "GridMinLon", -10.0},
      {"GRID MIN LAT=-20", "GridMinLat", -20.0},
      {"GRID MAX LON=10", "GridMaxLon", 10.0},
      {"GRID MAX LAT=20", "GridMaxLat", 20.0},
      {"IMAGE MIN LON=-170", "ImageMinLon", -170.0},
      {"IMAGE MAX LON=170", "ImageMaxLon", 170.0},
      {"GRADIENT TYPE=AROUND_GLOBE", "GradientType", 1.0},
      {"GRADIENT LENGTH=0.3", "GradientLength", 0.3},
      {"REDIRECT FILE=redirect.txt", "RedirectFile", std::string("redirect.txt")},
      {"FALLBACK=fb\\roads.lif", "Fallback", std::string("fb/roads.lif")},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.line);
    Parsed p = Parse(std::string(kVector) + c.line + "\n");
    ASSERT_NE(p.layer, nullptr);
    // A fallback file that does not exist is reported when it is read.
    if (std::string(c.resource) != "Fallback") {
      EXPECT_EQ(p.messages, Texts{});
    }
    ExpectResource(*p.layer, c.resource, c.value);
  }
}

TEST(LifReaderTest, KeywordsStoredInTheRecord) {
  Parsed p = Parse(
      "TYPE=IMAGE\nTRANS TYPE=BUMP MAP\nFILENAME=tiles\\t_%_%.jpg\nWIDTH=4000\nHEIGHT=2000\n"
      "NUM TILES X=4\nNUM TILES Y=2\nIMAGE FORMAT=PNG\nVECTOR FORMAT=SHP\n"
      "MIN LON=-180\nMAX LON=180\nMIN LAT=-90\nMAX LAT=90\nPOS RANGE=1\n"
      "GRADIENT COLOR=0 0.5 1\n");
  ASSERT_NE(p.layer, nullptr);
  EXPECT_EQ(p.messages, Texts{});
  const LayerRecord& r = p.layer->record;
  EXPECT_EQ(r.layer_type, kLayerImage);
  EXPECT_EQ(r.trans_type, 4);
  EXPECT_EQ(r.filename, "tiles/t_%_%.jpg");
  EXPECT_EQ(r.data_path, "/lifs/tiles/t_%_%.jpg");
  EXPECT_EQ(r.width, 4000);
  EXPECT_EQ(r.height, 2000);
  EXPECT_EQ(r.num_tiles_x, 4);
  EXPECT_EQ(r.num_tiles_y, 2);
  EXPECT_EQ(r.image_format, 3);
  EXPECT_EQ(r.vector_format, 2);
  EXPECT_EQ(r.min_lon, -180);
  EXPECT_EQ(r.max_lat, 90);
  EXPECT_TRUE(r.pos_range);
  EXPECT_EQ(r.gradient_color, (Rgb{0, 127.5, 255}));
  EXPECT_EQ(r.lif_dir, "/lifs");
  // Image width and height are also kept as resources.
  ExpectResource(*p.layer, "Width", 4000.0);
  ExpectResource(*p.layer, "LayerType", 0.0);
}

TEST(LifReaderTest, ConvertedRecordUsesTheGivenValues) {
  Parsed p = Parse(std::string(kVector) +
                   "EDGE COLOR=1 0.5 0\nMAX TILES=9\nMAX CACHE SIZE=20\nFONT=sans\n"
                   "LABEL TYPE=AREA LABEL\nLABEL CENTER=1\n");
  ASSERT_NE(p.layer, nullptr);
  const LayerRecord& r = p.layer->record;
  EXPECT_EQ(r.drawing.edge_color, (Rgb{255, 127.5, 0}));
  EXPECT_EQ(r.tiles.vector_store.max_tiles, 9);
  EXPECT_EQ(r.tiles.vector_store.max_cache_size, 20);
  EXPECT_EQ(r.drawing.text_font, "sans");
  EXPECT_EQ(r.drawing.poly_label_type, 2);
  EXPECT_EQ(r.allow_override, 1);  // the dataset's AllowOverride
}

TEST(LifReaderTest, BadValuesAreReportedAndReadingGoesOn) {
  struct Case {
    const char* line;
    Texts messages;
  };
  const std::string path = kLifPath;
  const Case cases[] = {
      {"TRANS TYPE=opaque", {"Error: Invalid TRANS TYPE: opaque"}},
      {"IMAGE FORMAT=JPG", {"Error: Invalid image format: JPG"}},
      {"IMAGE TYPE=jpeg", {"Error: Invalid image format: jpeg"}},
      {"VECTOR FORMAT=GML", {"Error: Invalid vector format: GML"}},
      {"TEXT TYPE=flat", {"Error: Invalid text type: flat"}},
      {"TEXT ANCHOR=LEFT VTOP", {"Error: Invalid text h_anchor type: LEFT"}},
      {"FONT ANCHOR=HLEFT TOP", {"Error: Invalid text v_anchor type: TOP"}},
      {"TEXT ANCHOR=HLEFT", {"Error: " + path + ": cannot read: TEXT ANCHOR"}},
      {"LABEL STYLE=BOLD", {"Error: Invalid label style: BOLD"}},
      {"MARKER ICON TYPE=STAR", {"Error: Invalid marker type: STAR"}},
      {"FILL TYPE=SOLID", {"Error: Invalid fill type: SOLID"}},
      {"LABEL TYPE=AREA", {"Error: Invalid label type: AREA"}},
      {"POLY LABEL TYPE=line label", {"Error: Invalid label type: line label"}},
      {"LAYOUT TYPE=none", {"Error: Invalid layout type: none"}},
      {"ELEVATION MODE=RAW", {"Error: Invalid elevation mode: RAW"}},
      {"LABEL SELECTION MODE=ALL", {"Error: Invalid select labels mode: ALL"}},
      {"GRID LABEL CHAR=AFTER", {"Error: Invalid grid label char value: AFTER"}},
      {"GRADIENT TYPE=LINEAR", {"Error: Invalid gradient type: LINEAR"}},
      {"TYPE=VECTOR", {"Error: Repeated layer TYPE: " + path}},
      {"MAX TILES=lots", {"Error: " + path + ": cannot read: MAX TILES"}},
      {"TYPE=", {"Error: " + path + ": cannot read: OBJECT TYPE"}},
      {"TRANS TYPE=", {"Error: " + path + ": cannot read: TRANSPARENCY TYPE"}},
      {"TBOX MARGIN=x", {"Error: " + path + ": cannot read: TEXT BOX MARGIN"}},
      {"TBOX LINE WIDTH=x", {"Error: " + path + ": cannot read: TEXT BOX LINE WIDTH"}},
      {"TRANS COLOR=1 1", {"Error: " + path + ": cannot read: TRANSPARENT COLOR"}},
      {"TRANS COLOR PRECISION=x", {"Error: " + path + ": cannot read: TRANSPARENT COLOR PRECISION"}},
      {"EDGE COLOR=red", {"Error: " + path + ": cannot read: EDGE COLOR"}},
      {"FILTER=", {"Error: " + path + ": cannot read: FILTER"}},
      {"LOCK TIMEOUT=soon", {"Error: " + path + ": cannot read: LOCK TIMEOUT"}},
      {"UNKNOWN=1", {"Error: LIF file: " + path, "Warning: Unrecognized variable: UNKNOWN=1"}},
      {"type=VECTOR", {"Error: LIF file: " + path, "Warning: Unrecognized variable: type=VECTOR"}},
      {"CUSTOM ATTR=x", {"Error: Cannot read custom attribute number: " + path}},
      {"CUSTOM ATTR=1", {"Error: Cannot read custom attribute name: " + path}},
      {"CUSTOM ATTR=1 speed", {"Error: Cannot read custom attribute type: " + path}},
      {"CUSTOM ATTR=1 speed VMP_X", {"Error: Invalid custom attribute type: VMP_X"}},
      {"CUSTOM ATTR=1 Alpha VMP_D", {"Error: Repeated custom attribute: Alpha"}},
      {"CUSTOM ATTR=70000 big VMP_D", {"Error: Custom attribute number is too large: big"}},
      {"ATTR MAP=speed MinZoom t.thr ABS",
       {"Error: Invalid attribute name (define custom attrs first): speed"}},
      {"PIXEL MAP=PixelColor TransColor t.thr ABS",
       {"Error: PIXEL THRESHOLD is supported for IMAGE layers only: " + path}},
      {"ATTR COND=", {"Error: LIF file: " + path, "Warning: Skipping invalid ATTR COND"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.line);
    // The bad line stands between two good ones: both good ones count.
    Parsed p = Parse(std::string(kVector) + "LINE WIDTH=2\n" + c.line + "\nALPHA=0.25\n");
    ASSERT_NE(p.layer, nullptr);
    EXPECT_EQ(p.messages, c.messages);
    ExpectResource(*p.layer, "LineWidth", 2.0);
    ExpectResource(*p.layer, "Alpha", 0.25);
    EXPECT_EQ(p.layer->record.layer_type, kLayerVector);
  }
}

TEST(LifReaderTest, ChecksAfterTheLastLine) {
  struct Case {
    std::string text;
    Texts messages;
    bool created;
  };
  const std::string path = kLifPath;
  const std::string lif_file = "Error: LIF file: " + path;
  const Case cases[] = {
      {"TRANS TYPE=OPAQUE\nFILENAME=x", {"Error: Mandatory variables TYPE or TRANS TYPE not set!: " + path}, false},
      {"TYPE=VECTOR\nFILENAME=x", {"Error: Mandatory variables TYPE or TRANS TYPE not set!: " + path}, false},
      {"TYPE=image\nTRANS TYPE=OPAQUE",
       {"Error: Invalid layer type: image", "Error: Mandatory variables TYPE or TRANS TYPE not set!: " + path},
       false},
      {"TYPE=VECTOR\nTRANS TYPE=OPAQUE",
       {"Error: Mandatory variable not set: Filename!: " + path, lif_file,
        "Error: Mandatory variable not set!: Filename"},
       true},
      {"TYPE=IMAGE\nTRANS TYPE=OPAQUE\nFILENAME=w.jpg",
       {lif_file, "Error: Mandatory variable not set!: Image Width", lif_file,
        "Error: Mandatory variable not set!: Image Height"},
       true},
      {std::string(kVector) + "MAX TILES=0", {"Error: Invalid MAX TILES value: " + path + ": 0"}, true},
      {std::string(kVector) + "MAX TILES=-2", {"Error: Invalid MAX TILES value: " + path + ": -2"}, true},
      {std::string(kVector) + "MAX CACHE SIZE=0", {"Error: Invalid MAX CACHE SIZE value: " + path + ": 0"}, true},
      {std::string(kImage) + "MAX TILES=50\nMAX CACHE SIZE=20",
       {"Warning: Thrashing, set MAX CACHE SIZE >= MAX TILES for image layers: " + path}, true},
      {std::string(kImage) + "MAX TILES=200",
       {"Warning: Thrashing, set MAX CACHE SIZE >= MAX TILES for image layers: " + path}, true},
      {std::string(kImage) + "MAX TILES=50\nMAX CACHE SIZE=-1", {}, true},
      {std::string(kVector) + "MAX TILES=200", {}, true},
      {std::string(kGrid) + "ADAPTIVE GRID=0",
       {"Error: Cannot have zero or negative adaptive grid coefficient: " + path + ": 0"}, true},
      {std::string(kVector) + "DEFAULT ON=-1", {"Error: Cannot have negative DEFAULT ON value: " + path + ": -1"}, true},
      {std::string(kVector) + "ALLOW MISSING TILES=-1",
       {"Error: Cannot have negative ALLOW MISSING TILES value: " + path + ": -1"}, true},
      {std::string(kVector) + "IMAGE ANTIALIASING=-3",
       {"Error: Cannot have negative image_antialiasing: " + path + ": -3"}, true},
      {std::string(kVector) + "ALLOW OVERRIDE=-1",
       {"Error: Cannot have negative ALLOW OVERRIDE value: " + path + ": -1"}, true},
      {"TYPE=GRID\nTRANS TYPE=OPAQUE", {"Warning: Grid Lat/Lon Interval or Adaptive Grid not set: " + path}, true},
      {"TYPE=GRID\nTRANS TYPE=OPAQUE\nADAPTIVE=2", {}, true},
      {std::string(kGrid) + "GRID LABEL FORMAT LON=%f",
       {"Warning: Ignoring GRID LABEL FORMAT LON: no GRID LABEL FORMAT: " + path}, true},
      {std::string(kVector) + "LABEL TYPE=AREA LABEL",
       {"Warning: Label type is AREA LABEL but LABEL CENTER not set: " + path}, true},
      {std::string(kVector) + "FALLBACK=f.lif\nFALLBACK LAYER=other",
       {"Warning: FALLBACK LAYER overrides FALLBACK FILE: " + path}, true},
      {std::string(kVector) + "MARKER ICON TYPE=CUSTOM_ICON",
       {"Error: Missing ICON FILE for CUSTOM_ICON marker type: " + path}, true},
      {std::string(kVector) + "MARKER ICON TYPE=CUSTOM_ICON\nMARKER ICON FILE=pin.png", {}, true},
      {std::string(kGrid) + "REDIRECT FILE=r.txt",
       {"Warning: Unexpected layer type for REDIRECT FILE: " + path}, true},
      {std::string(kVector) + "REDIRECT FILE=r.txt\nFALLBACK=/abs/f.lif",
       {"Warning: Ignoring REDIRECT FILE due to absolute path in FALLBACK: " + path,
        "Error: Could not be opened: /abs/f.lif"},
       true},
      {"TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=/abs/x.tvf\nREDIRECT FILE=r.txt",
       {"Warning: Ignoring REDIRECT FILE due to absolute path in FILENAME: " + path}, true},
      {std::string(kGrid) + "FALLBACK=f.lif", {"Error: Invalid layer type for fallback file: t"}, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    Parsed p = Parse(c.text);
    EXPECT_EQ(p.messages, c.messages);
    EXPECT_EQ(p.layer != nullptr, c.created);
  }
}

TEST(LifReaderTest, TileLimitsAfterChecks) {
  struct Case {
    const char* lines;
    int32_t max_tiles;
    int32_t max_cache;
  };
  const Case cases[] = {
      {"", -1, -1},
      {"MAX TILES=0\n", -1, -1},
      {"MAX TILES=20\n", 20, 100},
      {"MAX TILES=20\nMAX CACHE SIZE=0\n", 20, 100},
      {"MAX CACHE SIZE=30\n", -1, 30},
      {"MAX TILES=-1\nMAX CACHE SIZE=-1\n", -1, -1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.lines);
    Parsed p = Parse(std::string(kVector) + c.lines);
    ASSERT_NE(p.layer, nullptr);
    EXPECT_EQ(p.layer->record.tiles.vector_store.max_tiles, c.max_tiles);
    EXPECT_EQ(p.layer->record.tiles.vector_store.max_cache_size, c.max_cache);
  }
}

TEST(LifReaderTest, MarkerBackgroundFlagsJoinTheLabelStyle) {
  struct Case {
    const char* lines;
    double marker_type;
    double label_style;
  };
  const Case cases[] = {
      {"MARKER ICON TYPE=CROSS DOT\n", 33, 0},
      {"MARKER ICON TYPE=CROSS|BG_FILL\n", 1, 2},
      {"MARKER ICON TYPE=BG_EDGE\n", 0, 1},
      {"MARKER ICON TYPE=BOX_EDGE BG_EDGE\nLABEL STYLE=OUTLINE\n", 2, 5},
      {"LABEL STYLE=OUTLINE\nMARKER ICON TYPE=CIRCLE_FILL,BG_FILL\n", 16, 6},
      {"MARKER ICON TYPE=CROSS BOX_EDGE BOX_FILL CIRCLE_EDGE CIRCLE_FILL DOT\n", 63, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.lines);
    Parsed p = Parse(std::string(kVector) + c.lines);
    ASSERT_NE(p.layer, nullptr);
    EXPECT_EQ(p.messages, Texts{});
    ExpectResource(*p.layer, "MarkerType", c.marker_type);
    ExpectResource(*p.layer, "LabelStyle", c.label_style);
  }
}

TEST(LifReaderTest, Includes) {
  test::TempDir dir;
  dir.Write("common.inc", "EDGE COLOR=1 0 0\nINCLUDE=deeper.inc\nBOGUS=1\n");
  dir.Write("deeper.inc", "LINE WIDTH=5\nFILL TYPE=WRONG\n");
  dir.Write("self.inc", "INCLUDE=self.inc\n");
  std::string lif = dir / "roads.lif";
  std::string common = dir / "common.inc", deeper = dir / "deeper.inc";
  Parsed p = Parse(std::string(kVector) + "INCLUDE=common.inc\nINCLUDE=missing.inc\n"
                                          "INCLUDE=self.inc\nALPHA=0.5\n",
                   lif);
  ASSERT_NE(p.layer, nullptr);
  EXPECT_EQ(p.messages,
            (Texts{"Error: Invalid fill type: WRONG", "Error: In included file: " + deeper,
                   "Error: LIF file: " + lif, "Error: In included file: " + common,
                   "Warning: Unrecognized variable: BOGUS=1", "Error: In included file: " + common,
                   "Error: LIF file: " + lif,
                   "Error: " + dir / "missing.inc" + ": Included file could not be opened",
                   "Error: Recursive INCLUDE, skipping: " + dir / "self.inc",
                   "Error: In included file: " + dir / "self.inc"}));
  ExpectResource(*p.layer, "EdgeColor", Rgb{1, 0, 0});
  ExpectResource(*p.layer, "LineWidth", 5.0);
  ExpectResource(*p.layer, "Alpha", 0.5);
}

TEST(LifReaderTest, IncludedSlfBecomesTheTileTree) {
  test::TempDir dir;
  dir.Write("tree/a.slf", "MIN LON=0\nMIN LAT=0\nMAX LON=1\nMAX LAT=1\nFILENAME=a.tvf\n");
  std::string lif = dir / "t.lif";
  Parsed p = Parse("TYPE=VECTOR\nTRANS TYPE=OPAQUE\nTILES SUBLIF=other.slf\nINCLUDE=tree/a.slf\n", lif);
  ASSERT_NE(p.layer, nullptr);
  EXPECT_EQ(p.messages,
            Texts{"Warning: Overwriting TILES SUBLIF with .slf from INCLUDE: tree/a.slf"});
  ASSERT_NE(p.layer->record.tile_tree, nullptr);
  EXPECT_EQ(p.layer->record.sublif_path, dir / "tree/a.slf");
  EXPECT_TRUE(p.layer->record.tile_tree->loaded);
  EXPECT_EQ(p.layer->record.tile_tree->leaf_file, dir / "tree/a.tvf");
}

TEST(LifReaderTest, TilesSublifChecks) {
  test::TempDir dir;
  dir.Write("t.slf", "MIN LON=0\nMIN LAT=0\nMAX LON=1\nMAX LAT=1\nFILENAME=a.jpg\n");
  std::string lif = dir / "t.lif";
  {
    Parsed p = Parse("TYPE=IMAGE\nTRANS TYPE=OPAQUE\nTILES SUBLIF=t.slf\nNUM TILES X=3\nWIDTH=10\n", lif);
    ASSERT_NE(p.layer, nullptr);
    EXPECT_EQ(p.messages, Texts{"Error: TILES SUBLIF overrides NUM TILES, WIDTH and HEIGHT: " + lif});
    EXPECT_EQ(p.layer->record.num_tiles_x, 1);
    EXPECT_EQ(p.layer->record.width, 0);
    ASSERT_NE(p.layer->record.tile_tree, nullptr);
  }
  {
    Parsed p = Parse("TYPE=VECTOR\nTRANS TYPE=OPAQUE\nTILES SUBLIF=tree/\n", lif);
    ASSERT_NE(p.layer, nullptr);
    EXPECT_EQ(p.messages, (Texts{"Error: Can't determine slf_name in TILES SUBLIF: tree/",
                                 "Error: Mandatory variable not set: Filename!: " + lif,
                                 "Error: LIF file: " + lif,
                                 "Error: Mandatory variable not set!: Filename"}));
    EXPECT_EQ(p.layer->record.tile_tree, nullptr);
  }
  {
    Parsed p = Parse("TYPE=VECTOR\nTRANS TYPE=OPAQUE\nTILES SUBLIF=" + dir / "t.slf" +
                         "\nREDIRECT FILE=r.txt\n",
                     lif);
    EXPECT_EQ(p.messages,
              Texts{"Warning: Ignoring REDIRECT FILE due to absolute path in TILES SUBLIF: " + lif});
    EXPECT_TRUE(p.layer->record.redirect_path.empty());
  }
}

TEST(LifReaderTest, CustomAttributesAndMaps) {
  test::TempDir dir;
  dir.Write("speed.thr", "INPUT DATA TYPE=VMP_D\nOUTPUT DATA TYPE=VMP_G\n0 0,0,1\n100 1,0,0\n");
  dir.Write("pixel.thr", "INPUT DATA TYPE=VMP_G\nOUTPUT DATA TYPE=VMP_G\n1 1 1 0.5 0.5 0.5\n");
  std::string lif = dir / "t.lif";
  const std::string head =
      "TYPE=IMAGE\nTRANS TYPE=OPAQUE\nFILENAME=w.jpg\nWIDTH=10\nHEIGHT=10\n"
      "CUSTOM ATTR=4 speed VMP_G\nCUSTOM ATTR=1, \"road name\", VMP_S\nCUSTOM ATTR=-1 odd VMP_G\n";
  {
    Parsed p = Parse(head + "ATTR MAP=speed LabelEdgeColor speed.thr REL\n"
                            "PIXEL MAP=PixelColor Alpha pixel.thr ABS\n",
                     lif);
    ASSERT_NE(p.layer, nullptr);
    // The negative number is refused when the layer is built.
    EXPECT_EQ(p.messages, Texts{"Error: Invalid custom attribute index in ConvertConfig.: t"});
    const LayerRecord& r = p.layer->record;
    const LayerAttributes& a = r.attributes;
    ASSERT_EQ(a.custom_attributes.size(), 2u);
    EXPECT_EQ(a.custom_attributes[1].name, "road name");
    EXPECT_EQ(a.custom_attributes[1].entry.value.type, ValueType::kString);
    EXPECT_EQ(r.custom_attr_index, (std::vector<int>{-1, 1, -1, -1, 0}));
    EXPECT_NE(p.layer->resources.Find("speed"), nullptr);
    EXPECT_EQ(p.layer->resources.Find("road name")->kind, ResourceKind::kString);
    ASSERT_EQ(a.attr_maps.size(), 1u);
    EXPECT_EQ(a.attr_maps[0].attribute_name, "speed");
    EXPECT_EQ(a.attr_maps[0].output_index, 4);
    EXPECT_EQ(a.attr_maps[0].resource_name, "LabelEdgeColor");
    EXPECT_EQ(a.attr_maps[0].mode, ThresholdMode::kRelative);
    EXPECT_EQ(a.attr_maps[0].threshold_file, dir / "speed.thr");
    ASSERT_EQ(a.attr_maps[0].thresholds.size(), 2u);
    EXPECT_EQ(a.attr_maps[0].thresholds[1].output, TypedValue::Geo(1, 0, 0));
    ASSERT_EQ(a.pixel_maps.size(), 1u);
    EXPECT_EQ(a.pixel_maps[0].output_index, -1);
    EXPECT_EQ(a.pixel_maps[0].thresholds[0].input, TypedValue::Geo(1, 1, 1));
  }
  struct Case {
    const char* line;
    Texts messages;
  };
  const Case cases[] = {
      {"ATTR MAP=", {"Error: Error reading attribute map's attribute name: " + lif}},
      {"ATTR MAP=speed", {"Error: Error reading attribute map's resource name: " + lif}},
      {"ATTR MAP=speed MinZoom", {"Error: Error reading attribute map's threshold file: " + lif}},
      {"ATTR MAP=speed MinZoom speed.thr", {"Error: Error reading attribute map's ABS/REL flag: " + lif}},
      {"ATTR MAP=speed MinZoom speed.thr abs", {"Error: Invalid threshold table type (REL or ABS): abs"}},
      {"ATTR MAP=speed MinZoom none.thr ABS", {"Error: " + dir / "none.thr" + ": Can't open threshold file"}},
      {"PIXEL MAP=Color Alpha pixel.thr ABS", {"Error: Invalid attribute name (PixelColor expected): Color"}},
      {"PIXEL MAP=speed Alpha pixel.thr ABS",
       {"Error: Unxepected non-zero attr name in PIXEL THRESHOLD: speed"}},
      {"CUSTOM ATTR=4 other VMP_D", {"Error: Repeated custom attribute: other"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.line);
    Parsed p = Parse(head + c.line + "\n", lif);
    ASSERT_NE(p.layer, nullptr);
    Texts expected = c.messages;
    expected.push_back("Error: Invalid custom attribute index in ConvertConfig.: t");
    EXPECT_EQ(p.messages, expected);
    EXPECT_TRUE(p.layer->record.attributes.attr_maps.empty());
    EXPECT_TRUE(p.layer->record.attributes.pixel_maps.empty());
  }
  Parsed early = Parse("ATTR MAP=speed MinZoom speed.thr ABS\n" + std::string(kVector), lif);
  EXPECT_EQ(early.messages, Texts{"Error: Layer type must be set before ATTR MAP: " + lif});
}

TEST(LifReaderTest, AttrConditionsAddChainsAndInvalidOnesAreSkipped) {
  Parsed p = Parse(std::string(kVector) +
                   "ATTR COND=  @1==\"highway\"  \nATTR COND=lanes > 2\n"
                   "ATTR COND=@2>2 && @3==A* || @2<1\nATTR COND=@4>1 and @5<2\n");
  ASSERT_NE(p.layer, nullptr);
  ASSERT_TRUE(p.layer->record.conditions.has_value());
  const AttrConditionList& list = *p.layer->record.conditions;
  ASSERT_EQ(list.chains.size(), 3u);
  EXPECT_EQ(list.chains[0].conditions.size(), 1u);
  EXPECT_EQ(list.chains[1].conditions.size(), 2u);
  EXPECT_EQ(list.chains[2].conditions.size(), 1u);
  EXPECT_EQ(p.messages.size(), 7u);
  EXPECT_EQ(p.messages[0], "Error: Attribute condition must start with @ char!: lanes > 2");
  EXPECT_EQ(p.messages[2], "Warning: Skipping invalid ATTR COND: lanes > 2");
  EXPECT_EQ(p.messages[6], "Warning: Skipping invalid ATTR COND: @4>1 and @5<2");

  Parsed none = Parse(kVector);
  EXPECT_FALSE(none.layer->record.conditions.has_value());
}

TEST(LifReaderTest, FallbackFileIsASeparateDescription) {
  test::TempDir dir;
  dir.Write("low.lif", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=low/roads.tvf\nFALLBACK=again.lif\n");
  std::string lif = dir / "roads.lif";
  Parsed p = Parse(std::string(kVector) + "FALLBACK=low.lif\n", lif);
  ASSERT_NE(p.layer, nullptr);
  EXPECT_EQ(p.messages, Texts{});
  ASSERT_NE(p.layer->fallback_file_layer, nullptr);
  const Layer& fallback = *p.layer->fallback_file_layer;
  EXPECT_EQ(fallback.name, "t");
  EXPECT_TRUE(fallback.is_fallback_description);
  EXPECT_EQ(fallback.record.data_path, dir / "low/roads.tvf");
  EXPECT_EQ(fallback.fallback_file_layer, nullptr);  // no fallback of a fallback
  EXPECT_EQ(p.layer->record.fallback_file_path, dir / "low.lif");
}

TEST(LifReaderTest, FilesAndPaths) {
  test::TempDir dir;
  dir.Write("layers/roads.lif", kVector);
  auto dataset = CreateDataset("DefaultDataset", dir / "set.sdf");
  dataset->resources.SetString(kDatasetLayerPath, "layers");
  {
    test::MessageCapture capture;
    kav::Messages().verbosity = 8;
    Layer* layer = ReadLifFile(*dataset, "roads", "roads.lif");
    ASSERT_NE(layer, nullptr);
    EXPECT_EQ(capture.Texts(),
              (Texts{"Info: Lif name: roads.lif", "Info: Root path: " + dir.path(),
                     "Info: Layer path: layers", "Info: Lif path: " + dir / "layers",
                     "Info: Full lif name: " + dir / "layers/roads.lif",
                     "Info: Final lif path: " + dir / "layers"}));
    EXPECT_EQ(layer->record.data_path, dir / "layers/roads.tvf");
    EXPECT_EQ(dataset->layers.size(), 1u);
    EXPECT_EQ(dataset->StringOption(kDatasetFilePath), dir / "layers");
  }
  {
    test::MessageCapture capture;
    EXPECT_EQ(ReadLifFile(*dataset, "gone", "gone.lif"), nullptr);
    EXPECT_EQ(capture.Texts(), Texts{"Error: Could not be opened: " + dir / "layers/gone.lif"});
    EXPECT_EQ(dataset->layers.size(), 1u);
  }
  {
    test::MessageCapture capture;
    EXPECT_EQ(ResolveLifPath(*dataset, "\\abs\\x.lif"), "/abs/x.lif");
    EXPECT_EQ(ReadLifFile(*dataset, "dir", dir.path()), nullptr);  // a directory: reading stops
    EXPECT_EQ(capture.Texts(),
              (Texts{"Error: Error reading layer info file!: " + dir.path(),
                     "Error: Mandatory variables TYPE or TRANS TYPE not set!: " + dir.path()}));
  }
}

}  // namespace
}  // namespace vmp
