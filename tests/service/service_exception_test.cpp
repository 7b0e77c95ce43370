#include "map_server/service/service_exception.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/message_capture.h"
#include "toolkit/message_log.h"

namespace vmp {
namespace {

TEST(ServiceExceptionTest, CommandLineForm) {
  test::MessageCapture capture;  // restores the log state
  kav::Messages().image_errors.reset();
  struct Case {
    const char* message;
    std::optional<std::string_view> detail;
    const char* expected;
  } cases[] = {
      {"Mandatory variable dataset is not set!", std::nullopt,
       "Mandatory variable dataset is not set!\n"},
      {"The OpenGIS request could not be processed.",
       "One or more of the variables is probably malformed.",
       "The OpenGIS request could not be processed.\n"
       "One or more of the variables is probably malformed.\n"},
      {"iteration_max is too small: min=10000.\n", std::nullopt,
       "iteration_max is too small: min=10000.\n\n"},
      {"empty detail", "", "empty detail\n\n"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(FormatServiceExceptionText(c.message, c.detail), c.expected) << c.message;
  }
}

// Both forms list the first 31 entries of ImageErrors, when the list exists.
TEST(ServiceExceptionTest, ListsTheFirst31ImageErrors) {
  test::MessageCapture capture;
  auto& image_errors = kav::Messages().image_errors;
  image_errors.emplace();
  for (int i = 0; i < 40; ++i) image_errors->push_back("Error: e" + std::to_string(i));
  std::string expected = "Errors generating map image.\n";
  for (int i = 0; i < 31; ++i) expected += "Error: e" + std::to_string(i) + "\n";
  EXPECT_EQ(FormatServiceExceptionText("Errors generating map image.", std::nullopt), expected);
  image_errors->resize(2);
  EXPECT_EQ(FormatServiceExceptionText("m", "d"), "m\nd\nError: e0\nError: e1\n");
  EXPECT_EQ(FormatServiceExceptionXml("m", "d"),
            "Content-Type: text/xml\n\n<ServiceExceptionReport version=\"1.3.0\">\n  <ServiceException>\n    m\n    d\n"
            "  </ServiceException>\n  <ServiceException>Error: e0</ServiceException>\n"
            "  <ServiceException>Error: e1</ServiceException>\n</ServiceExceptionReport>\n");
  image_errors.reset();
  EXPECT_EQ(FormatServiceExceptionXml("m", std::nullopt),
            "Content-Type: text/xml\n\n<ServiceExceptionReport version=\"1.3.0\">\n"
            "  <ServiceException>\n    m\n  </ServiceException>\n</ServiceExceptionReport>\n");
}

}  // namespace
}  // namespace vmp
