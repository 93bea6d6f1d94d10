// A serial port's log, line by line, as the replaying peer reads it.
#include <gtest/gtest.h>

#include "port_log.h"

namespace
{

using record::Bytes;
using record::Port;
using record::PortEvent;

TEST(PortLog, BytesAreUpperCaseHexPairs)
{
    EXPECT_EQ(record::hex_bytes({}), "");
    EXPECT_EQ(record::hex_bytes({0x24}), "24");
    EXPECT_EQ(record::hex_bytes({0x00, 0x0A, 0xFE, 0xff}), "00 0A FE FF");
}

TEST(PortLog, EveryEventIsOneLineInOrder)
{
    Port port;
    port.opened = true;
    port.events = {
        {PortEvent::Kind::Open, 1200000, {}},
        {PortEvent::Kind::Wrote, 1300000, {0x24, 0x50, 0x4D, 0x54, 0x4B, 0x0D, 0x0A}},
        {PortEvent::Kind::Read, 1812500, {0x24, 0x47, 0x50}},
        {PortEvent::Kind::Close, 90000000, {}},
        {PortEvent::Kind::Open, 95000000000, {}},
    };
    EXPECT_EQ(record::port_log_text("/dev/ttyAMBA1", port), "# /dev/ttyAMBA1 as the library used it\n"
                                                            "open 1200000\n"
                                                            "> 1300000 24 50 4D 54 4B 0D 0A\n"
                                                            "< 1812500 24 47 50\n"
                                                            "close 90000000\n"
                                                            "open 95000000000\n");
}

TEST(PortLog, PortWithoutEventsHasOnlyItsHeading)
{
    EXPECT_EQ(record::port_log_text("/dev/ttyS1", Port{}), "# /dev/ttyS1 as the library used it\n");
}

TEST(PortLog, FileNameIsThePathBelowDev)
{
    EXPECT_EQ(record::port_log_name("/dev/ttyAMBA1"), "ttyAMBA1.log");
    EXPECT_EQ(record::port_log_name("/dev/ttyC0"), "ttyC0.log");
    EXPECT_EQ(record::port_log_name("/dev/usb/tty0"), "usb_tty0.log");
    EXPECT_EQ(record::port_log_name("/dev/.."), "port.log");
}

} // namespace
