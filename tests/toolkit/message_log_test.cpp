#include "toolkit/message_log.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <limits>
#include <string>

#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

using test::MessageCapture;
using test::ReadFile;
using test::TempDir;

const char* const kLogVariables[] = {"VMP_LOG_DIR_3_5", "VMP_LOG_DIR", "KAV_LOG_DIR_3_5",
                                     "KAV_LOG_DIR",     "KAV_DIR_3_5", "KAV_DIR"};

// Clears the log-directory variables and restores the log state afterwards.
class MessageLogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : kLogVariables) unsetenv(name);
    saved_ = kav::Messages();
  }
  void TearDown() override {
    for (const char* name : kLogVariables) unsetenv(name);
    kav::Messages() = saved_;
  }
  kav::MessageLog saved_;
};

TEST_F(MessageLogTest, FormatsTheEightForms) {
  double three = 3.0, half = 2.5, negative = -7.0;
  struct Case {
    const char* message;
    const char* detail;
    const double* number;
    int severity;
    const char* expected;
  } cases[] = {
      {"Could not be opened", nullptr, nullptr, kError, "Error: Could not be opened"},
      {"Width is", nullptr, &three, kInfo, "Info: Width is: 3"},
      {"Zoom", nullptr, &half, kStatus, "Status: Zoom: 2.500000"},
      {"Could not be opened", "a.lif", nullptr, kWarning, "Warning: Could not be opened: a.lif"},
      {"Count", "layer", &negative, kInternalError, "Internal Error: Count: layer: -7"},
      {"Count", "layer", &half, kError, "Error: Count: layer: 2.500000"},
      {nullptr, nullptr, nullptr, kError, "Error: null"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(FormatMessageText(c.message, c.detail, c.number, c.severity), c.expected);
  }
}

TEST_F(MessageLogTest, NonIntegralAndHugeNumbersUseTheRealForm) {
  double nan = std::numeric_limits<double>::quiet_NaN();
  double huge = 1e300;
  EXPECT_EQ(FormatMessageText("n", nullptr, &nan, kInfo), "Info: n: nan");
  EXPECT_EQ(FormatMessageText("n", nullptr, &huge, kInfo).substr(0, 12), "Info: n: 100");
  EXPECT_NE(FormatMessageText("n", nullptr, &huge, kInfo).find(".000000"), std::string::npos);
}

TEST_F(MessageLogTest, CutsEachFieldAt1024Characters) {
  std::string long_message(2000, 'm'), long_detail(1500, 'd');
  std::string text = FormatMessageText(long_message.c_str(), long_detail.c_str(), nullptr, kError);
  EXPECT_EQ(text, "Error: " + std::string(1024, 'm') + ": " + std::string(1024, 'd'));
}

TEST_F(MessageLogTest, HandlerGetsPrefixedTextAndCountsOnlyErrors) {
  MessageCapture capture;
  kav::Messages().error_count = 0;
  Report(kInternalError, "a");
  Report(kError, "b", "detail");
  Report(kWarning, "c");
  Report(kInfo, "d");
  Report(kStatus, "e");
  EXPECT_EQ(kav::Messages().error_count, 2);
  ASSERT_EQ(capture.messages().size(), 5u);
  EXPECT_EQ(capture.messages()[1].text, "VmpMap: Error: b: detail");
  EXPECT_EQ(capture.messages()[4].severity, kStatus);
}

TEST_F(MessageLogTest, ImageErrorsCollectsEverySeverityOnceItExists) {
  MessageCapture capture;
  kav::Messages().image_errors.reset();
  Report(kError, "before start");
  kav::Messages().image_errors.emplace();
  Report(kStatus, "status line");
  ReportNumber(kError, "after start", "x", 4.0);
  ASSERT_TRUE(kav::Messages().image_errors.has_value());
  const auto& list = *kav::Messages().image_errors;
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0], "Status: status line");
  EXPECT_EQ(list[1], "Error: after start: x: 4");
}

TEST_F(MessageLogTest, SetErrorHandlerReturnsThePreviousAndNullRestoresDefault) {
  int calls = 0;
  auto old = VmpSetErrorHandler([&](const char*, int) { ++calls; });
  Report(kInfo, "x");
  auto mine = VmpSetErrorHandler(nullptr);
  EXPECT_TRUE(static_cast<bool>(mine));
  EXPECT_FALSE(static_cast<bool>(kav::Messages().vmp_handler));
  VmpSetErrorHandler(std::move(old));
  EXPECT_EQ(calls, 1);
}

