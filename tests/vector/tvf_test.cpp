// TVF files: reading (with every refusal and its messages), writing both
// encodings byte for byte, and round trips through both.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <random>
#include <string>

#include "map_server/vector/c_real_scan.h"
#include "map_server/vector/tvf_encode.h"
#include "map_server/vector/tvf_reader.h"
#include "map_server/vector/tvf_writer.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"
#include "tests/vector/tvf_test_support.h"
#include "toolkit/global_config.h"

namespace vmp {
namespace {

using test::Le;
using test::LeReal;
using test::MakeMarker;
using test::MakePolygon;
using test::MessageCapture;
using Texts = std::vector<std::string>;
using namespace std::string_literals;

// How a load ends: kHeader adds "Invalid header" to the header check's
// message; kRecord adds the two "Error reading TVF data file" lines, the
// second with the number of features kept.
enum End { kOk, kHeader, kRecord };

TEST(TvfReaderTest, FilesAndTheirMessages) {
  const std::string ascii = "69c 2 0 ", binary = "69c 2 1 ", marker = "\r\n7 1 0 0 1 2 ";
  const std::string long_ok(1024, 'a'), too_long(1025, 'a');
  const std::string version =
      "Error: The version number could not be read or is greater than version of the software: "
      "mem.tvf";
  const std::string points = "Error: Error reading polygon points: mem.tvf";
  const std::string bad_attribute = "Error: Bad attribute: mem.tvf";
  const std::string string_length = "Error: String is too long (length > 1024)";
  struct Case {
    const char* name;
    std::string bytes;
    End end;
    int64_t kept;  // features kept
    Texts own;     // the messages before the closing ones
  } cases[] = {
      // clang-format off
      {"header only", ascii, kOk, 0, {}},
      {"bad magic", "69d 2 0 ", kHeader, 0, {"Error: File Specified is not a valid TVF file: mem.tvf"}},
      {"version 3", "69c 3 0 ", kHeader, 0, {version}},
      {"negative version", "69c -1 0 ", kHeader, 0, {version}},
      {"save format 2", "69c 2 2 ", kHeader, 0,
       {"Error: Unknown save format: only ASCII and BINARY are supported.: mem.tvf"}},
      {"version 1 has no continuation flag", "69c 1 0 \r\n7 0 2 0 1 2 3 4 ", kOk, 1, {}},
      {"version 2 reads the flag", ascii + "\r\n7 0 0 2 0 1 2 3 4 ", kOk, 1, {}},
      {"ascii record marker must be 7", ascii + marker + "\r\n8 1 0 0 1 2 ", kRecord, 1, {}},
      {"binary record marker is not compared", binary + Le(8) + Le(1) + Le(0) + Le(0) + LeReal(1) + LeReal(2), kOk, 1, {}},
      {"unknown object type", ascii + marker + "\r\n7 2 ", kRecord, 1, {"Error: Unkown object type: mem.tvf"}},
      {"unknown marker type", ascii + "\r\n7 1 3 0 1 2 ", kRecord, 0, {"Error: Unknown marker type"}},
      {"string of 1024", ascii + "\r\n7 1 1 400 " + long_ok + "\0 0 1 2 "s, kOk, 1, {}},
      {"string of 1025", ascii + "\r\n7 1 1 401 " + too_long + "\0 0 1 2 "s, kRecord, 0, {string_length}},
      {"S value of 1025", ascii + "\r\n7 1 0 1 0 1 401 " + too_long + "\0 1 2 "s, kRecord, 0,
       {string_length, "Error: Bad S attribute: mem.tvf"}},
      {"string length 2^62", binary + Le(7) + Le(1) + Le(1) + Le(int64_t{1} << 62), kRecord, 0, {string_length}},
      {"S value cut short", ascii + "\r\n7 1 0 1 0 1 5 ab", kRecord, 0, {"Error: Bad S attribute: mem.tvf"}},
      {"point written 1.5x", ascii + "\r\n7 0 0 1 0 1.5x 2 ", kRecord, 0, {points}},
      {"marker position unreadable", ascii + "\r\n7 1 0 0 1 ", kRecord, 0, {points}},
      {"truncated points keep earlier features", ascii + marker + "\r\n7 0 0 3 0 1 2 3 4 ", kRecord, 1, {points}},
      {"truncated binary point", binary + Le(7) + Le(0) + Le(0) + Le(1) + Le(0) + LeReal(1) + "\1\2\3"s, kRecord, 0, {points}},
      {"point count 2^62", ascii + "\r\n7 0 0 4000000000000000 0 1 2 3 4 ", kRecord, 0, {points}},
      {"binary point count 2^62", binary + Le(7) + Le(0) + Le(0) + Le(int64_t{1} << 62) + Le(0) + LeReal(1), kRecord, 0, {points}},
      {"negative point count", ascii + "\r\n7 0 0 -5 0 ", kRecord, 0, {points}},
      {"truncated record head", ascii + marker + "\r\n7 ", kRecord, 1, {}},
      {"trailing junk", ascii + marker + " zz", kRecord, 1, {}},
      {"attribute count 2^40", ascii + "\r\n7 0 0 0 10000000000 0 2 1.0 ", kRecord, 0, {bad_attribute}},
      {"negative attribute count", ascii + "\r\n7 1 0 -1 1 2 ", kRecord, 0, {bad_attribute}},
      {"attribute number 2^40", ascii + "\r\n7 1 0 1 10000000000 2 1.0 1 2 ", kRecord, 0, {bad_attribute}},
      {"unknown attribute type", ascii + "\r\n7 1 0 1 0 4 1 2 ", kRecord, 0, {"Error: Unknown attribute type: mem.tvf"}},
      {"bad D value", ascii + "\r\n7 1 0 1 0 2 zz 1 2 ", kRecord, 0, {"Error: Bad D attribute: mem.tvf"}},
      {"bad G value", ascii + "\r\n7 1 0 1 0 3 1 2 x 1 2 ", kRecord, 0, {"Error: Bad G attribute: mem.tvf"}},
      // clang-format on
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Texts expected = c.own;
    if (c.end == kHeader) expected.push_back("Error: Invalid header in TVF data file: mem.tvf");
    if (c.end == kRecord) {
      expected.push_back("Error: Error reading TVF data file: mem.tvf");
      expected.push_back("Error: Error reading TVF data file at object: " + std::to_string(c.kept));
    }
    MessageCapture capture;
    VectorData data;
    EXPECT_EQ(test::LoadBytes(c.bytes, data), c.end == kOk);
    EXPECT_EQ(data.error, c.end != kOk);
    EXPECT_EQ(data.loading, c.end == kHeader);  // the record loop always clears it
    EXPECT_EQ(data.FeatureCount(), c.kept);
    EXPECT_EQ(capture.Texts(), expected);
    // Quiet loads log only the header check.
    capture.Clear();
    EXPECT_EQ(test::LoadBytes(c.bytes, data, /*quiet=*/true), c.end == kOk);
    EXPECT_EQ(capture.Texts(), c.end == kHeader ? Texts{c.own[0]} : Texts{});
  }
}

TEST(TvfReaderTest, IndexMapsGroupsAndPointSlots) {
  VectorData data;
  ASSERT_TRUE(test::LoadBytes("69c 2 0 "
                              "\r\n7 1 0 3 5 2 1.0 0 2 2.0 5 2 3.0 7 8 "  // 5 repeated: last wins
                              "\r\n7 0 1 2 0 0 0 1 1 "                    // group head
                              "\r\n7 0 1 2 0 5 -2 6 0 "                   // member
                              "\r\n7 0 0 3 0 9 9 10 10 9 10 "             // closes the group
                              "\r\n7 0 1 2 0 20 20 21 22 ",               // new head
                              data));
  const Feature& m = *data.features[0];
  EXPECT_EQ(m.index_map, (std::vector<int64_t>{1, -1, -1, -1, -1, 2}));
  EXPECT_EQ(m.max_attr_index, 5);
  EXPECT_EQ(data.max_attr_index, 5);
  EXPECT_EQ(m.FindAttribute(5)->value.numbers[0], 3.0);
  EXPECT_TRUE(m.FindAttribute(3) == nullptr && m.FindAttribute(6) == nullptr);
  const PolygonFeature* head = data.features[1]->AsPolygon();
  // The closing ring belongs to the group.
  EXPECT_EQ((std::vector<double>{head->box.min_x, head->box.min_y, head->box.max_x, head->box.max_y,
                                 head->extent}),
            (std::vector<double>{0, -2, 10, 10, 12}));
  EXPECT_EQ(data.features[2]->AsPolygon()->box.min_x, 5);
  EXPECT_EQ(data.features[2]->AsPolygon()->extent, 2);
  const PolygonFeature* last_ring = data.features[3]->AsPolygon();
  EXPECT_EQ(last_ring->box.min_x, 9);
  EXPECT_EQ(last_ring->PointCount(), 3);
  EXPECT_GE(last_ring->points.capacity(), 4u);  // one spare slot
  EXPECT_EQ(data.features[4]->AsPolygon()->extent, 2);
}

TEST(TvfReaderTest, ParseTvfNumber) {
  const double inf = HUGE_VAL;
  struct Case { const char* text; bool ok; double value; } cases[] = {
      {"150", true, 150},    {"1.5e2", true, 150},  {"1.5E+2", true, 150},  {"-2.5", true, -2.5},
      {"+3", true, 3},       {".5", true, 0.5},     {"5.", true, 5},        {"1e-2", true, 0.01},
      {"1e0", true, 1},      {"  \r\n\t7\t", true, 7},
      // The exponent scales by 10 one step at a time (not correctly rounded).
      {"2.5e-7", true, 2.5000000000000004e-07},     {"4.35e-4", true, 0.00043499999999999995},
      {"1e999999999999", true, inf},                {"-1e99999999999999999999", true, -inf},
      {"1e-99999999999", true, 0},                  {"0e99999999999", true, 0},
      {"1.5x", false, 0},    {".", false, 0},       {"-", false, 0},        {"e5", false, 0},
      {"1e", false, 0},      {"1e+", false, 0},     {"1e5x", false, 0},     {"1..2", false, 0},
      {"", false, 0},        {"   ", false, 0},     {"0x10", false, 0},     {"1,5", false, 0}};
  for (const Case& c : cases) {
    TvfInput input{std::string_view(c.text)};
    double value = -42;
    ASSERT_EQ(ParseTvfNumber(input, &value), c.ok) << c.text;
    EXPECT_EQ(c.ok ? value : 0.0, c.value) << c.text;
  }
}

TEST(TvfReaderTest, AttributeRealsReadLikeTheCLibrary) {
  for (const char* text :
       {"1e",    "1e ",    "1ex",      "1e+",   "1e+5x",    "infx",    "inf",        "infinity",
        "infin", "infinityx", "nan",   "nan(abc)", "0x",    "0xg",     "0x1p",       "0x1p3",
        "0x1.8p1", ".",    "-",        ".5",    "1.",       "+.5e1",   "-nan",       "  12",
        "1.5x",  "0x.8",   "e5",       "1..2",  "INF",      "NaN",     "0X1P-2",     "-0x",
        "00x1",  "1e400",  "-1e400",   "1e-320", "123.456000", "-0.000001", "0.1", "1000@1<2000",
        "abc",   ""}) {
    SCOPED_TRACE(text);
    double expected = 0, got = 0;
    int expected_length = -1;
    const bool expected_ok = std::sscanf(text, "%lf%n", &expected, &expected_length) == 1;
    size_t length = 0;
    ASSERT_EQ(ScanLfReal(text, &got, &length), expected_ok);
    if (!expected_ok) continue;
    EXPECT_EQ(static_cast<int>(length), expected_length);
    EXPECT_TRUE(std::isnan(expected) ? std::isnan(got) : got == expected);
    // The stream reader takes the same characters.
    TvfInput input{std::string_view(text)};
    double from_stream = 0;
    ASSERT_TRUE(ReadTvfReal(input, TvfFormat::kAscii, &from_stream));
    EXPECT_EQ(input.Position(), length);
  }
}

// The bytes of a file holding `data`'s features.
std::string Written(const VectorData& data, TvfFormat format, const std::string& path) {
  FILE* out = std::fopen(path.c_str(), "wb");
  WriteTvfHeader(out, format);
  for (const auto& f : data.features) WriteTvfFeature(out, format, *f);
  std::fclose(out);
  return test::ReadFile(path);
}

// Varied features written and read back (from the file and through a pipe,
// across many buffer refills): writing what was read gives the same bytes,
// so ASCII keeps every value to six decimals and BINARY keeps it exactly.
// Loads that skip the attributes give the same features without them, and
// fail where a full load fails.
TEST(TvfReaderTest, RoundTrips) {
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> coord(-180.0, 180.0);
  VectorData original;
  for (int i = 0; i < 3000; ++i) {
    if (i % 3 == 2) {
      auto m = MakeMarker(i % 2 == 0 ? 2 : 1, coord(rng), coord(rng), "m" + std::to_string(i),
                                {{1, TypedValue::Double(coord(rng))}});
      m->placement1 = coord(rng);
      m->placement2 = coord(rng);
      original.AddFeature(std::move(m));
      continue;
    }
    std::vector<std::pair<double, double>> points;
    for (int k = 0; k <= i % 40; ++k) points.push_back({coord(rng), coord(rng)});
    auto text = i % 50 == 1 ? std::nullopt : std::optional(std::string(i % 50 * 20, 'q'));
    original.AddFeature(MakePolygon(i % 4 == 0, points,
                                          {{0, TypedValue::String(text)},
                                           {4, TypedValue::Geo(coord(rng), coord(rng), 1e-7)}}));
  }
  test::TempDir dir;
  const std::string path = dir / "rt.tvf";
  for (TvfFormat format : {TvfFormat::kAscii, TvfFormat::kBinary}) {
    const std::string bytes = Written(original, format, path);
    for (const char* filter : {"", "cat"}) {
      SCOPED_TRACE(std::to_string(static_cast<int>(format)) + " filter " + filter);
      VectorData loaded, bare;
      ASSERT_TRUE(LoadTvfFile(path, TvfSource::kTvf, loaded, filter));
      EXPECT_EQ(loaded.format, format);
      ASSERT_EQ(loaded.FeatureCount(), 3000);
      EXPECT_TRUE(Written(loaded, format, dir / "again.tvf") == bytes);
      ASSERT_TRUE(LoadTvfFile(path, TvfSource::kTvf, bare, filter, false, TvfAttributes::kSkip));
      EXPECT_TRUE(bare.attributes_skipped);
      for (auto& f : loaded.features) f->attributes.clear();
      const std::string stripped = Written(loaded, format, dir / "again.tvf");
      EXPECT_TRUE(Written(bare, format, dir / "bare.tvf") == stripped);
    }
    std::filesystem::resize_file(path, bytes.size() * 2 / 3 + 5);
    MessageCapture capture;
    VectorData full, bare;
    EXPECT_FALSE(LoadTvfFile(path, TvfSource::kTvf, full));
    EXPECT_FALSE(LoadTvfFile(path, TvfSource::kTvf, bare, {}, false, TvfAttributes::kSkip));
    EXPECT_GT(full.FeatureCount(), 1000);
    EXPECT_EQ(bare.FeatureCount(), full.FeatureCount());
  }
}

TEST(TvfReaderTest, SourcesAndTheirMessages) {
  test::TempDir dir;
  const std::string tvf = dir.Write("a b.tvf", "69c 2 0 \r\n7 1 0 0 1 2 ");
  const std::string none = dir / "none.tvf", shp = dir / "roads.shp";
  const std::string loaded = "Info: Loaded TVF file: " + tvf;
  struct Case {
    std::string file;
    TvfSource source;
    std::string filter;
    bool quiet;
    int64_t verbosity;
    bool ok;
    Texts messages;
  } cases[] = {
      // clang-format off
      {tvf, TvfSource::kByName, "", false, 0, true, {}},
      {tvf, TvfSource::kTvf, "", false, 6, true, {loaded}},
      {tvf, TvfSource::kTvf, "", false, -3, true, {"Info: Vector tile load time"}},
      {none, TvfSource::kTvf, "", false, 0, false, {"Error: Could not open TVF file: " + none}},
      {none, TvfSource::kTvf, "", true, 0, false, {}},
      {shp, TvfSource::kByName, "", false, 0, false, {"Error: Error converting shape file: " + shp + "."}},
      {tvf, TvfSource::kShapefile, "", false, 0, false, {"Error: Error converting shape file: " + tvf + "."}},
      {shp, TvfSource::kByName, "", true, 0, false, {}},
      {tvf, TvfSource::kShapefile, "cat % | cat", false, 6, true,
       {"Info: Invoking the command: cat \"" + tvf + "\" | cat", loaded}},
      {tvf, TvfSource::kTvf, "cat", false, 6, true, {"Info: Invoking the command: cat \"" + tvf + "\"", loaded}},
      // A command that fails after writing whole records: no partial load.
      {tvf, TvfSource::kTvf, "cat % ; false", false, 0, false,
       {"Error: Filter command failed: cat \"" + tvf + "\" ; false"}},
      {tvf, TvfSource::kTvf, "cat % ; false", true, 0, false, {}},
      {tvf, TvfSource::kTvf, "true", false, 0, false,
       {"Error: File Specified is not a valid TVF file: " + tvf, "Error: Invalid header in TVF data file: " + tvf}},
      // clang-format on
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file + " filter " + c.filter + " verbosity " + std::to_string(c.verbosity));
    MessageCapture capture;
    kav::Messages().verbosity = c.verbosity;
    VectorData data;
    EXPECT_EQ(LoadTvfFile(c.file, c.source, data, c.filter, c.quiet), c.ok);
    EXPECT_EQ(data.FeatureCount(), c.ok ? 1 : 0);
    Texts texts = capture.Texts();
    for (std::string& t : texts) {  // the load time varies: compare without the number
      if (t.rfind("Info: Vector tile load time", 0) == 0) t = "Info: Vector tile load time";
    }
    EXPECT_EQ(texts, c.messages);
  }
  EXPECT_EQ(BuildFilterCommandLine("a %% b", "t.tvf"), "a \"t.tvf\"% b");  // only the first "%"
  EXPECT_EQ(BuildFilterCommandLine("%", "t.tvf"), "\"t.tvf\"");
}

// The small file both encodings are checked on: a polygon with one
// attribute of each type, a labelled placed marker, a plain marker.
const std::string kAsciiSample =
    "69c 2 0 "
    "\r\n7 0 ffffffffffffffff 2 3 "
    "0 1 2 ab\0 "s
    "2 2 1.500000 "
    "3 3 1.000000 2.000000 3.000000 "
    "10.000000 20.000000 -30.500000 40.250000 "
    "\r\n7 1 2 0.500000 -0.250000 3 5 hello\0 "s
    "1 0 2 7.000000 1.000000 2.000000 "
    "\r\n7 1 0 1 1 1 -1 5.000000 6.000000 ";

const std::string kBinarySample =
    "69c 2 1 " +
    // polygon: marker, type, flag, N, A
    Le(7) + Le(0) + Le(-1) + Le(2) + Le(3) + Le(0) + Le(1) + Le(2) + "ab\0"s + Le(2) + Le(2) +
    LeReal(1.5) + Le(3) + Le(3) + LeReal(1) + LeReal(2) + LeReal(3) + LeReal(10) + LeReal(20) +
    LeReal(-30.5) + LeReal(40.25) +
    // placed marker: type, placements, flag, label, A, attribute, position
    Le(7) + Le(1) + Le(2) + LeReal(0.5) + LeReal(-0.25) + Le(3) + Le(5) + "hello\0"s + Le(1) +
    Le(0) + Le(2) + LeReal(7) + LeReal(1) + LeReal(2) +
    // plain marker with an absent S value
    Le(7) + Le(1) + Le(0) + Le(1) + Le(1) + Le(1) + Le(-1) + LeReal(5) + LeReal(6);

TEST(TvfWriterTest, WritesBothEncodingsByteForByte) {
  VectorData data;
  data.AddFeature(MakePolygon(-1, {{10, 20}, {-30.5, 40.25}},
                              {{0, TypedValue::String("ab")},
                               {2, TypedValue::Double(1.5)},
                               {3, TypedValue::Geo(1, 2, 3)}}));
  auto placed = MakeMarker(2, 1, 2, "hello", {{0, TypedValue::Double(7)}});
  placed->placement1 = 0.5;
  placed->placement2 = -0.25;
  placed->flag = 3;
  data.AddFeature(std::move(placed));
  data.AddFeature(MakeMarker(0, 5, 6, std::nullopt, {{1, TypedValue::String(std::nullopt)}}));
  test::TempDir dir;
  const std::string path = dir / "out.tvf";
  for (bool binary : {false, true}) {
    kav::Config().binary_save = binary;  // -b / -a
    TvfOutput out = OpenTvfOutput(path);
    kav::Config().binary_save = false;
    ASSERT_TRUE(out);
    for (const auto& f : data.features)
      EXPECT_TRUE(WriteTvfFeature(out.get(), binary ? TvfFormat::kBinary : TvfFormat::kAscii, *f));
    EXPECT_TRUE(CloseTvfOutput(std::move(out)));
    EXPECT_EQ(test::ReadFile(path), binary ? kBinarySample : kAsciiSample);
  }
  MessageCapture capture;
  EXPECT_FALSE(OpenTvfOutput("/nonexistent-dir/x.tvf"));
  EXPECT_EQ(capture.Texts(), Texts{"Error: Could not open output file: /nonexistent-dir/x.tvf"});
}

TEST(TvfWriterTest, UnsupportedTypesGoToStandardErrorAndKeepTheFileReadable) {
  test::TempDir dir;
  const std::string path = dir / "bad.tvf";
  FILE* out = std::fopen(path.c_str(), "wb");
  ASSERT_NE(out, nullptr);
  WriteTvfHeader(out, TvfFormat::kAscii);
  auto polygon = MakePolygon(0, {{1, 1}}, {{0, TypedValue::Double(4)}});
  polygon->attributes.push_back(Attribute{1, TypedValue{}});  // no type
  testing::internal::CaptureStderr();
  WriteTvfFeature(out, TvfFormat::kAscii, *polygon);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unsupported data type\n");
  std::fclose(out);
  VectorData data;  // the entry is left out of the count as well
  ASSERT_TRUE(test::LoadBytes(test::ReadFile(path), data));
  EXPECT_EQ(data.features[0]->AttributeCount(), 1);

  out = std::fopen(path.c_str(), "wb");
  testing::internal::CaptureStderr();
  WriteTvfFeature(out, TvfFormat::kAscii, *MakeMarker(9, 1, 2, "x"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unsupported marker type\n");
  WriteTvfString(out, TvfFormat::kAscii, "a\0b"s);  // ends at the NUL
  std::fclose(out);
  EXPECT_EQ(test::ReadFile(path), "\r\n7 1 9 0 1.000000 2.000000 1 a\0 "s);
}

// The ASCII field encoders against the printf formats that define them.
TEST(TvfEncodeTest, FieldsMatchPrintf) {
  auto printed = [](const char* format, auto value) {
    char text[512];
    std::snprintf(text, sizeof text, format, value);
    return std::string(text);
  };
  std::vector<double> reals = {0.0, -0.0, 0.5, -1.0000005, 2.5e-7, 1.0 / 3.0, 179.9999995, 1e300,
                               -1.7976931348623157e308, 4.9e-324, HUGE_VAL, -HUGE_VAL,
                               std::nan(""), -std::nan("")};
  for (double v : reals) {
    std::string encoded;
    AppendTvfReal(encoded, TvfFormat::kAscii, v);
    EXPECT_EQ(encoded, printed("%lf ", v));
  }
  for (int64_t v : {int64_t{0}, int64_t{0x69c}, int64_t{-1}, std::numeric_limits<int64_t>::min()}) {
    std::string encoded;
    AppendTvfInteger(encoded, TvfFormat::kAscii, v);
    EXPECT_EQ(encoded, printed("%lx ", static_cast<unsigned long>(v)));
  }
}

}  // namespace
}  // namespace vmp
