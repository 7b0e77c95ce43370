#include "map_server/dataset/dataset_info_reader.h"

#include <gtest/gtest.h>

#include "map_server/dataset/config_reader.h"
#include "map_server/dataset/dataset.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

// Reads `text` as the info file "set.sdf" (in the current directory) and
// returns the messages it produced.
std::vector<std::string> ReadInfo(Dataset& dataset, std::string_view text,
                                  std::string_view path = "set.sdf") {
  test::MessageCapture capture;
  ReadDatasetInfoText(dataset, path, text);
  return capture.Texts();
}

std::unique_ptr<Dataset> NewDataset(std::string_view info_path = "set.sdf") {
  return CreateDataset("DefaultDataset", info_path);
}

using Texts = std::vector<std::string>;

TEST(DatasetInfoTest, InitialResources) {
  auto dataset = NewDataset("/data/world/set.sdf");
  EXPECT_EQ(dataset->resources.resources().size(), 14u);
  EXPECT_EQ(dataset->StringOption(kDatasetVmpRoot), "/data/world");
  EXPECT_FALSE(dataset->resources.GetString(kDatasetLayerPath).value().has_value());
  EXPECT_EQ(dataset->NumberOption(kDatasetEncoding), 1);
  EXPECT_EQ(dataset->NumberOption(kDatasetGlyphCacheType), 1);
  EXPECT_EQ(dataset->NumberOption(kDatasetAllowOverride), 1);
  EXPECT_EQ(dataset->NumberOption(kDatasetMaxImageTiles), -1);
  EXPECT_EQ(dataset->NumberOption(kDatasetMaxVectorTiles), -1);
  EXPECT_EQ(dataset->StringOption(kDatasetDefaultFont), "roman");
  EXPECT_EQ(dataset->StringOption(kDatasetErrorFont), "roman");
  EXPECT_FALSE(dataset->aliases.has_value());
}

TEST(DatasetInfoTest, AcceptedKeywords) {
  struct Case {
    const char* line;
    const char* resource;
    double number;       // when text is null
    const char* text;
  };
  const Case cases[] = {
      {"VMP ROOT DIR=/srv/maps", kDatasetVmpRoot, 0, "/srv/maps"},
      {"VMP ROOT DIR=\\srv\\maps", kDatasetVmpRoot, 0, "/srv/maps"},
      {"VMP ROOT DIR=maps", kDatasetVmpRoot, 0, "/base/maps"},  // relative to the info file
      {"LAYER DIR=layers", kDatasetLayerPath, 0, "layers"},
      {"FONT DIR=\"my fonts\"", kDatasetFontPath, 0, "my fonts"},
      {"REL ZOOM=1", kDatasetRelativeZoom, 1, nullptr},
      {"ENCODING=LATIN", kDatasetEncoding, 0, nullptr},
      {"ENCODING=UTF8", kDatasetEncoding, 1, nullptr},
      {"ALLOW OVERRIDE=0", kDatasetAllowOverride, 0, nullptr},
      {"MAX IMAGE TILES=250", kDatasetMaxImageTiles, 250, nullptr},
      {"MAX VECTOR TILES=40", kDatasetMaxVectorTiles, 40, nullptr},
      {"GLYPH CACHE TYPE=global", kDatasetGlyphCacheType, 2, nullptr},
      {"GLYPH CACHE TYPE=none", kDatasetGlyphCacheType, 0, nullptr},
      {"GLYPH CACHE TYPE=local", kDatasetGlyphCacheType, 1, nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.line);
    auto dataset = NewDataset("/base/set.sdf");
    EXPECT_EQ(ReadInfo(*dataset, c.line, "/base/set.sdf"), Texts{});
    if (c.text) EXPECT_EQ(dataset->StringOption(c.resource), c.text);
    else EXPECT_EQ(dataset->NumberOption(c.resource), c.number);
  }
}