TEST_F(MessageLogTest, DefaultHandlerPrintsOnStandardErrorAndAppendsToTheLogFile) {
  TempDir dir;
  setenv("VMP_LOG_DIR", dir.path().c_str(), 1);
  kav::Messages().cgi = false;
  kav::Messages().vmp_handler = nullptr;
  testing::internal::CaptureStderr();
  Report(kError, "first", "one");
  Report(kWarning, "second");
  Report(kStatus, "never in the file");
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(err,
            "VmpMap: Error: first: one\nVmpMap: Warning: second\nVmpMap: Status: never in the file\n");
  EXPECT_EQ(ReadFile(dir / "vmp_error.log"), "VmpMap: Error: first: one\nVmpMap: Warning: second\n");
}

TEST_F(MessageLogTest, NoLogFileInCgiModeEvenForInternalErrors) {
  TempDir dir;
  setenv("VMP_LOG_DIR", dir.path().c_str(), 1);
  MessageCapture capture;
  kav::Messages().cgi = true;
  Report(kInternalError, "internal");
  EXPECT_FALSE(test::FileExists(dir / "vmp_error.log"));
  EXPECT_TRUE(capture.Contains("internal"));
}

TEST_F(MessageLogTest, CustomHandlerOutsideCgiWritesOnlyInternalErrors) {
  TempDir dir;
  setenv("VMP_LOG_DIR", dir.path().c_str(), 1);
  MessageCapture capture;
  kav::Messages().cgi = false;
  Report(kError, "plain error");
  Report(kInternalError, "internal");
  EXPECT_EQ(ReadFile(dir / "vmp_error.log"), "VmpMap: Internal Error: internal\n");
}

TEST_F(MessageLogTest, LogDirectoryLookupOrder) {
  TempDir versioned, plain, kav_log, kav_dir;
  MessageCapture capture;
  kav::Messages().cgi = false;
  auto log_in = [](const TempDir& d) { return ReadFile(d / "vmp_error.log"); };

  // An empty versioned variable counts as unset: VMP_LOG_DIR is used.
  setenv("VMP_LOG_DIR_3_5", "", 1);
  setenv("VMP_LOG_DIR", plain.path().c_str(), 1);
  setenv("KAV_LOG_DIR", kav_log.path().c_str(), 1);
  setenv("KAV_DIR", kav_dir.path().c_str(), 1);
  Report(kInternalError, "one");
  EXPECT_EQ(log_in(plain), "VmpMap: Internal Error: one\n");

  setenv("VMP_LOG_DIR_3_5", versioned.path().c_str(), 1);
  Report(kInternalError, "two");
  EXPECT_EQ(log_in(versioned), "VmpMap: Internal Error: two\n");

  unsetenv("VMP_LOG_DIR_3_5");
  unsetenv("VMP_LOG_DIR");
  Report(kInternalError, "three");
  EXPECT_EQ(log_in(kav_log), "VmpMap: Internal Error: three\n");

  unsetenv("KAV_LOG_DIR");
  Report(kInternalError, "four");
  EXPECT_EQ(log_in(kav_dir), "VmpMap: Internal Error: four\n");
}

TEST_F(MessageLogTest, KavErrorPrefixesAndItsOwnLogFile) {
  TempDir dir;
  setenv("KAV_LOG_DIR", dir.path().c_str(), 1);
  kav::Messages().cgi = false;
  kav::Messages().kav_handler = nullptr;
  testing::internal::CaptureStderr();
  kav::KavError("version", kav::kInfo);
  kav::KavError("broken", kav::kInternalError, 12, "tile.cpp");
  kav::KavError("plain", kav::kError);
  kav::KavError("careful", kav::kWarning);
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(err, "Info: version\nInternal Error: broken\nplain\nWarning: careful\n");
  EXPECT_EQ(ReadFile(dir / "kav_error.log"),
            "\nInfo: version\n\nFile tile.cpp, line 12: Internal Error: broken\n\nplain\n"
            "\nWarning: careful\n");
  EXPECT_FALSE(test::FileExists(dir / "vmp_error.log"));
}

TEST_F(MessageLogTest, KavErrorWithCustomHandlerLogsOnlyInternalErrors) {
  TempDir dir;
  setenv("KAV_DIR", dir.path().c_str(), 1);
  MessageCapture capture;
  kav::Messages().cgi = false;
  kav::KavError("quiet", kav::kError);
  kav::KavError("loud", kav::kInternalError);
  EXPECT_EQ(ReadFile(dir / "kav_error.log"), "\nInternal Error: loud\n");
  ASSERT_EQ(capture.messages().size(), 2u);
  EXPECT_TRUE(capture.messages()[0].from_toolkit);
}

}  // namespace
}  // namespace vmp
