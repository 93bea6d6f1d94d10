// The argument sizes the recorder reads behind each device request's pointer.
#include <gtest/gtest.h>

#include "request_sizes.h"

namespace
{

TEST(RequestSizes, OneWordRequestsMoveFourBytes)
{
    for (const unsigned long request : {0x1950UL, 0x1923UL, 0x6001UL, 0x2007UL, 0x5006UL, 0x80046B04UL,
                                        0x80046B31UL, 0x40046B44UL, 0x80046B45UL, 0x1010UL, 0x8004690CUL})
        EXPECT_EQ(record::request_size(request), 4U) << std::hex << request;
}

TEST(RequestSizes, PhyRegisterRecordIsThreeWords)
{
    EXPECT_EQ(record::request_size(0x1920), 12U);
    EXPECT_EQ(record::request_size(0x1921), 12U);
}

// The request number encodes 4 bytes; the driver fills six words.
TEST(RequestSizes, LensMotorStatusIsSixWords)
{
    EXPECT_EQ(record::request_size(0x80046B0C), 24U);
}

TEST(RequestSizes, ExpanderProbesAndUnknownRequestsPassByValue)
{
    EXPECT_EQ(record::request_size(0x4008), 0U);
    EXPECT_EQ(record::request_size(0x4009), 0U);
    EXPECT_EQ(record::request_size(0x1234), 0U);
    EXPECT_EQ(record::request_size(0xC0046B0C), 0U);
}

} // namespace
