// Grid label texts: decimal and degree-minute values, hemisphere letters,
// formats and their errors.
#include <gtest/gtest.h>

#include "map_server/rendering/grid_labels.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

GridAttributes Grid(int decimal, int label_char, const char* format = nullptr, const char* format_lon = nullptr) {
  GridAttributes a;
  a.decimal_labels = decimal;
  a.label_char = label_char;
  if (format) a.label_format = format;
  if (format_lon) a.label_format_lon = format_lon;
  return a;
}

TEST(GridLabelTextTest, ValuesLettersAndFormats) {
  struct Case {
    GridAttributes grid;
    bool longitude;
    double value;
    const char* text;
  } cases[] = {
      {Grid(1, 1), false, 30, "30\xC2\xB0N"},
      {Grid(1, 1), false, -45, "45\xC2\xB0S"},
      {Grid(1, 1), false, 3 * 0.1, "0.3\xC2\xB0N"},
      {Grid(1, 1), false, -1e-12, "0\xC2\xB0"},
      {Grid(1, 1), true, -120, "120\xC2\xB0W"},
      {Grid(1, 1), true, 200, "160\xC2\xB0W"},  // placed beyond 180 on a map centred east
      {Grid(1, 1), true, -180, "180\xC2\xB0"},
      {Grid(1, 2), true, 90, "E90\xC2\xB0"},
      {Grid(1, 0), false, -45, "-45\xC2\xB0"},
      {Grid(0, 1), false, 45.5, "45\xC2\xB0" "30'N"},
      {Grid(0, 1), true, -0.25, "0\xC2\xB0" "15'W"},
      {Grid(0, 1), false, 10 + 1 / 3600.0, "10\xC2\xB0" "0'1\"N"},
      {Grid(0, 1), false, 0.5 / 3600, "0\xC2\xB0" "0'0.5\"N"},
      {Grid(0, 0), false, -0.5, "-0\xC2\xB0" "30'"},
      {Grid(1, 1, "%.1f deg"), false, -30, "30.0 degS"},
      {Grid(1, 0, "%+d%%"), false, 12.6, "+13%"},
      {Grid(1, 1, "%g", "%03d"), true, -5, "005W"},
      {Grid(1, 1, "%g", "%03d"), false, -5, "5S"},
      {Grid(0, 1, "%d:%02d"), false, 45.5, "45:30N"},
      {Grid(0, 1, "%dd%02dm%04.1fs"), true, 7.50625, "7d30m22.5sE"},
  };
  for (const Case& c : cases) {
    const std::optional<GridLabelFormatter> f = GridLabelFormatter::Create(c.grid, 1);
    ASSERT_TRUE(f.has_value());
    EXPECT_EQ(c.longitude ? f->Longitude(c.value) : f->Latitude(c.value), c.text) << c.value;
  }
  EXPECT_EQ(GridLabelFormatter::Create(Grid(1, 1), 0)->Latitude(10), "10\xB0N");  // Latin-1 dataset
}

TEST(GridLabelTextTest, MalformedFormatsGiveNoLabels) {
  for (const char* format : {"%s", "%d and %d", "%123f", "%.1", "100%"}) {
    test::MessageCapture capture;
    EXPECT_FALSE(GridLabelFormatter::Create(Grid(1, 1, format), 1).has_value()) << format;
    EXPECT_TRUE(capture.Contains("Invalid grid label format")) << format;
  }
  test::MessageCapture capture;
  EXPECT_FALSE(GridLabelFormatter::Create(Grid(0, 1, "%d %d %d %d"), 1).has_value());
  EXPECT_FALSE(GridLabelFormatter::Create(Grid(1, 1, "%g", "%x"), 1).has_value());
}

}  // namespace
}  // namespace vmp
