#include "edit/Classifications.h"

#include <gtest/gtest.h>

TEST(Classifications, HidesClassesWhoseFourthByteIsSet) {
    Classifications classes;
    EXPECT_FALSE(classes.isAnyClassHidden());
    Classifications::Table table{};
    table.fill(0);
    table[4 * 7] = 255; // a colour hides nothing
    table[4 * 255 + 3] = 9;
    classes.setClassifications(table.data());
    EXPECT_TRUE(classes.isAnyClassHidden());
    EXPECT_TRUE(classes.isClassHidden(255));
    EXPECT_FALSE(classes.isClassHidden(7));
    EXPECT_EQ(table, classes.getClassifications());
    table[4 * 255 + 3] = 0;
    classes.setClassifications(table.data());
    EXPECT_FALSE(classes.isAnyClassHidden());
    EXPECT_FALSE(classes.isClassHidden(255));
}
