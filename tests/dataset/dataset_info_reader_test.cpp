#include "map_server/dataset/dataset_info_reader.h"

#include <gtest/gtest.h>

#include "map_server/dataset/dataset.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

using Texts = std::vector<std::string>;

// Reads `text` as the info file `path` into a new dataset; returns the messages.
Texts ReadInfo(std::unique_ptr<Dataset>* dataset, std::string_view text,
               std::string_view path = "set.sdf") {
  *dataset = CreateDataset("DefaultDataset", path);
  test::MessageCapture capture;
  ReadDatasetInfoText(**dataset, path, text);
  return capture.Texts();
}

TEST(DatasetInfoTest, InitialResources) {
  auto d = CreateDataset("DefaultDataset", "/data/world/set.sdf");
  EXPECT_EQ(d->StringOption(kDatasetVmpRoot), "/data/world");
  EXPECT_FALSE(d->resources.GetString(kDatasetLayerPath).value().has_value());
  EXPECT_EQ(d->StringOption(kDatasetDefaultFont) + "," + d->StringOption(kDatasetErrorFont), "roman,roman");
  const std::pair<const char*, double> numbers[] = {
      {kDatasetRelativeZoom, 0},   {kDatasetEncoding, 1},       {kDatasetGlyphCacheType, 1},
      {kDatasetAllowOverride, 1},  {kDatasetMaxImageTiles, -1}, {kDatasetMaxVectorTiles, -1}};
  for (const auto& [name, value] : numbers) EXPECT_EQ(d->NumberOption(name), value) << name;
  EXPECT_FALSE(d->aliases.has_value());
}

TEST(DatasetInfoTest, AcceptedKeywords) {
  struct Case {
    const char* line;
    const char* resource;
    double number;     // when text is null
    const char* text;
  };
  const Case cases[] = {
      {"VMP ROOT DIR=\\srv\\maps", kDatasetVmpRoot, 0, "/srv/maps"},
      {"VMP ROOT DIR=maps", kDatasetVmpRoot, 0, "/base/maps"},  // relative to the info file
      {"LAYER DIR=layers", kDatasetLayerPath, 0, "layers"},     // relative to the root, later
      {"FONT DIR=\"my fonts\"", kDatasetFontPath, 0, "my fonts"},
      {"REL ZOOM=1", kDatasetRelativeZoom, 1, nullptr},
      {"ENCODING=LATIN", kDatasetEncoding, 0, nullptr},
      {"ENCODING=UTF8", kDatasetEncoding, 1, nullptr},
      {"ALLOW OVERRIDE=0", kDatasetAllowOverride, 0, nullptr},
      {"MAX IMAGE TILES=250", kDatasetMaxImageTiles, 250, nullptr},
      {"MAX VECTOR TILES=40", kDatasetMaxVectorTiles, 40, nullptr},
      {"GLYPH CACHE TYPE=global", kDatasetGlyphCacheType, 2, nullptr},
      {"GLYPH CACHE TYPE=none", kDatasetGlyphCacheType, 0, nullptr},
  };
  for (const Case& c : cases) {
    std::unique_ptr<Dataset> d;
    EXPECT_EQ(ReadInfo(&d, c.line, "/base/set.sdf"), Texts{}) << c.line;
    if (c.text) {
      EXPECT_EQ(d->StringOption(c.resource), c.text) << c.line;
    } else {
      EXPECT_EQ(d->NumberOption(c.resource), c.number) << c.line;
    }
  }
}

