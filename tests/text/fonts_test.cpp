// Stroke font parsing, text decoding and font resolution with fallback.
#include <gtest/gtest.h>

#include <ft2build.h>
#include FT_FREETYPE_H

#include "map_server/dataset/dataset.h"
#include "map_server/text/text_decode.h"
#include "map_server/text/text_engine.h"
#include "support/message_capture.h"
#include "support/temp_dir.h"

namespace vmp {
namespace {

const std::string kFontDir = std::string(VMP_SOURCE_DIR) + "/data/fonts";

TEST(StrokeFont, ParsesBundledRomanSimplex) {
  std::optional<StrokeFont> font = StrokeFont::Load(kFontDir + "/rowmans.jhf");
  ASSERT_TRUE(font);
  EXPECT_EQ(font->glyph_count(), 96u);
  // 'H': two verticals and a bar, capitals from -12 to the baseline at 9.
  const StrokeGlyph& h = font->Glyph('H');
  EXPECT_EQ(font->Points(h).size(), 6u);
  EXPECT_EQ(h.left, -11);
  EXPECT_EQ(h.right, 11);
  EXPECT_DOUBLE_EQ(font->baseline(), 9);
  EXPECT_DOUBLE_EQ(font->cap_height(), 21);
  // Missing characters draw as '?'; the degree sign has its own glyph.
  EXPECT_EQ(&font->Glyph(0x4E2D), &font->Glyph('?'));
  EXPECT_NE(&font->Glyph(0xB0), &font->Glyph('?'));
}

TEST(StrokeFont, RecordSplitOverLinesParses) {
  // "  1  3JZ" + 2 pairs, the second on a continuation line.
  std::optional<StrokeFont> font = StrokeFont::Parse("    1  3JZRFR\n[\n", "split.jhf");
  ASSERT_TRUE(font);
  EXPECT_EQ(font->Points(font->Glyph(' ')).size(), 2u);
}

TEST(StrokeFont, MalformedFilesAreRefused) {
  const struct {
    const char* text;
    const char* reason;
  } cases[] = {
      {"", "no glyphs"},
      {"  12x 2JZRFR[\n", "bad glyph number"},
      {"    1  4JZRFR[\n", "record length"},        // count says 3 pairs, holds 2
      {"    1  3JZ XR[\n", "pen-up pair"},
      {"    1  2JZ\x01R\n", "out of range"},
  };
  for (const auto& c : cases) {
    test::MessageCapture capture;
    EXPECT_FALSE(StrokeFont::Parse(c.text, "bad.jhf")) << c.text;
    EXPECT_TRUE(capture.Contains("Invalid stroke font file")) << c.text;
    EXPECT_TRUE(capture.Contains(c.reason)) << c.text;
  }
}

TEST(TextDecode, Utf8AndLatin1) {
  const struct {
    std::string bytes;
    TextEncoding encoding;
    std::u32string expected;
  } cases[] = {
      {"Z\xC3\xBCrich", TextEncoding::kUtf8, U"Zürich"},
      {"Z\xC3\xBCrich", TextEncoding::kLatin1, U"Z\u00C3\u00BCrich"},
      {"Z\xFCrich", TextEncoding::kLatin1, U"Zürich"},
      {"Z\xFCrich", TextEncoding::kUtf8, U"Z\uFFFDrich"},            // Latin-1 byte in UTF-8
      {"a\xC3", TextEncoding::kUtf8, U"a\uFFFD"},                    // truncated
      {"\xC0\xAF", TextEncoding::kUtf8, U"\uFFFD\uFFFD"},            // overlong
      {"\xED\xA0\x80", TextEncoding::kUtf8, U"\uFFFD\uFFFD\uFFFD"},  // surrogate
      {"\xE2\x82\xAC \xF0\x9F\x97\xBA", TextEncoding::kUtf8, U"\u20AC \U0001F5FA"},
  };
  std::u32string out;
  for (const auto& c : cases) {
    DecodeText(c.bytes, c.encoding, out);
    EXPECT_EQ(out, c.expected) << c.bytes;
  }
}

class FontResolution : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(FT_Init_FreeType(&library_), 0); }
  void TearDown() override {
    engine_.Clear();
    FT_Done_FreeType(library_);
  }
  FT_Library library_ = nullptr;
  TextEngine engine_;
  test::TempDir dir_;
};

TEST_F(FontResolution, MissingAndBrokenFontsFallBackToTheErrorFont) {
  std::unique_ptr<Dataset> dataset = CreateDataset("DefaultDataset", dir_.path() + "/data.sdf");
  dataset->resources.SetString(kDatasetErrorFont, "sans");
  dir_.Write("broken.jhf", "    1  9JZRF\n");
  dir_.Write("broken.ttf", "not a font");
  dataset->fonts.push_back({"brokenstroke", dir_.path() + "/broken.jhf", FontKind::kVector});
  dataset->fonts.push_back({"brokenglyph", dir_.path() + "/broken.ttf", FontKind::kImage});
  // Registered under a directory that lacks the file: the bundled copy is used.
  dataset->fonts.push_back({"times", dir_.path() + "/timesr.jhf", FontKind::kVector});

  const struct {
    const char* name;
    const char* message;
    bool falls_back;
  } cases[] = {
      {"nosuch", "Can't find font", true},
      {"brokenstroke", "Invalid stroke font file", true},
      {"brokenglyph", "Cannot load font file", true},
      {"times", nullptr, false},
      {"roman", nullptr, false},
  };
  for (const auto& c : cases) {
    test::MessageCapture capture;
    const LoadedFont* font = engine_.ResolveFont(*dataset, std::string(c.name), library_);
    ASSERT_NE(font, nullptr) << c.name;
    if (c.message != nullptr) {
      EXPECT_TRUE(capture.Contains(c.message)) << c.name;
    }
    EXPECT_EQ(capture.Contains("Using error font: sans"), c.falls_back) << c.name;
    if (c.falls_back) {
      EXPECT_TRUE(font->glyph != nullptr) << c.name;  // sans is the bundled glyph font
    } else {
      EXPECT_TRUE(font->stroke.has_value()) << c.name;
      EXPECT_TRUE(capture.messages().empty()) << c.name;
    }
  }
  // A broken file is reported once; later lookups fall back quietly but for the notice.
  test::MessageCapture capture;
  engine_.ResolveFont(*dataset, std::string("brokenstroke"), library_);
  EXPECT_FALSE(capture.Contains("Invalid stroke font file"));
}

}  // namespace
}  // namespace vmp
