#include <gtest/gtest.h>

#include "core/DateNumber.h"

TEST(Placeholder, x) { EXPECT_EQ(vornex::dateNumber(vornex::Date{}), 19700101000000000); }