TEST(DatasetInfoTest, MessagesOfSingleLines) {
  const std::string reserved =
      "Error: Default and * are reserved keywords, can't be used for layer names: set.sdf";
  struct Case {
    std::string text;
    Texts messages;
  };
  const Case cases[] = {
      {"LAYER DIR=a\nLAYER DIR=b", {"Warning: Repeated LAYER DIR: b"}},
      {"VMP ROOT DIR=a\nVMP ROOT DIR=b", {"Warning: Repeated ROOT DIRECTORY: b"}},
      {"FONT DIR=a\nFONT DIR=b", {"Warning: Repeated FONT DIR: b"}},
      {"ENCODING=UTF8\nENCODING=LATIN", {"Warning: Repeated ENCODING: LATIN"}},
      {"ENCODING=utf8", {"Error: Dataset: set.sdf", "Error: Invalid encoding: utf8"}},
      {"GLYPH CACHE TYPE=Local", {"Error: Dataset: set.sdf", "Error: Invalid glyph cache type: Local"}},
      {"LAYER DIR=", {"Error: set.sdf: cannot read: LAYER DIRECTORY"}},
      {"VMP ROOT DIR=", {"Error: set.sdf: cannot read: ROOT DIRECTORY"}},
      {"FONT DIR=", {"Error: set.sdf: cannot read: FONT DIRECTORY"}},
      {"REL ZOOM=yes", {"Error: set.sdf: cannot read: RELATIVE ZOOM"}},
      {"LAYER=onlyname", {"Error: set.sdf: cannot read: LAYER"}},
      {"FONT=sans", {"Error: set.sdf: cannot read: VECTOR FONT"}},
      {"IMAGE FONT=", {"Error: set.sdf: cannot read: IMAGE FONT"}},
      {"MAX IMAGE TILES=many", {"Error: set.sdf: cannot read: MAX IMAGE TILES"}},
      {"ALIAS=x", {"Error: set.sdf: cannot read: ALIAS"}},
      {"DEFAULT FONT=", {"Error: set.sdf: cannot read: DEFAULT FONT"}},
      {"GLYPH CACHE TYPE=", {"Error: set.sdf: cannot read: GLYPH CACHE TYPE"}},
      {"layer dir=x", {"Error: SDF file: set.sdf", "Warning: Unrecognized variable: layer dir=x"}},
      {"LAYER=*, star.lif", {reserved}},
      {"LAYER=default, d.lif", {reserved}},
  };
  for (const Case& c : cases) {
    std::unique_ptr<Dataset> d;
    EXPECT_EQ(ReadInfo(&d, c.text), c.messages) << c.text;
  }
}

// Reading goes on after every bad line; a value that was refused does not
// count as given, and the first of two directories stays.
TEST(DatasetInfoTest, ReadingGoesOnAfterErrors) {
  std::unique_ptr<Dataset> d;
  EXPECT_EQ(ReadInfo(&d, "BOGUS LINE\nENCODING=latin\nENCODING=LATIN\nMAX VECTOR TILES=x\n"
                         "MAX VECTOR TILES=12\nLAYER DIR=first\nLAYER DIR=second\nALIAS=z, \"a,b\"\n").size(),
            6u);
  EXPECT_EQ(d->NumberOption(kDatasetEncoding), 0);
  EXPECT_EQ(d->NumberOption(kDatasetMaxVectorTiles), 12);
  EXPECT_EQ(d->StringOption(kDatasetLayerPath), "first");
  EXPECT_NE(FindAlias(*d, "z"), nullptr);
}

