#include "toolkit/environment.h"

#include <gtest/gtest.h>
#include <stdlib.h>

namespace kav {
namespace {

TEST(EnvironmentTest, VersionedNameFirstAndEmptyMeansUnset) {
  setenv("VMP_TEST_VAR", "plain", 1);
  unsetenv("VMP_TEST_VAR_3_5");
  EXPECT_EQ(GetVersionedEnv("VMP_TEST_VAR"), "plain");
  setenv("VMP_TEST_VAR_3_5", "versioned", 1);
  EXPECT_EQ(GetVersionedEnv("VMP_TEST_VAR"), "versioned");
  setenv("VMP_TEST_VAR_3_5", "", 1);
  EXPECT_EQ(GetVersionedEnv("VMP_TEST_VAR"), "plain");
  setenv("VMP_TEST_VAR", "", 1);
  EXPECT_FALSE(GetVersionedEnv("VMP_TEST_VAR").has_value());
  unsetenv("VMP_TEST_VAR");
  unsetenv("VMP_TEST_VAR_3_5");
}

TEST(EnvironmentTest, SwitchReadsOnlyTrueAndFalse) {
  struct Case {
    const char* value;  // null: unset
    bool default_value;
    bool expected;
  } cases[] = {
      {"true", false, true}, {"false", true, false}, {"TRUE", false, false},
      {"yes", true, true},   {"", true, true},       {nullptr, false, false},
  };
  for (const Case& c : cases) {
    if (c.value) setenv("VMP_TEST_SWITCH", c.value, 1);
    else unsetenv("VMP_TEST_SWITCH");
    EXPECT_EQ(GetEnvSwitch("VMP_TEST_SWITCH", c.default_value), c.expected) << (c.value ? c.value : "unset");
  }
  unsetenv("VMP_TEST_SWITCH");
}

}  // namespace
}  // namespace kav