TEST(DatasetInfoTest, MessagesOfSingleLines) {
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
      {"GLYPH CACHE TYPE=Local",
       {"Error: Dataset: set.sdf", "Error: Invalid glyph cache type: Local"}},
      {"LAYER DIR=", {"Error: set.sdf: cannot read: LAYER DIRECTORY"}},
      {"VMP ROOT DIR=", {"Error: set.sdf: cannot read: ROOT DIRECTORY"}},
      {"REL ZOOM=yes", {"Error: set.sdf: cannot read: RELATIVE ZOOM"}},
      {"LAYER=onlyname", {"Error: set.sdf: cannot read: LAYER"}},
      {"FONT=sans", {"Error: set.sdf: cannot read: VECTOR FONT"}},
      {"IMAGE FONT=", {"Error: set.sdf: cannot read: IMAGE FONT"}},
      {"MAX IMAGE TILES=many", {"Error: set.sdf: cannot read: MAX IMAGE TILES"}},
      {"ALIAS=x", {"Error: set.sdf: cannot read: ALIAS"}},
      {"DEFAULT FONT=", {"Error: set.sdf: cannot read: DEFAULT FONT"}},
      {"GLYPH CACHE TYPE=", {"Error: set.sdf: cannot read: GLYPH CACHE TYPE"}},
      {"LAYERS=x", {"Error: SDF file: set.sdf", "Warning: Unrecognized variable: LAYERS=x"}},
      {"layer dir=x", {"Error: SDF file: set.sdf", "Warning: Unrecognized variable: layer dir=x"}},
      {"LAYER=*, star.lif",
       {"Error: Default and * are reserved keywords, can't be used for layer names: set.sdf"}},
      {"LAYER=default, d.lif",
       {"Error: Default and * are reserved keywords, can't be used for layer names: set.sdf"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    auto dataset = NewDataset();
    EXPECT_EQ(ReadInfo(*dataset, c.text), c.messages);
  }
}

TEST(DatasetInfoTest, OverlongLineIsCutNotSplit) {
  auto dataset = NewDataset();
  std::string line = "LAYER DIR=" + std::string(1100, 'd');
  EXPECT_EQ(ReadInfo(*dataset, line + "\nFONT DIR=f\n"),
            Texts{"Warning: Line is too long, truncated!: set.sdf"});
  EXPECT_EQ(dataset->StringOption(kDatasetLayerPath), std::string(kMaxConfigLine - 10, 'd'));
  EXPECT_EQ(dataset->StringOption(kDatasetFontPath), "f");
}

TEST(DatasetInfoTest, FirstDirectoryIsKept) {
  auto dataset = NewDataset();
  ReadInfo(*dataset, "LAYER DIR=first\nLAYER DIR=second\n");
  EXPECT_EQ(dataset->StringOption(kDatasetLayerPath), "first");
}

TEST(DatasetInfoTest, InvalidEncodingLeavesItUnchanged) {
  auto dataset = NewDataset();
  ReadInfo(*dataset, "ENCODING=utf8\n");
  EXPECT_EQ(dataset->NumberOption(kDatasetEncoding), 1);
  // An invalid value does not count as given: a later valid one is taken.
  ReadInfo(*dataset, "ENCODING=latin\nENCODING=LATIN\n");
  EXPECT_EQ(dataset->NumberOption(kDatasetEncoding), 0);
}

TEST(DatasetInfoTest, FontsAfterTheLastLine) {
  struct Case {
    const char* text;
    const char* default_font;
    const char* error_font;
  };
  const Case cases[] = {
      {"", "roman", "roman"},
      {"DEFAULT FONT=sans", "sans", "sans"},
      {"ERROR FONT=mono", "roman", "mono"},
      {"ERROR FONT=mono\nDEFAULT FONT=sans", "sans", "mono"},
      {"DEFAULT FONT=sans\nERROR FONT=mono", "sans", "mono"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    auto dataset = NewDataset();
    EXPECT_EQ(ReadInfo(*dataset, c.text), Texts{});
    EXPECT_EQ(dataset->StringOption(kDatasetDefaultFont), c.default_font);
    EXPECT_EQ(dataset->StringOption(kDatasetErrorFont), c.error_font);
  }
}

TEST(DatasetInfoTest, FontRegistryAndLookups) {
  auto dataset = NewDataset("/maps/set.sdf");
  ReadInfo(*dataset,
           "VECTOR FONT=sans, sans.vft\n"
           "FONT DIR=fonts\n"  // applies to every font: resolved after the last line
           "IMAGE FONT=icons, /abs/icons.fnt\n"
           "FONT=serif, serif.vft\n",
           "/maps/set.sdf");
  ASSERT_EQ(dataset->fonts.size(), 3u);
  test::MessageCapture capture;
  const Font* sans = FindFont(*dataset, std::string("sans"));
  ASSERT_NE(sans, nullptr);
  EXPECT_EQ(sans->file, "/maps/fonts/sans.vft");
  EXPECT_EQ(sans->kind, FontKind::kVector);
  const Font* icons = FindFont(*dataset, std::string("icons"));
  ASSERT_NE(icons, nullptr);
  EXPECT_EQ(icons->file, "/abs/icons.fnt");
  EXPECT_EQ(icons->kind, FontKind::kImage);
  EXPECT_EQ(FindFont(*dataset, std::string("serif"))->kind, FontKind::kVector);
  EXPECT_TRUE(capture.messages().empty());

  EXPECT_EQ(FindFont(*dataset, std::string("Sans")), nullptr);
  EXPECT_EQ(FindFont(*dataset, std::string("gothic"), /*quiet=*/true), nullptr);
  EXPECT_EQ(FindFont(*dataset, std::nullopt, true), nullptr);
  EXPECT_EQ(capture.Texts(), (Texts{"Error: Can't find font: Sans", "Error: NULL font name"}));
}

TEST(DatasetInfoTest, AliasesAndZoomRanges) {
  struct Case {
    const char* line;
    Texts messages;
    double min_zoom;
    double max_zoom;
  };
  const Case cases[] = {
      {"ALIAS ZOOM RANGE=base, 2, 5", {}, 2, 5},
      {"ALIAS ZOOM RANGE=base 0 2", {}, 0, 2},      // 0: no lower bound
      {"ALIAS ZOOM RANGE=base, 5, -1", {}, 5, -1},  // no upper bound
      {"ALIAS ZOOM RANGE=base, 5, 2",
       {"Error: set.sdf: ALIAS ZOOM RANGE: invalid zoom range",
        "Error: Zoom range error for alias: base"},
       -1, -1},
      {"ALIAS ZOOM RANGE=base, 5",
       {"Error: set.sdf: cannot read: ALIAS ZOOM RANGE", "Error: Zoom range error for alias: base"},
       -1, -1},
      {"ALIAS ZOOM RANGE=Base, 1, 2",
       {"Error: set.sdf: ALIAS ZOOM RANGE: unknown alias", "Error: Unknown alias: Base"}, -1, -1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.line);
    auto dataset = NewDataset();
    EXPECT_EQ(ReadInfo(*dataset, std::string("ALIAS=base, \"coast,rivers\"\n") + c.line), c.messages);
    Alias* alias = FindAlias(*dataset, "base");
    ASSERT_NE(alias, nullptr);
    EXPECT_EQ(alias->layers, "coast,rivers");
    EXPECT_EQ(alias->min_zoom, c.min_zoom);
    EXPECT_EQ(alias->max_zoom, c.max_zoom);
  }
}

TEST(DatasetInfoTest, AliasBoxes) {
  struct Case {
    const char* line;
    Texts messages;
    bool accepted;
  };
  const Case cases[] = {
      {"ALIAS ENABLE BOX=base, -10, 0, 5, 1", {}, true},
      {"ALIAS DISABLE BOX=base -10 0 5 1", {}, true},
      {"ALIAS ENABLE BOX=base, 10, 0, 5, 1",
       {"Error: set.sdf: ALIAS ENABLE BOX: invalid box", "Error: Box error for alias: base"}, false},
      {"ALIAS DISABLE BOX=base, 0, 3, 5, 3",
       {"Error: set.sdf: ALIAS DISABLE BOX: invalid box", "Error: Box error for alias: base"}, false},
      {"ALIAS ENABLE BOX=base, 0, 3, 5",
       {"Error: set.sdf: cannot read: ALIAS ENABLE BOX", "Error: Box error for alias: base"}, false},
      {"ALIAS DISABLE BOX=other, 0, 0, 1, 1",
       {"Error: set.sdf: ALIAS DISABLE BOX: unknown alias", "Error: Unknown alias: other"}, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.line);
    auto dataset = NewDataset();
    EXPECT_EQ(ReadInfo(*dataset, std::string("ALIAS=base, coast\n") + c.line), c.messages);
    Alias* alias = FindAlias(*dataset, "base");
    bool enable = std::string(c.line).find("ENABLE") != std::string::npos;
    const auto& boxes = enable ? alias->enable_boxes : alias->disable_boxes;
    EXPECT_EQ(boxes.has_value(), c.accepted);
    if (c.accepted) {
      EXPECT_EQ(*boxes, (std::vector<Box>{{-10, 5, 0, 1}}));
    }
  }
}

TEST(DatasetInfoTest, AliasLookupIsExactFirstMatch) {
  auto dataset = NewDataset();
  EXPECT_EQ(FindAlias(*dataset, "base"), nullptr);  // no aliases at all
  ReadInfo(*dataset, "ALIAS=base, one\nALIAS=base, two\nALIAS=Base, three\n");
  ASSERT_EQ(dataset->aliases->size(), 3u);
  EXPECT_EQ(FindAlias(*dataset, "base")->layers, "one");
  EXPECT_EQ(FindAlias(*dataset, "Base")->layers, "three");
  EXPECT_EQ(FindAlias(*dataset, "BASE"), nullptr);
}

TEST(DatasetInfoTest, LayersAndAllowOverrideOrder) {
  test::TempDir dir;
  const char* lif = "TYPE=GRID\nTRANS TYPE=OPAQUE\nGRID LAT INTERVAL=10\n";
  dir.Write("layers/a.lif", lif);
  dir.Write("layers/b.lif", lif);
  std::string info = dir.Write("set.sdf",
                               "LAYER DIR=layers\n"
                               "ALLOW OVERRIDE=0\n"
                               "LAYER=a, a.lif\n"
                               "ALLOW OVERRIDE=1\n"
                               "LAYER=b, b.lif\n"
                               "LAYER=*, a.lif\n"
                               "LAYER=a, b.lif\n");
  auto dataset = CreateDataset("DefaultDataset", info);
  test::MessageCapture capture;
  ASSERT_TRUE(LoadDatasetInfo(*dataset, info));
  EXPECT_EQ(capture.Texts(),
            (Texts{"Warning: ALLOW OVERRIDE must be used before LAYERs!: " + info,
                   "Error: Default and * are reserved keywords, can't be used for layer names: " + info,
                   "Warning: Repeated layer name, skipping: a"}));
  ASSERT_EQ(dataset->layers.size(), 2u);
  // The late ALLOW OVERRIDE still takes effect, for the layers read after it.
  EXPECT_EQ(FindLayer(*dataset, "a")->record.allow_override, 0);
  EXPECT_EQ(FindLayer(*dataset, "b")->record.allow_override, 1);
}

TEST(DatasetInfoTest, ReadingGoesOnAfterErrors) {
  auto dataset = NewDataset();
  auto messages = ReadInfo(*dataset,
                           "BOGUS LINE\n"
                           "ENCODING=ascii\n"
                           "MAX VECTOR TILES=x\n"
                           "MAX VECTOR TILES=12\n"
                           "ALIAS=z, \"a,b\"\n");
  EXPECT_EQ(messages.size(), 5u);
  EXPECT_EQ(dataset->NumberOption(kDatasetMaxVectorTiles), 12);
  EXPECT_NE(FindAlias(*dataset, "z"), nullptr);
}

TEST(DatasetInfoTest, FilesThatCannotBeRead) {
  test::TempDir dir;
  {
    auto dataset = CreateDataset("DefaultDataset", dir / "none.sdf");
    test::MessageCapture capture;
    EXPECT_FALSE(LoadDatasetInfo(*dataset, dir / "none.sdf"));
    EXPECT_EQ(capture.Texts(), Texts{"Error: Cannot open dataset info file: " + dir / "none.sdf"});
  }
  {
    auto dataset = CreateDataset("DefaultDataset", dir.path());
    test::MessageCapture capture;
    EXPECT_TRUE(LoadDatasetInfo(*dataset, dir.path()));
    EXPECT_EQ(capture.Texts(), Texts{"Error: Error reading dataset info file!: " + dir.path()});
  }
  {
    auto dataset = CreateDataset("DefaultDataset", "");
    test::MessageCapture capture;
    EXPECT_TRUE(LoadDatasetInfo(*dataset, ""));
    EXPECT_TRUE(capture.messages().empty());
    EXPECT_TRUE(dataset->layers.empty());
  }
}

TEST(DatasetInfoTest, VerbosityReports) {
  test::MessageCapture capture;
  kav::Messages().verbosity = 2;
  auto dataset = CreateDataset("DefaultDataset", "/r/set.sdf");
  ReadDatasetInfoText(*dataset, "/r/set.sdf", "LAYER DIR=lay\nFONT DIR=/f\n");
  EXPECT_EQ(capture.Texts(), (Texts{"Info: SDF path: /r", "Info: Layer path: lay",
                                    "Info: Font path: /f"}));
}

TEST(DatasetInfoTest, LayerLookup) {
  auto dataset = NewDataset();
  test::MessageCapture capture;
  EXPECT_EQ(FindLayer(*dataset, "roads"), nullptr);
  EXPECT_EQ(capture.Texts(), Texts{"Error: Layer does not exist or could not be found: roads"});
}

}  // namespace
}  // namespace vmp
