// Loading TVF files without their attributes: the same features and
// failures as a full load, in both encodings and across buffer refills.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

#include "map_server/vector/tvf_reader.h"
#include "map_server/vector/tvf_writer.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

void WriteSample(const std::string& path, TvfFormat format) {
  FILE* f = std::fopen(path.c_str(), "wb");
  ASSERT_NE(f, nullptr);
  WriteTvfHeader(f, format);
  for (int i = 0; i < 1500; ++i) {
    std::unique_ptr<Feature> feature;
    if (i % 7 == 3) {
      auto m = std::make_unique<MarkerFeature>();
      m->marker_type = 1;
      m->label = std::to_string(i);
      m->x = i;
      m->y = -i;
      feature = std::move(m);
    } else {
      auto p = std::make_unique<PolygonFeature>();
      p->points = {{1.0 * i, 2}, {3, 4.5}, {1.0 * i, 2}};
      p->flag = static_cast<int8_t>(i % 3 == 0);
      feature = std::move(p);
    }
    feature->AddAttribute(1, TypedValue::String(std::string(static_cast<size_t>(i % 1025), 'x')));
    feature->AddAttribute(4, TypedValue::String(std::nullopt));
    feature->AddAttribute(2, TypedValue::Double(i * 0.5));
    feature->AddAttribute(3, TypedValue::Geo(i, 1, 2));
    WriteTvfFeature(f, format, *feature);
  }
  std::fclose(f);
}

TEST(TvfSkipAttributesTest, SameFeaturesAndFailuresAsAFullLoad) {
  test::TempDir dir;
  for (TvfFormat format : {TvfFormat::kBinary, TvfFormat::kAscii}) {
    const std::string path = dir / "sample.tvf";
    WriteSample(path, format);
    const auto size = std::filesystem::file_size(path);
    // Whole, then cut inside the attributes of a record far into the file.
    for (uintmax_t cut : {size, size * 2 / 3 + 5}) {
      std::filesystem::resize_file(path, cut);
      test::MessageCapture quiet;
      VectorData full, bare;
      const bool full_ok = LoadTvfFile(path, TvfSource::kTvf, full);
      const bool bare_ok = LoadTvfFile(path, TvfSource::kTvf, bare, {}, false, TvfAttributes::kSkip);
      EXPECT_EQ(full_ok, cut == size);
      EXPECT_EQ(bare_ok, full_ok);
      EXPECT_TRUE(bare.attributes_skipped);
      ASSERT_EQ(bare.FeatureCount(), full.FeatureCount());
      EXPECT_GT(full.FeatureCount(), 900);
      for (size_t i = 0; i < full.features.size(); ++i) {
        const Feature& a = *full.features[i];
        const Feature& b = *bare.features[i];
        ASSERT_EQ(a.kind(), b.kind());
        EXPECT_EQ(a.attributes.size(), 4u);
        EXPECT_TRUE(b.attributes.empty());
        if (const PolygonFeature* p = a.AsPolygon()) {
          EXPECT_EQ(p->points.size(), b.AsPolygon()->points.size());
          EXPECT_EQ(p->points.back().x, b.AsPolygon()->points.back().x);
          EXPECT_EQ(p->box.max_x, b.AsPolygon()->box.max_x);  // group boxes alike
        } else {
          EXPECT_EQ(a.AsMarker()->label, b.AsMarker()->label);
          EXPECT_EQ(a.AsMarker()->y, b.AsMarker()->y);
        }
      }
    }
  }
}

}  // namespace
}  // namespace vmp