TEST(DatasetInfoTest, Fonts) {
  struct Case {
    const char* text;
    const char* default_font;
    const char* error_font;
  };
  const Case cases[] = {{"DEFAULT FONT=sans", "sans", "sans"},
                        {"ERROR FONT=mono", "roman", "mono"},
                        {"ERROR FONT=mono\nDEFAULT FONT=sans", "sans", "mono"},
                        {"DEFAULT FONT=sans\nERROR FONT=mono", "sans", "mono"}};
  for (const Case& c : cases) {
    std::unique_ptr<Dataset> d;
    EXPECT_EQ(ReadInfo(&d, c.text), Texts{}) << c.text;
    EXPECT_EQ(d->StringOption(kDatasetDefaultFont), c.default_font) << c.text;
    EXPECT_EQ(d->StringOption(kDatasetErrorFont), c.error_font) << c.text;
  }

  std::unique_ptr<Dataset> d;
  // FONT DIR applies to every font, those named before it too.
  ReadInfo(&d, "VECTOR FONT=sans, sans.vft\nFONT DIR=fonts\nIMAGE FONT=icons, /abs/icons.fnt\n"
               "FONT=serif, serif.vft\n", "/maps/set.sdf");
  ASSERT_EQ(d->fonts.size(), 3u);
  test::MessageCapture capture;
  const Font* sans = FindFont(*d, std::string("sans"));
  ASSERT_NE(sans, nullptr);
  EXPECT_EQ(sans->file, "/maps/fonts/sans.vft");
  EXPECT_EQ(sans->kind, FontKind::kVector);
  EXPECT_EQ(FindFont(*d, std::string("icons"))->file, "/abs/icons.fnt");
  EXPECT_EQ(FindFont(*d, std::string("icons"))->kind, FontKind::kImage);
  EXPECT_EQ(FindFont(*d, std::string("serif"))->kind, FontKind::kVector);
  EXPECT_EQ(FindFont(*d, std::string("Sans")), nullptr);
  EXPECT_EQ(FindFont(*d, std::string("gothic"), /*quiet=*/true), nullptr);
  EXPECT_EQ(FindFont(*d, std::nullopt, true), nullptr);
  EXPECT_EQ(capture.Texts(), (Texts{"Error: Can't find font: Sans", "Error: NULL font name"}));
}

TEST(DatasetInfoTest, Aliases) {
  const Texts zoom_error = {"Error: Zoom range error for alias: base"};
  const Texts box_error = {"Error: Box error for alias: base"}, unknown = {"Error: Unknown alias: x"};
  auto error = [](const std::string& first, const Texts& second) {
    Texts texts = {"Error: set.sdf: " + first};
    texts.insert(texts.end(), second.begin(), second.end());
    return texts;
  };
  struct Case {
    const char* line;
    Texts messages;
    std::vector<double> zoom;  // min, max
    size_t enable_boxes = 0, disable_boxes = 0;
  };
  const Case cases[] = {
      {"ALIAS ZOOM RANGE=base, 2, 5", {}, {2, 5}},
      {"ALIAS ZOOM RANGE=base 5 0", {}, {5, 0}},  // 0 or less: no bound
      {"ALIAS ZOOM RANGE=base, 0, -1", {}, {0, -1}},
      {"ALIAS ZOOM RANGE=base, 5, 2", error("ALIAS ZOOM RANGE: invalid zoom range", zoom_error), {-1, -1}},
      {"ALIAS ZOOM RANGE=base, 5", error("cannot read: ALIAS ZOOM RANGE", zoom_error), {-1, -1}},
      {"ALIAS ZOOM RANGE=x, 1, 2", error("ALIAS ZOOM RANGE: unknown alias", unknown), {-1, -1}},
      {"ALIAS ENABLE BOX=base, -10, 0, 5, 1", {}, {-1, -1}, 1, 0},
      {"ALIAS DISABLE BOX=base -10 0 5 1", {}, {-1, -1}, 0, 1},
      {"ALIAS ENABLE BOX=base, 10, 0, 5, 1", error("ALIAS ENABLE BOX: invalid box", box_error), {-1, -1}},
      {"ALIAS DISABLE BOX=base, 0, 3, 5, 3", error("ALIAS DISABLE BOX: invalid box", box_error), {-1, -1}},
      {"ALIAS ENABLE BOX=base, 0, 3, 5", error("cannot read: ALIAS ENABLE BOX", box_error), {-1, -1}},
      {"ALIAS DISABLE BOX=x, 0, 0, 1, 1", error("ALIAS DISABLE BOX: unknown alias", unknown), {-1, -1}},
  };
  for (const Case& c : cases) {
    std::unique_ptr<Dataset> d;
    EXPECT_EQ(ReadInfo(&d, std::string("ALIAS=base, \"coast,rivers\"\n") + c.line), c.messages) << c.line;
    const Alias* alias = FindAlias(*d, "base");
    ASSERT_NE(alias, nullptr);
    EXPECT_EQ(alias->layers, "coast,rivers");
    EXPECT_EQ((std::vector<double>{alias->min_zoom, alias->max_zoom}), c.zoom) << c.line;
    EXPECT_EQ(alias->enable_boxes.value_or(std::vector<Box>{}).size(), c.enable_boxes) << c.line;
    EXPECT_EQ(alias->disable_boxes.value_or(std::vector<Box>{}).size(), c.disable_boxes) << c.line;
    if (c.enable_boxes) { EXPECT_EQ(alias->enable_boxes->front(), (Box{-10, 5, 0, 1})); }
  }
  std::unique_ptr<Dataset> d;
  ReadInfo(&d, "ALIAS=base, one\nALIAS=base, two\nALIAS=Base, three\n");
  EXPECT_EQ(FindAlias(*d, "base")->layers, "one");  // exact, first match
  EXPECT_EQ(FindAlias(*d, "Base")->layers, "three");
  EXPECT_EQ(FindAlias(*d, "BASE"), nullptr);
}

