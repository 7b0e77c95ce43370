#include "map_server/dataset/lif_reader.h"

#include <gtest/gtest.h>

#include <cctype>
#include <map>
#include <variant>

#include "map_server/dataset/dataset.h"
#include "map_server/dataset/lif_keywords.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"
#include "toolkit/strings.h"

namespace vmp {
namespace {

using Texts = std::vector<std::string>;

const std::string kPath = "/lifs/t.lif";
const std::string kVector = "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=roads.tvf\n";
const std::string kImage = "TYPE=IMAGE\nTRANS TYPE=OPAQUE\nFILENAME=world.jpg\nWIDTH=100\nHEIGHT=50\n";
const std::string kGrid = "TYPE=GRID\nTRANS TYPE=OPAQUE\nGRID LAT INTERVAL=15\n";

// "<severity>: <message>: <the LIF>[: <number>]", the form most messages take.
std::string Err(const std::string& message, const std::string& number = "") {
  return "Error: " + message + ": " + kPath + (number.empty() ? "" : ": " + number);
}
std::string Warn(const std::string& message) { return "Warning: " + message + ": " + kPath; }

struct Parsed {
  std::unique_ptr<Layer> layer;
  Texts messages;
};

Parsed Parse(std::string_view text, std::string_view path = kPath) {
  static const std::unique_ptr<Dataset> kDataset = CreateDataset("DefaultDataset", "");
  test::MessageCapture capture;
  Parsed out;
  out.layer = ParseLifText(*kDataset, "t", path, text, false, false);
  out.messages = capture.Texts();
  return out;
}

using Expected = std::variant<double, std::string, Rgb>;

void ExpectResource(const Layer& layer, const char* name, const Expected& expected) {
  const Resource* r = layer.resources.Find(name);
  ASSERT_NE(r, nullptr) << name;
  const Expected actual = r->kind == ResourceKind::kString  ? Expected(r->text.value_or("(none)"))
                          : r->kind == ResourceKind::kColor ? Expected(r->color)
                                                            : Expected(r->number);
  EXPECT_EQ(actual, expected) << name;
}

// `line` between two good lines of a vector layer: reading goes on past it.
Parsed Between(const std::string& line) {
  Parsed p = Parse(kVector + "LINE WIDTH=2\n" + line + "\nALPHA=0.25\n");
  EXPECT_NE(p.layer, nullptr) << line;
  if (p.layer) {
    ExpectResource(*p.layer, "LineWidth", 2.0);
    ExpectResource(*p.layer, "Alpha", 0.25);
  }
  return p;
}

// A keyword sets the parameter it spells ("MAX CACHE SIZE=" sets
// MaxCacheSize), except for the aliases and shortened names listed here.
TEST(LifReaderTest, KeywordsNameTheirParameters) {
  const std::map<std::string, std::string> other_names = {
      {"FONT=", "TextFont"}, {"FONT TYPE=", "TextType"}, {"FONT ANGLE=", "TextAngle"},
      {"MARKER ICON SIZE=", "MarkerSize"}, {"TBOX MARGIN=", "TextBoxMargin"}, {"TBOX LINE WIDTH=", "TextBoxLineWidth"},
      {"VTEXT LINE WIDTH=", "VTextLineWidth"}, {"DEFAULT ON=", "IsDefault"}, {"LABEL EDGE COLOR=", "LabelOutlineColor"},
      {"LABEL CENTER=", "PolyLabelCenter"}, {"LABEL TYPE=", "PolyLabelType"},
      {"IMAGE ANTIALIASING=", "ImageAntiAliasing"}, {"ADAPTIVE=", "AdaptiveGrid"}, {"LABELS=", "GridLabels"}};
  EXPECT_EQ(LifKeywords().size(), 107u);  // a lost keyword would read as unrecognised
  for (const LifKeyword& k : LifKeywords()) {
    if (k.action != LifAction::kSetParam) continue;
    std::string spelled;
    bool word_start = true;
    for (char c : std::string_view(k.keyword)) {
      if (c == ' ' || c == '=') {
        word_start = true;
      } else {
        spelled += word_start ? c : static_cast<char>(std::tolower(c));
        word_start = false;
      }
    }
    auto other = other_names.find(k.keyword);
    EXPECT_STREQ(LayerParamTable()[k.param].name,
                 (other == other_names.end() ? spelled : other->second).c_str()) << k.keyword;
  }
}

TEST(LifReaderTest, ValueForms) {
  struct Case {
    const char* line;
    const char* resource;
    Expected value;
  };
  const Case cases[] = {
      {"MAX TILES=4", "MaxTiles", 4.0},
      {"LOCK TIMEOUT=0.5", "LockTimeout", 0.5},
      {"FILTER=\"gzip -dc\"", "Filter", std::string("gzip -dc")},
      {"LOCK FILE=tiles.lock", "LockFile", std::string("/lifs/tiles.lock")},
      {"LOCK FILE=/var/lock/tiles", "LockFile", std::string("/var/lock/tiles")},
      {"MARKER ICON FILE=icons\\pin.png", "MarkerIconFile", std::string("/lifs/icons/pin.png")},
      {"REDIRECT FILE=sub\\redirect.txt", "RedirectFile", std::string("sub/redirect.txt")},
      {"EDGE COLOR=0.2, 0.4, 0.6", "EdgeColor", Rgb{0.2, 0.4, 0.6}},
      {"FILL COLOR=1\t1\t0", "FillColor", Rgb{1, 1, 0}},
      {"TRANS TYPE=\"TRANSPARENT COLOR OPAQUE\"", "TransType", 5.0},
      {"TEXT ANCHOR=HLEFT VTOP", "TextAnchor", 17.0},
      {"FONT ANCHOR=HRIGHT, VBOTTOM", "TextAnchor", 34.0},
      {"TEXT ANCHOR=HCENTER VCENTER", "TextAnchor", 0.0},
      {"LABEL STYLE=BG_EDGE|BG_FILL", "LabelStyle", 3.0},
      {"MARKER ICON TYPE=NONE", "MarkerType", 0.0},
      {"MARKER ICON TYPE=CROSS BOX_EDGE BOX_FILL CIRCLE_EDGE CIRCLE_FILL DOT", "MarkerType", 63.0},
      // The marker's background flags join the label style.
      {"MARKER ICON TYPE=CROSS|BG_FILL", "MarkerType", 1.0},
      {"MARKER ICON TYPE=CROSS|BG_FILL", "LabelStyle", 2.0},
      {"MARKER ICON TYPE=BG_EDGE", "MarkerType", 0.0},
      {"MARKER ICON TYPE=BOX_EDGE BG_EDGE\nLABEL STYLE=OUTLINE", "LabelStyle", 5.0},
      {"LABEL STYLE=OUTLINE\nMARKER ICON TYPE=CIRCLE_FILL,BG_FILL", "LabelStyle", 6.0},
      {"BACKGROUND COLOR=1, 0.5, 0", "BGColorGreen", 127.0},  // 0..255, truncated
      {"BACKGROUND COLOR=2, -1, 0.2", "BGColorRed", 255.0},
      {"BACKGROUND COLOR=2, -1, 0.2", "BGColorGreen", 0.0},
      {"BACKGROUND COLOR=2, -1, 0.2", "BGColorBlue", 51.0},
  };
  for (const Case& c : cases) {
    Parsed p = Parse(kVector + c.line + "\n");
    ASSERT_NE(p.layer, nullptr) << c.line;
    EXPECT_EQ(p.messages, Texts{}) << c.line;
    ExpectResource(*p.layer, c.resource, c.value);
  }
}

// Each word list: a word and its value (words may hold blanks), and another
// word refused with the list's own message while reading goes on.
TEST(LifReaderTest, EnumerationWords) {
  struct Case {
    const char* keyword;
    const char* word;
    const char* resource;
    double value;
    const char* bad_word;
    const char* message;
  };
  const Case cases[] = {
      {"TRANS TYPE=", "ALPHA WHITE OPAQUE", "TransType", 1, "opaque", "Invalid TRANS TYPE"},
      {"TEXT TYPE=", "MAPPED FLAT", "TextType", 1, "flat", "Invalid text type"},
      {"FILL TYPE=", "FILL AND EDGE", "FillType", 3, "SOLID", "Invalid fill type"},
      {"POLY LABEL TYPE=", "BBOX LABEL", "PolyLabelType", 3, "line label", "Invalid label type"},
      {"LABEL TYPE=", "MID LINE LABEL", "PolyLabelType", 1, "AREA", "Invalid label type"},
      {"LAYOUT TYPE=", "GLOBAL", "LayoutType", 2, "none", "Invalid layout type"},
      {"ELEVATION MODE=", "DATA AS COLOR", "ElevationMode", 3, "RAW", "Invalid elevation mode"},
      {"LABEL SELECTION MODE=", "INTILE", "LabelSelectionMode", 1, "ALL", "Invalid select labels mode"},
      {"LABEL SELECTION MODE=", "UNSET", "LabelSelectionMode", 3, "unset", "Invalid select labels mode"},
      {"GRID LABEL CHAR=", "PREPEND", "GridLabelChar", 2, "AFTER", "Invalid grid label char value"},
      {"GRADIENT TYPE=", "AROUND_GLOBE", "GradientType", 1, "LINEAR", "Invalid gradient type"},
  };
  for (const Case& c : cases) {
    Parsed good = Parse(kVector + c.keyword + c.word + "\n");
    ASSERT_NE(good.layer, nullptr) << c.keyword;
    EXPECT_EQ(good.messages, Texts{}) << c.keyword;
    ExpectResource(*good.layer, c.resource, c.value);
    Parsed bad = Between(std::string(c.keyword) + c.bad_word);
    EXPECT_EQ(bad.messages, Texts{"Error: " + std::string(c.message) + ": " + c.bad_word});
  }
}

TEST(LifReaderTest, KeywordsStoredInTheRecord) {
  Parsed p = Parse(
      "TYPE=IMAGE\nTRANS TYPE=BUMP MAP\nFILENAME=tiles\\t_%_%.jpg\nWIDTH=4000\nHEIGHT=2000\n"
      "NUM TILES X=4\nNUM TILES Y=2\nIMAGE TYPE=PNG\nVECTOR FORMAT=SHP\n"
      "MIN LON=-180\nMAX LON=180\nMIN LAT=-90\nMAX LAT=90\nPOS RANGE=1\nGRADIENT COLOR=0 0.5 1\n");
  ASSERT_NE(p.layer, nullptr);
  EXPECT_EQ(p.messages, Texts{});
  const LayerRecord& r = p.layer->record;
  EXPECT_EQ((std::vector<int64_t>{r.layer_type, r.trans_type, r.width, r.height, r.num_tiles_x,
                                  r.num_tiles_y, r.image_format, r.vector_format, r.allow_override}),
            (std::vector<int64_t>{kLayerImage, 4, 4000, 2000, 4, 2, 3, 2, 1}));  // the dataset's AllowOverride
  EXPECT_EQ((std::vector<double>{r.min_lon, r.max_lon, r.min_lat, r.max_lat}),
            (std::vector<double>{-180, 180, -90, 90}));
  EXPECT_EQ(r.filename, "tiles/t_%_%.jpg");
  EXPECT_EQ(r.data_path, "/lifs/tiles/t_%_%.jpg");
  EXPECT_EQ(r.lif_dir, "/lifs");
  EXPECT_TRUE(r.pos_range);
  EXPECT_EQ(r.gradient_color, (Rgb{0, 127.5, 255}));
  ExpectResource(*p.layer, "Width", 4000.0);
}

TEST(LifReaderTest, BadLinesAreReportedAndReadingGoesOn) {
  const std::string cannot = "Error: " + kPath + ": cannot read: ";
  struct Case {
    const char* line;
    Texts messages;
  };
  const Case cases[] = {
      {"IMAGE FORMAT=JPG", {"Error: Invalid image format: JPG"}},
      {"VECTOR FORMAT=GML", {"Error: Invalid vector format: GML"}},
      {"TEXT ANCHOR=LEFT VTOP", {"Error: Invalid text h_anchor type: LEFT"}},
      {"FONT ANCHOR=HLEFT TOP", {"Error: Invalid text v_anchor type: TOP"}},
      {"TEXT ANCHOR=HLEFT", {cannot + "TEXT ANCHOR"}},
      {"LABEL STYLE=BOLD", {"Error: Invalid label style: BOLD"}},
      {"MARKER ICON TYPE=STAR", {"Error: Invalid marker type: STAR"}},
      {"TYPE=VECTOR", {Err("Repeated layer TYPE")}},
      {"MAX TILES=lots", {cannot + "MAX TILES"}},
      {"LOCK TIMEOUT=soon", {cannot + "LOCK TIMEOUT"}},
      {"EDGE COLOR=red", {cannot + "EDGE COLOR"}},
      {"FILTER=", {cannot + "FILTER"}},
      {"TYPE=", {cannot + "OBJECT TYPE"}},
      {"TRANS TYPE=", {cannot + "TRANSPARENCY TYPE"}},
      {"TBOX MARGIN=x", {cannot + "TEXT BOX MARGIN"}},
      {"TBOX LINE WIDTH=x", {cannot + "TEXT BOX LINE WIDTH"}},
      {"TRANS COLOR=1 1", {cannot + "TRANSPARENT COLOR"}},
      {"TRANS COLOR PRECISION=x", {cannot + "TRANSPARENT COLOR PRECISION"}},
      {"type=VECTOR", {Err("LIF file"), "Warning: Unrecognized variable: type=VECTOR"}},
      {"CUSTOM ATTR=x", {Err("Cannot read custom attribute number")}},
      {"CUSTOM ATTR=1", {Err("Cannot read custom attribute name")}},
      {"CUSTOM ATTR=1 speed", {Err("Cannot read custom attribute type")}},
      {"CUSTOM ATTR=1 speed VMP_X", {"Error: Invalid custom attribute type: VMP_X"}},
      {"CUSTOM ATTR=1 Alpha VMP_D", {"Error: Repeated custom attribute: Alpha"}},
      {"CUSTOM ATTR=65536 big VMP_D", {"Error: Custom attribute number is too large: big"}},
      {"ATTR MAP=speed MinZoom t.thr ABS",
       {"Error: Invalid attribute name (define custom attrs first): speed"}},
      {"PIXEL MAP=PixelColor TransColor t.thr ABS",
       {Err("PIXEL THRESHOLD is supported for IMAGE layers only")}},
      {"ATTR COND=", {Err("LIF file"), "Warning: Skipping invalid ATTR COND"}},
  };
  for (const Case& c : cases) {
    Parsed p = Between(c.line);
    EXPECT_EQ(p.messages, c.messages) << c.line;
    if (p.layer) { EXPECT_EQ(p.layer->record.layer_type, kLayerVector) << c.line; }
  }
  EXPECT_EQ(Between("CUSTOM ATTR=65535 big VMP_D").messages, Texts{});
}

TEST(LifReaderTest, ChecksAfterTheLastLine) {
  const std::string lif_file = Err("LIF file"), unset = "Error: Mandatory variable not set!: ";
  const std::string mandatory = Err("Mandatory variables TYPE or TRANS TYPE not set!");
  const std::string thrashing = Warn("Thrashing, set MAX CACHE SIZE >= MAX TILES for image layers");
  struct Case {
    std::string text;
    Texts messages;
    bool created = true;
    std::vector<int32_t> limits = {};  // the vector store's MaxTiles and MaxCacheSize
  };
  const Case cases[] = {
      {"TRANS TYPE=OPAQUE\nFILENAME=x", {mandatory}, false},
      {"TYPE=VECTOR\nFILENAME=x", {mandatory}, false},
      {"TYPE=image\nTRANS TYPE=OPAQUE", {"Error: Invalid layer type: image", mandatory}, false},
      {"TYPE=VECTOR\nTRANS TYPE=OPAQUE",
       {Err("Mandatory variable not set: Filename!"), lif_file, unset + "Filename"}},
      {"TYPE=IMAGE\nTRANS TYPE=OPAQUE\nFILENAME=w.jpg",
       {lif_file, unset + "Image Width", lif_file, unset + "Image Height"}},
      // Without a valid cache size the cache is unbounded, unless a tile limit holds.
      {kVector + "MAX TILES=0", {Err("Invalid MAX TILES value", "0")}, true, {-1, -1}},
      {kVector + "MAX TILES=-2", {Err("Invalid MAX TILES value", "-2")}},
      {kVector + "MAX CACHE SIZE=0", {Err("Invalid MAX CACHE SIZE value", "0")}, true, {-1, -1}},
      {kVector + "MAX TILES=20\nMAX CACHE SIZE=0", {Err("Invalid MAX CACHE SIZE value", "0")},
       true, {20, 100}},
      {kVector + "MAX CACHE SIZE=30", {}, true, {-1, 30}},
      {kImage + "MAX TILES=50\nMAX CACHE SIZE=20", {thrashing}},
      {kImage + "MAX TILES=101", {thrashing}},  // against the default cache size, 100
      {kImage + "MAX TILES=100", {}},
      {kImage + "MAX TILES=50\nMAX CACHE SIZE=-1", {}},
      {kVector + "MAX TILES=200", {}, true, {200, 100}},
      {kGrid + "ADAPTIVE GRID=0", {Err("Cannot have zero or negative adaptive grid coefficient", "0")}},
      {kVector + "DEFAULT ON=-1", {Err("Cannot have negative DEFAULT ON value", "-1")}},
      {kVector + "ALLOW MISSING TILES=-1", {Err("Cannot have negative ALLOW MISSING TILES value", "-1")}},
      {kVector + "IMAGE ANTIALIASING=-3", {Err("Cannot have negative image_antialiasing", "-3")}},
      {kVector + "ALLOW OVERRIDE=-1", {Err("Cannot have negative ALLOW OVERRIDE value", "-1")}},
      {"TYPE=GRID\nTRANS TYPE=OPAQUE", {Warn("Grid Lat/Lon Interval or Adaptive Grid not set")}},
      {"TYPE=GRID\nTRANS TYPE=OPAQUE\nADAPTIVE=2", {}},
      {kGrid + "GRID LABEL FORMAT LON=%f", {Warn("Ignoring GRID LABEL FORMAT LON: no GRID LABEL FORMAT")}},
      {kVector + "LABEL TYPE=AREA LABEL", {Warn("Label type is AREA LABEL but LABEL CENTER not set")}},
      {kVector + "FALLBACK=f.lif\nFALLBACK LAYER=other", {Warn("FALLBACK LAYER overrides FALLBACK FILE")}},
      {kVector + "MARKER ICON TYPE=CUSTOM_ICON", {Err("Missing ICON FILE for CUSTOM_ICON marker type")}},
      {kVector + "MARKER ICON TYPE=CUSTOM_ICON\nMARKER ICON FILE=pin.png", {}},
      {kGrid + "REDIRECT FILE=r.txt", {Warn("Unexpected layer type for REDIRECT FILE")}},
      {kVector + "REDIRECT FILE=r.txt\nFALLBACK=/abs/f.lif",
       {Warn("Ignoring REDIRECT FILE due to absolute path in FALLBACK"),
        "Error: Could not be opened: /abs/f.lif"}},
      {"TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=/abs/x.tvf\nREDIRECT FILE=r.txt",
       {Warn("Ignoring REDIRECT FILE due to absolute path in FILENAME")}},
      {kGrid + "FALLBACK=f.lif", {"Error: Invalid layer type for fallback file: t"}},
      {"TYPE=VECTOR\nTRANS TYPE=OPAQUE\nTILES SUBLIF=/abs/t.slf\nREDIRECT FILE=r.txt",
       {Warn("Ignoring REDIRECT FILE due to absolute path in TILES SUBLIF"), "Error: Could not be opened: /abs/t.slf"}},
      {"TYPE=VECTOR\nTRANS TYPE=OPAQUE\nTILES SUBLIF=tree/",
       {"Error: Can't determine slf_name in TILES SUBLIF: tree/", Err("Mandatory variable not set: Filename!"),
        lif_file, unset + "Filename"}},
  };
  for (const Case& c : cases) {
    Parsed p = Parse(c.text);
    EXPECT_EQ(p.messages, c.messages) << c.text;
    EXPECT_EQ(p.layer != nullptr, c.created) << c.text;
    if (!c.limits.empty()) {
      const TileStoreLimits& store = p.layer->record.tiles.vector_store;
      EXPECT_EQ((std::vector<int32_t>{store.max_tiles, store.max_cache_size}), c.limits) << c.text;
    }
  }
}

TEST(LifReaderTest, Includes) {
  test::TempDir dir;
  dir.Write("common.inc", "EDGE COLOR=1 0 0\nINCLUDE=deeper.inc\nBOGUS=1\n");
  dir.Write("deeper.inc", "LINE WIDTH=5\nFILL TYPE=WRONG\n");
  dir.Write("self.inc", "INCLUDE=self.inc\n");
  dir.Write("tree/a.slf", "MIN LON=0\nMIN LAT=0\nMAX LON=1\nMAX LAT=1\nFILENAME=a.tvf\n");
  const std::string lif = dir / "roads.lif", common = dir / "common.inc";
  Parsed p = Parse("TYPE=VECTOR\nTRANS TYPE=OPAQUE\nTILES SUBLIF=other.slf\nINCLUDE=common.inc\n"
                   "INCLUDE=missing.inc\nINCLUDE=self.inc\nALPHA=0.5\nINCLUDE=tree/a.slf\n",
                   lif);
  ASSERT_NE(p.layer, nullptr);
  EXPECT_EQ(p.messages,
            (Texts{"Error: Invalid fill type: WRONG", "Error: In included file: " + dir / "deeper.inc",
                   "Error: LIF file: " + lif, "Error: In included file: " + common,
                   "Warning: Unrecognized variable: BOGUS=1", "Error: In included file: " + common,
                   "Error: LIF file: " + lif,
                   "Error: " + dir / "missing.inc" + ": Included file could not be opened",
                   "Error: Recursive INCLUDE, skipping: " + dir / "self.inc",
                   "Error: In included file: " + dir / "self.inc",
                   "Warning: Overwriting TILES SUBLIF with .slf from INCLUDE: tree/a.slf"}));
  ExpectResource(*p.layer, "EdgeColor", Rgb{1, 0, 0});
  ExpectResource(*p.layer, "LineWidth", 5.0);
  ExpectResource(*p.layer, "Alpha", 0.5);
  // An included .slf is the tile tree, read at once.
  EXPECT_EQ(p.layer->record.sublif_path, dir / "tree/a.slf");
  ASSERT_NE(p.layer->record.tile_tree, nullptr);
  EXPECT_EQ(p.layer->record.tile_tree->leaf_file, dir / "tree/a.tvf");

  // A long chain of distinct files is read to its depth limit, and refused as nested too deep.
  for (int i = 0; i < 20; ++i) {
    dir.Write(kav::StrPrintf("d%d.inc", i), kav::StrPrintf("INCLUDE=d%d.inc\nLINE WIDTH=%d\n", i + 1, i));
  }
  Parsed deep = Parse("TYPE=VECTOR\nTRANS TYPE=OPAQUE\nINCLUDE=d0.inc\n", lif);
  ASSERT_NE(deep.layer, nullptr);
  ASSERT_FALSE(deep.messages.empty());
  EXPECT_EQ(deep.messages[0], "Error: INCLUDE nested too deep, skipping: " + dir / "d15.inc");
  ExpectResource(*deep.layer, "LineWidth", 0.0);
}

TEST(LifReaderTest, TilesSublifOverridesTheGrid) {
  test::TempDir dir;
  dir.Write("t.slf", "MIN LON=0\nMIN LAT=0\nMAX LON=1\nMAX LAT=1\nFILENAME=a.jpg\n");
  const std::string lif = dir / "t.lif";
  Parsed p = Parse("TYPE=IMAGE\nTRANS TYPE=OPAQUE\nTILES SUBLIF=t.slf\nNUM TILES X=3\nWIDTH=10\n", lif);
  ASSERT_NE(p.layer, nullptr);
  EXPECT_EQ(p.messages, Texts{"Error: TILES SUBLIF overrides NUM TILES, WIDTH and HEIGHT: " + lif});
  EXPECT_EQ(p.layer->record.num_tiles_x, 1);
  EXPECT_EQ(p.layer->record.width, 0);
  ASSERT_NE(p.layer->record.tile_tree, nullptr);
  EXPECT_EQ(p.layer->record.tile_tree->leaf_file, dir / "a.jpg");
}

TEST(LifReaderTest, CustomAttributesAndMaps) {
  test::TempDir dir;
  dir.Write("speed.thr", "INPUT DATA TYPE=VMP_D\nOUTPUT DATA TYPE=VMP_G\n0 0,0,1\n100 1,0,0\n");
  dir.Write("pixel.thr", "INPUT DATA TYPE=VMP_G\nOUTPUT DATA TYPE=VMP_G\n1 1 1 0.5 0.5 0.5\n");
  const std::string lif = dir / "t.lif";
  const std::string head = kImage +
      "CUSTOM ATTR=4 speed VMP_G\nCUSTOM ATTR=1, \"road name\", VMP_S\nCUSTOM ATTR=-1 odd VMP_G\n";
  // The negative number is refused when the layer is built.
  const std::string negative = "Error: Invalid custom attribute index in ConvertConfig.: t";
  Parsed p = Parse(head + "ATTR MAP=speed LabelEdgeColor speed.thr REL\n"
                          "PIXEL MAP=PixelColor Alpha pixel.thr ABS\n", lif);
  ASSERT_NE(p.layer, nullptr);
  EXPECT_EQ(p.messages, Texts{negative});
  const LayerAttributes& a = p.layer->record.attributes;
  EXPECT_EQ(p.layer->record.custom_attr_index, (std::vector<int>{-1, 1, -1, -1, 0}));
  ExpectResource(*p.layer, "road name", std::string("(none)"));  // a string resource, no string yet
  ExpectResource(*p.layer, "speed", Rgb{});
  ASSERT_EQ(a.attr_maps.size(), 1u);
  EXPECT_EQ(a.attr_maps[0].output_index, 4);
  EXPECT_EQ(a.attr_maps[0].mode, ThresholdMode::kRelative);
  EXPECT_EQ(a.attr_maps[0].threshold_file, dir / "speed.thr");
  EXPECT_EQ(a.attr_maps[0].thresholds.size(), 2u);
  ASSERT_EQ(a.pixel_maps.size(), 1u);
  EXPECT_EQ(a.pixel_maps[0].thresholds[0].input, TypedValue::Geo(1, 1, 1));

  struct Case {
    const char* line;
    std::string message;
  };
  const Case cases[] = {
      {"ATTR MAP=", "Error reading attribute map's attribute name: " + lif},
      {"ATTR MAP=speed", "Error reading attribute map's resource name: " + lif},
      {"ATTR MAP=speed MinZoom", "Error reading attribute map's threshold file: " + lif},
      {"ATTR MAP=speed MinZoom speed.thr", "Error reading attribute map's ABS/REL flag: " + lif},
      {"ATTR MAP=speed MinZoom speed.thr abs", "Invalid threshold table type (REL or ABS): abs"},
      {"ATTR MAP=speed MinZoom none.thr ABS", dir / "none.thr" + ": Can't open threshold file"},
      {"PIXEL MAP=Color Alpha pixel.thr ABS", "Invalid attribute name (PixelColor expected): Color"},
      {"PIXEL MAP=speed Alpha pixel.thr ABS", "Unxepected non-zero attr name in PIXEL THRESHOLD: speed"},
      {"CUSTOM ATTR=4 other VMP_D", "Repeated custom attribute: other"},
  };
  for (const Case& c : cases) {
    Parsed bad = Parse(head + c.line + "\n", lif);
    ASSERT_NE(bad.layer, nullptr);
    EXPECT_EQ(bad.messages, (Texts{"Error: " + c.message, negative})) << c.line;
    EXPECT_TRUE(bad.layer->record.attributes.attr_maps.empty()) << c.line;
  }
  Parsed early = Parse("ATTR MAP=speed MinZoom speed.thr ABS\n" + kVector, lif);
  EXPECT_EQ(early.messages, Texts{"Error: Layer type must be set before ATTR MAP: " + lif});
}

TEST(LifReaderTest, AttrConditionsAddChainsAndInvalidOnesAreSkipped) {
  Parsed p = Parse(kVector + "ATTR COND=  @1==\"highway\"  \nATTR COND=lanes > 2\n"
                             "ATTR COND=@2>2 && @3==A* || @2<1\n");
  ASSERT_NE(p.layer, nullptr);
  ASSERT_TRUE(p.layer->record.conditions.has_value());
  const AttrConditionList& list = *p.layer->record.conditions;
  ASSERT_EQ(list.chains.size(), 3u);
  EXPECT_EQ(list.chains[1].conditions.size(), 2u);
  EXPECT_EQ(p.messages, (Texts{"Error: Attribute condition must start with @ char!: lanes > 2",
                               Err("LIF file"), "Warning: Skipping invalid ATTR COND: lanes > 2"}));
  EXPECT_FALSE(Parse(kVector).layer->record.conditions.has_value());
}

TEST(LifReaderTest, FilesAndPaths) {
  test::TempDir dir;
  dir.Write("layers/roads.lif", kVector);
  auto dataset = CreateDataset("DefaultDataset", dir / "set.sdf");
  dataset->resources.SetString(kDatasetLayerPath, "layers");
  test::MessageCapture capture;
  kav::Messages().verbosity = 8;
  Layer* layer = ReadLifFile(*dataset, "roads", "roads.lif");
  ASSERT_NE(layer, nullptr);
  EXPECT_EQ(capture.Texts(),
            (Texts{"Info: Lif name: roads.lif", "Info: Root path: " + dir.path(), "Info: Layer path: layers",
                   "Info: Lif path: " + dir / "layers", "Info: Full lif name: " + dir / "layers/roads.lif",
                   "Info: Final lif path: " + dir / "layers"}));
  EXPECT_EQ(layer->record.data_path, dir / "layers/roads.tvf");
  EXPECT_EQ(dataset->StringOption(kDatasetFilePath), dir / "layers");
  EXPECT_EQ(ResolveLifPath(*dataset, "\\abs\\x.lif"), "/abs/x.lif");

  kav::Messages().verbosity = 0;
  capture.Clear();
  EXPECT_EQ(ReadLifFile(*dataset, "gone", "gone.lif"), nullptr);
  EXPECT_EQ(ReadLifFile(*dataset, "dir", dir.path()), nullptr);  // a directory: reading stops
  EXPECT_EQ(capture.Texts(), (Texts{"Error: Could not be opened: " + dir / "layers/gone.lif",
                                    "Error: Error reading layer info file!: " + dir.path(),
                                    "Error: Mandatory variables TYPE or TRANS TYPE not set!: " + dir.path()}));
  EXPECT_EQ(dataset->layers.size(), 1u);
}

}  // namespace
}  // namespace vmp
