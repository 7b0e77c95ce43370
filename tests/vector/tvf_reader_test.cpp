#include "map_server/vector/tvf_reader.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <string>

#include "map_server/vector/c_real_scan.h"
#include "map_server/vector/tvf_writer.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"
#include "tests/vector/tvf_test_support.h"

namespace vmp {
namespace {

using test::Le;
using test::LeReal;
using test::LoadBytes;
using test::MessageCapture;
using namespace std::string_literals;

const std::string kAscii = "69c 2 0 ";
const std::string kBinary = "69c 2 1 ";

struct ReaderCase {
  const char* name;
  std::string bytes;
  bool ok;
  int64_t features;                      // features kept
  std::vector<std::string> messages;     // exact message texts, in order
};

const std::string kReadError = "Error: Error reading TVF data file: mem.tvf";
std::string AtObject(int n) { return "Error: Error reading TVF data file at object: " + std::to_string(n); }

std::vector<ReaderCase> ReaderCases() {
  const std::string long_ok(1024, 'a');
  const std::string too_long(1025, 'a');
  const std::string marker = "\r\n7 1 0 0 1 2 ";  // a plain marker record
  return {
      {"header only", kAscii, true, 0, {}},
      {"binary header only", kBinary, true, 0, {}},
      {"bad magic", "69d 2 0 ", false, 0,
       {"Error: File Specified is not a valid TVF file: mem.tvf",
        "Error: Invalid header in TVF data file: mem.tvf"}},
      {"empty file", "", false, 0,
       {"Error: File Specified is not a valid TVF file: mem.tvf",
        "Error: Invalid header in TVF data file: mem.tvf"}},
      {"version 3", "69c 3 0 ", false, 0,
       {"Error: The version number could not be read or is greater than version of the "
        "software: mem.tvf",
        "Error: Invalid header in TVF data file: mem.tvf"}},
      {"negative version", "69c -1 0 ", false, 0,
       {"Error: The version number could not be read or is greater than version of the "
        "software: mem.tvf",
        "Error: Invalid header in TVF data file: mem.tvf"}},
      {"save format 2", "69c 2 2 ", false, 0,
       {"Error: Unknown save format: only ASCII and BINARY are supported.: mem.tvf",
        "Error: Invalid header in TVF data file: mem.tvf"}},
      {"version 1 has no continuation flag", "69c 1 0 \r\n7 0 2 0 1 2 3 4 ", true, 1, {}},
      {"version 2 reads the flag", kAscii + "\r\n7 0 0 2 0 1 2 3 4 ", true, 1, {}},
      {"ascii record marker must be 7", kAscii + marker + "\r\n8 1 0 0 1 2 ", false, 1,
       {kReadError, AtObject(1)}},
      {"binary record marker is not compared",
       kBinary + Le(8) + Le(1) + Le(0) + Le(0) + LeReal(1) + LeReal(2), true, 1, {}},
      {"unknown object type", kAscii + marker + "\r\n7 2 ", false, 1,
       {"Error: Unkown object type: mem.tvf", kReadError, AtObject(1)}},
      {"unknown marker type", kAscii + "\r\n7 1 3 0 1 2 ", false, 0,
       {"Error: Unknown marker type", kReadError, AtObject(0)}},
      {"string of 1024", kAscii + "\r\n7 1 1 400 " + long_ok + "\0 0 1 2 "s, true, 1, {}},
      {"string of 1025", kAscii + "\r\n7 1 1 401 " + too_long + "\0 0 1 2 "s, false, 0,
       {"Error: String is too long (length > 1024)", kReadError, AtObject(0)}},
      {"S value of 1025", kAscii + "\r\n7 1 0 1 0 1 401 " + too_long + "\0 1 2 "s, false, 0,
       {"Error: String is too long (length > 1024)", "Error: Bad S attribute: mem.tvf",
        kReadError, AtObject(0)}},
      {"point written 1.5x", kAscii + "\r\n7 0 0 1 0 1.5x 2 ", false, 0,
       {"Error: Error reading polygon points: mem.tvf", kReadError, AtObject(0)}},
      {"marker position unreadable", kAscii + "\r\n7 1 0 0 1 ", false, 0,
       {"Error: Error reading polygon points: mem.tvf", kReadError, AtObject(0)}},
      {"truncated points keep earlier features", kAscii + marker + "\r\n7 0 0 3 0 1 2 3 4 ",
       false, 1, {"Error: Error reading polygon points: mem.tvf", kReadError, AtObject(1)}},
      {"truncated binary point", kBinary + Le(7) + Le(0) + Le(0) + Le(1) + Le(0) + LeReal(1) +
       "\1\2\3"s, false, 0,
       {"Error: Error reading polygon points: mem.tvf", kReadError, AtObject(0)}},
      {"truncated record head", kAscii + marker + "\r\n7 ", false, 1, {kReadError, AtObject(1)}},
      {"trailing junk", kAscii + marker + " zz", false, 1, {kReadError, AtObject(1)}},
      {"point count 2^62", kAscii + "\r\n7 0 0 4000000000000000 0 1 2 3 4 ", false, 0,
       {"Error: Error reading polygon points: mem.tvf", kReadError, AtObject(0)}},
      {"binary point count 2^62", kBinary + Le(7) + Le(0) + Le(0) + Le(int64_t{1} << 62) + Le(0) +
       LeReal(1) + LeReal(2), false, 0,
       {"Error: Error reading polygon points: mem.tvf", kReadError, AtObject(0)}},
      {"negative point count", kAscii + "\r\n7 0 0 -5 0 ", false, 0,
       {"Error: Error reading polygon points: mem.tvf", kReadError, AtObject(0)}},
      {"attribute count 2^40", kAscii + "\r\n7 0 0 0 10000000000 0 2 1.0 ", false, 0,
       {"Error: Bad attribute: mem.tvf", kReadError, AtObject(0)}},
      {"negative attribute count", kAscii + "\r\n7 1 0 -1 1 2 ", false, 0,
       {"Error: Bad attribute: mem.tvf", kReadError, AtObject(0)}},
      {"attribute number 2^40", kAscii + "\r\n7 1 0 1 10000000000 2 1.0 1 2 ", false, 0,
       {"Error: Bad attribute: mem.tvf", kReadError, AtObject(0)}},
      {"string length 2^62", kBinary + Le(7) + Le(1) + Le(1) + Le(int64_t{1} << 62), false, 0,
       {"Error: String is too long (length > 1024)", kReadError, AtObject(0)}},
      {"unknown attribute type", kAscii + "\r\n7 1 0 1 0 4 1 2 ", false, 0,
       {"Error: Unknown attribute type: mem.tvf", kReadError, AtObject(0)}},
      {"bad D value", kAscii + "\r\n7 1 0 1 0 2 zz 1 2 ", false, 0,
       {"Error: Bad D attribute: mem.tvf", kReadError, AtObject(0)}},
      {"bad G value", kAscii + "\r\n7 1 0 1 0 3 1 2 x 1 2 ", false, 0,
       {"Error: Bad G attribute: mem.tvf", kReadError, AtObject(0)}},
      {"S value cut short", kAscii + "\r\n7 1 0 1 0 1 5 ab", false, 0,
       {"Error: Bad S attribute: mem.tvf", kReadError, AtObject(0)}},
  };
}

TEST(TvfReaderTest, Cases) {
  for (const ReaderCase& c : ReaderCases()) {
    SCOPED_TRACE(c.name);
    MessageCapture capture;
    VectorData data;
    EXPECT_EQ(LoadBytes(c.bytes, data), c.ok);
    EXPECT_EQ(data.error, !c.ok);
    // A bad header leaves the load flag set; the record loop always clears it.
    bool header_failed = !c.messages.empty() && c.messages.back().find("header") != std::string::npos;
    EXPECT_EQ(data.loading, header_failed);
    EXPECT_EQ(data.FeatureCount(), c.features);
    EXPECT_EQ(capture.Texts(), c.messages);
  }
}

TEST(TvfReaderTest, QuietLoadsLogOnlyTheHeaderCheck) {
  for (const ReaderCase& c : ReaderCases()) {
    SCOPED_TRACE(c.name);
    MessageCapture capture;
    VectorData data;
    EXPECT_EQ(LoadBytes(c.bytes, data, /*quiet=*/true), c.ok);
    std::vector<std::string> expected;
    if (!c.messages.empty() && c.messages.back().find("Invalid header") != std::string::npos) {
      expected.push_back(c.messages.front());
    }
    EXPECT_EQ(capture.Texts(), expected);
  }
}

TEST(TvfReaderTest, IndexMapHasHolesForMissingNumbers) {
  VectorData data;
  ASSERT_TRUE(LoadBytes(kAscii + "\r\n7 1 0 3 5 2 1.0 0 2 2.0 5 2 3.0 7 8 ", data));
  const Feature& f = *data.features[0];
  EXPECT_EQ(f.index_map, (std::vector<int64_t>{1, -1, -1, -1, -1, 2}));  // 5 repeated: last wins
  EXPECT_EQ(f.max_attr_index, 5);
  EXPECT_EQ(data.max_attr_index, 5);
  EXPECT_EQ(f.FindAttribute(5)->value.numbers[0], 3.0);
  EXPECT_EQ(f.FindAttribute(3), nullptr);
  EXPECT_EQ(f.FindAttribute(6), nullptr);
}

TEST(TvfReaderTest, PolygonGroupsWidenTheHeadBox) {
  VectorData data;
  ASSERT_TRUE(LoadBytes(kAscii +
                            "\r\n7 0 1 2 0 0 0 1 1 "   // head
                            "\r\n7 0 1 2 0 5 -2 6 0 "  // member
                            "\r\n7 0 0 2 0 9 9 10 10 "  // closes the group
                            "\r\n7 0 1 2 0 20 20 21 22 ",  // new head
                        data));
  const PolygonFeature* head = data.features[0]->AsPolygon();
  EXPECT_EQ(head->box.min_x, 0);
  EXPECT_EQ(head->box.min_y, -2);
  EXPECT_EQ(head->box.max_x, 10);  // the closing ring belongs to the group
  EXPECT_EQ(head->box.max_y, 10);
  EXPECT_EQ(head->extent, 12);
  const PolygonFeature* member = data.features[1]->AsPolygon();
  EXPECT_EQ(member->box.min_x, 5);
  EXPECT_EQ(member->extent, 2);
  EXPECT_EQ(data.features[2]->AsPolygon()->box.min_x, 9);
  EXPECT_EQ(data.features[3]->AsPolygon()->extent, 2);
}

TEST(TvfReaderTest, PointsKeepASpareSlot) {
  VectorData data;
  ASSERT_TRUE(LoadBytes(kAscii + "\r\n7 0 0 3 0 1 2 3 4 5 6 ", data));
  const PolygonFeature* p = data.features[0]->AsPolygon();
  EXPECT_EQ(p->PointCount(), 3);
  EXPECT_GE(p->points.capacity(), 4u);
}

TEST(TvfReaderTest, ParseTvfNumber) {
  const double inf = HUGE_VAL;
  struct Case {
    const char* text;
    bool ok;
    double value;
  } cases[] = {
      {"150", true, 150},       {"1.5e2", true, 150},     {"1.5E+2", true, 150},
      {"-2.5", true, -2.5},     {"+3", true, 3},          {".5", true, 0.5},
      {"5.", true, 5},          {"1e-2", true, 0.01},     {"  \r\n\t7\t", true, 7},
      {"1e0", true, 1},         {"1.5x", false, 0},       {".", false, 0},
      {"-", false, 0},          {"e5", false, 0},         {"1e", false, 0},
      {"1e+", false, 0},        {"1e5x", false, 0},       {"1..2", false, 0},
      {"", false, 0},           {"   ", false, 0},        {"0x10", false, 0},
      {"1,5", false, 0},        {"1e999999999999", true, inf},
      {"-1e99999999999999999999", true, -inf},            {"1e-99999999999", true, 0},
      {"0e99999999999", true, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    TvfInput input{std::string_view(c.text)};
    double value = -42;
    ASSERT_EQ(ParseTvfNumber(input, &value), c.ok);
    if (c.ok) {
      EXPECT_DOUBLE_EQ(value, c.value);
    }
  }
}

TEST(TvfReaderTest, AttributeRealsReadLikeTheCLibrary) {
  const char* texts[] = {"1e",     "1e ",   "1ex",     "1e+",       "1e+5x",   "infx",
                         "inf",    "infinity", "infin", "infinityx", "nan",     "nan(abc)",
                         "0x",     "0xg",   "0x1p",    "0x1p3",     "0x1.8p1", ".",
                         "-",      ".5",    "1.",      "+.5e1",     "-nan",    "  12",
                         "1.5x",   "0x.8",  "e5",      "1..2",      "INF",     "NaN",
                         "0X1P-2", "-0x",   "00x1",    "1e400",     "-1e400",  "1e-320",
                         "123.456000", "-0.000001", "0.1", "1000@1<2000", "abc", ""};
  for (const char* text : texts) {
    SCOPED_TRACE(text);
    double expected = 0, got = 0;
    int consumed_expected = -1;
    int expected_ok = std::sscanf(text, "%lf%n", &expected, &consumed_expected) == 1;
    size_t consumed = 0;
    ASSERT_EQ(ScanLfReal(text, &got, &consumed), expected_ok);
    if (!expected_ok) continue;
    EXPECT_EQ(static_cast<int>(consumed), consumed_expected);
    if (std::isnan(expected)) EXPECT_TRUE(std::isnan(got));
    else EXPECT_EQ(got, expected);
    // The stream reader takes the same characters.
    std::string stream_text = std::string(text);
    TvfInput input{std::string_view(stream_text)};
    double from_stream = 0;
    ASSERT_TRUE(ReadTvfReal(input, TvfFormat::kAscii, &from_stream));
    EXPECT_EQ(input.Position(), consumed);
  }
}

std::string Named(const char* prefix, int i) {
  std::string name(prefix);
  name += std::to_string(i);
  return name;
}

// Features with varied values, written and read back.
VectorData RandomFile(uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> coord(-180.0, 180.0);
  VectorData data;
  for (int i = 0; i < 40; ++i) {
    if (i % 3 == 2) {
      auto m = test::MakeMarker(i % 2 == 0 ? 2 : 1, coord(rng), coord(rng), Named("m", i),
                                {{1, TypedValue::Double(coord(rng))}});
      m->placement1 = coord(rng);
      m->placement2 = coord(rng);
      data.AddFeature(std::move(m));
      continue;
    }
    std::vector<std::pair<double, double>> points;
    for (int k = 0; k < 1 + i; ++k) points.push_back({coord(rng), coord(rng)});
    data.AddFeature(test::MakePolygon(0, points,
                                      {{0, TypedValue::String(Named("p", i))},
                                       {4, TypedValue::Geo(coord(rng), coord(rng), 1e-7)}}));
  }
  return data;
}

TEST(TvfReaderTest, RoundTripsAsciiToSixDecimalsAndBinaryExactly) {
  test::TempDir dir;
  for (TvfFormat format : {TvfFormat::kAscii, TvfFormat::kBinary}) {
    VectorData original = RandomFile(7);
    std::string path = dir / "rt.tvf";
    FILE* out = std::fopen(path.c_str(), "wb");
    WriteTvfHeader(out, format);
    for (const auto& f : original.features) WriteTvfFeature(out, format, *f);
    std::fclose(out);

    VectorData loaded;
    ASSERT_TRUE(LoadTvfFile(path, TvfSource::kTvf, loaded));
    ASSERT_EQ(loaded.FeatureCount(), original.FeatureCount());
    EXPECT_EQ(loaded.format, format);
    const double tolerance = format == TvfFormat::kAscii ? 5.1e-7 : 0.0;
    for (size_t i = 0; i < original.features.size(); ++i) {
      const Feature& a = *original.features[i];
      const Feature& b = *loaded.features[i];
      ASSERT_EQ(a.kind(), b.kind());
      ASSERT_EQ(a.AttributeCount(), b.AttributeCount());
      for (size_t k = 0; k < a.attributes.size(); ++k) {
        const TypedValue& va = a.attributes[k].value;
        const TypedValue& vb = b.attributes[k].value;
        EXPECT_EQ(va.type, vb.type);
        EXPECT_EQ(va.text, vb.text);
        for (int n = 0; n < 3; ++n) EXPECT_NEAR(va.numbers[n], vb.numbers[n], tolerance);
      }
      if (const PolygonFeature* pa = a.AsPolygon()) {
        const PolygonFeature* pb = b.AsPolygon();
        ASSERT_EQ(pa->PointCount(), pb->PointCount());
        for (size_t k = 0; k < pa->points.size(); ++k) {
          EXPECT_NEAR(pa->points[k].x, pb->points[k].x, tolerance);
          EXPECT_NEAR(pa->points[k].y, pb->points[k].y, tolerance);
        }
        EXPECT_NEAR(pa->extent, pb->extent, 2 * tolerance);
      } else {
        const MarkerFeature* ma = a.AsMarker();
        const MarkerFeature* mb = b.AsMarker();
        EXPECT_EQ(ma->label, mb->label);
        EXPECT_EQ(ma->marker_type, mb->marker_type);
        EXPECT_NEAR(ma->x, mb->x, tolerance);
        EXPECT_NEAR(ma->placement2, mb->placement2, ma->marker_type == 2 ? tolerance : 1e300);
      }
    }
  }
}

TEST(TvfReaderTest, SourcesAndTheirMessages) {
  test::TempDir dir;
  std::string tvf = dir.Write("a b.tvf", kAscii + "\r\n7 1 0 0 1 2 ");
  struct Case {
    const char* name;
    std::string file;
    TvfSource source;
    std::string filter;
    bool quiet;
    int64_t verbosity;
    bool ok;
    std::vector<std::string> messages;
  } cases[] = {
      {"plain file", tvf, TvfSource::kByName, "", false, 0, true, {}},
      {"loaded at verbosity 6", tvf, TvfSource::kTvf, "", false, 6, true,
       {"Info: Loaded TVF file: " + tvf}},
      {"timing", tvf, TvfSource::kTvf, "", false, -3, true, {"Info: Vector tile load time"}},
      {"missing file", dir / "none.tvf", TvfSource::kTvf, "", false, 0, false,
       {"Error: Could not open TVF file: " + dir / "none.tvf"}},
      {"missing file, quiet", dir / "none.tvf", TvfSource::kTvf, "", true, 0, false, {}},
      {"shapefile by name", dir / "roads.shp", TvfSource::kByName, "", false, 0, false,
       {"Error: Error converting shape file: " + dir / "roads.shp" + "."}},
      {"shapefile by kind", tvf, TvfSource::kShapefile, "", false, 0, false,
       {"Error: Error converting shape file: " + tvf + "."}},
      {"shapefile, quiet", dir / "roads.shp", TvfSource::kByName, "", true, 0, false, {}},
      {"filter with %", tvf, TvfSource::kShapefile, "cat % | cat", false, 6, true,
       {"Info: Invoking the command: cat \"" + tvf + "\" | cat", "Info: Loaded TVF file: " + tvf}},
      {"filter appended", tvf, TvfSource::kTvf, "cat", false, 6, true,
       {"Info: Invoking the command: cat \"" + tvf + "\"", "Info: Loaded TVF file: " + tvf}},
      {"filter printing nothing", tvf, TvfSource::kTvf, "true", false, 0, false,
       {"Error: File Specified is not a valid TVF file: " + tvf,
        "Error: Invalid header in TVF data file: " + tvf}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    MessageCapture capture;
    kav::Messages().verbosity = c.verbosity;
    VectorData data;
    EXPECT_EQ(LoadTvfFile(c.file, c.source, data, c.filter, c.quiet), c.ok);
    EXPECT_EQ(data.FeatureCount(), c.ok ? 1 : 0);
    std::vector<std::string> texts = capture.Texts();
    // The load time varies: compare its message without the number.
    for (std::string& t : texts) {
      if (t.rfind("Info: Vector tile load time", 0) == 0) t = "Info: Vector tile load time";
    }
    EXPECT_EQ(texts, c.messages);
  }
}

TEST(TvfReaderTest, FilterCommandLine) {
  struct Case {
    const char* command;
    const char* expected;
  } cases[] = {
      {"gunzip -c", "gunzip -c \"t.tvf\""},
      {"conv % -o -", "conv \"t.tvf\" -o -"},
      {"a %% b", "a \"t.tvf\"% b"},  // only the first "%" is replaced
      {"%", "\"t.tvf\""},
  };
  for (const Case& c : cases) EXPECT_EQ(BuildFilterCommandLine(c.command, "t.tvf"), c.expected);
}

TEST(TvfReaderTest, LargeFileThroughTheBufferBoundaries) {
  // Several buffer refills, with numbers and strings split across them.
  VectorData original;
  for (int i = 0; i < 3000; ++i) {
    std::vector<std::pair<double, double>> points;
    for (int k = 0; k < 20; ++k) points.push_back({i + k * 0.125, -i - k * 0.5});
    original.AddFeature(test::MakePolygon(0, points, {{0, TypedValue::String(std::string(i % 50, 'q'))}}));
  }
  test::TempDir dir;
  for (TvfFormat format : {TvfFormat::kAscii, TvfFormat::kBinary}) {
    std::string path = dir / "big.tvf";
    FILE* out = std::fopen(path.c_str(), "wb");
    WriteTvfHeader(out, format);
    for (const auto& f : original.features) WriteTvfFeature(out, format, *f);
    std::fclose(out);
    for (bool through_pipe : {false, true}) {
      VectorData loaded;
      ASSERT_TRUE(LoadTvfFile(path, TvfSource::kTvf, loaded, through_pipe ? "cat" : ""));
      ASSERT_EQ(loaded.FeatureCount(), 3000);
      const PolygonFeature* last = loaded.features.back()->AsPolygon();
      EXPECT_EQ(last->points[19].x, 2999 + 19 * 0.125);
      EXPECT_EQ(*loaded.features[2049]->FindAttribute(0)->value.text, std::string(2049 % 50, 'q'));
    }
  }
}

}  // namespace
}  // namespace vmp