TEST(DatasetInfoTest, LayersAndAllowOverrideOrder) {
  test::TempDir dir;
  const char* lif = "TYPE=GRID\nTRANS TYPE=OPAQUE\nGRID LAT INTERVAL=10\n";
  dir.Write("layers/a.lif", lif);
  dir.Write("layers/b.lif", lif);
  std::string info = dir.Write("set.sdf", "LAYER DIR=layers\nALLOW OVERRIDE=0\nLAYER=a, a.lif\n"
                                          "ALLOW OVERRIDE=1\nLAYER=b, b.lif\nLAYER=a, b.lif\n");
  auto dataset = CreateDataset("DefaultDataset", info);
  test::MessageCapture capture;
  ASSERT_TRUE(LoadDatasetInfo(*dataset, info));
  ASSERT_EQ(dataset->layers.size(), 2u);
  // The late ALLOW OVERRIDE still takes effect, for the layers read after it.
  EXPECT_EQ(FindLayer(*dataset, "a")->record.allow_override, 0);
  EXPECT_EQ(FindLayer(*dataset, "b")->record.allow_override, 1);
  EXPECT_EQ(FindLayer(*dataset, "roads"), nullptr);
  EXPECT_EQ(capture.Texts(), (Texts{"Warning: ALLOW OVERRIDE must be used before LAYERs!: " + info,
                                    "Warning: Repeated layer name, skipping: a",
                                    "Error: Layer does not exist or could not be found: roads"}));
}

TEST(DatasetInfoTest, FilesAndVerbosity) {
  test::TempDir dir;
  const std::tuple<std::string, bool, Texts> cases[] = {
      {dir / "none.sdf", false, {"Error: Cannot open dataset info file: " + dir / "none.sdf"}},
      {dir.path(), true, {"Error: Error reading dataset info file!: " + dir.path()}},
      {"", true, {}}};
  for (const auto& [path, ok, messages] : cases) {
    auto dataset = CreateDataset("DefaultDataset", path);
    test::MessageCapture capture;
    EXPECT_EQ(LoadDatasetInfo(*dataset, path), ok);
    EXPECT_EQ(capture.Texts(), messages);
  }
  test::MessageCapture capture;
  kav::Messages().verbosity = 2;
  auto dataset = CreateDataset("DefaultDataset", "/r/set.sdf");
  ReadDatasetInfoText(*dataset, "/r/set.sdf", "LAYER DIR=lay\nFONT DIR=/f\n");
  EXPECT_EQ(capture.Texts(), (Texts{"Info: SDF path: /r", "Info: Layer path: lay", "Info: Font path: /f"}));
}

}  // namespace
}  // namespace vmp
