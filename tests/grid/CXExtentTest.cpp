#include <grid/CXExtent>

#include <gtest/gtest.h>

TEST(CXExtent, DefaultIsAllZeroAndEqualsInvalid)
{
    const CXExtent e;
    EXPECT_EQ(e.xMin(), 0.0);
    EXPECT_EQ(e.xMax(), 0.0);
    EXPECT_EQ(e.yMin(), 0.0);
    EXPECT_EQ(e.yMax(), 0.0);
    EXPECT_EQ(CXExtent::INVALID.xMin(), 0.0);
    EXPECT_EQ(CXExtent::INVALID.xMax(), 0.0);
    EXPECT_EQ(CXExtent::INVALID.yMin(), 0.0);
    EXPECT_EQ(CXExtent::INVALID.yMax(), 0.0);
}

TEST(CXExtent, ConstructorTakesBothXThenBothYWithoutOrderingCheck)
{
    const CXExtent e(10.0, -5.0, 3.0, 7.0);
    EXPECT_EQ(e.xMin(), 10.0);
    EXPECT_EQ(e.xMax(), -5.0);
    EXPECT_EQ(e.yMin(), 3.0);
    EXPECT_EQ(e.yMax(), 7.0);
}

TEST(CXExtent, WritableAccessorsAndCentroid)
{
    CXExtent e(0.0, 10.0, 0.0, 4.0);
    e.xMax() = 20.0;
    e.yMin() = -4.0;
    double x = 0.0, y = 0.0;
    e.getCentroid(x, y);
    EXPECT_DOUBLE_EQ(x, 10.0);
    EXPECT_DOUBLE_EQ(y, 0.0);
}

TEST(CXExtent, CopyIsMemberwise)
{
    const CXExtent a(1.0, 2.0, 3.0, 4.0);
    CXExtent b;
    b = a;
    const CXExtent c(a);
    for (const CXExtent* e : {static_cast<const CXExtent*>(&b), &c})
    {
        EXPECT_EQ(e->xMin(), 1.0);
        EXPECT_EQ(e->xMax(), 2.0);
        EXPECT_EQ(e->yMin(), 3.0);
        EXPECT_EQ(e->yMax(), 4.0);
    }
}
