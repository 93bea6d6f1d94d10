// The product record that the version command fills and the serial set-up reads, seen through
// the built library as the shell sees it: the product type CLI_GetProductAllVersion stores
// decides the lines CLI_RsInit names, and each version command replaces what an earlier one
// stored. The record itself is internal to libclidriver; only its layout is checked here.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "clidriver/clidriver.h"
#include "product.h"
#include "sim_fixture.h"

namespace
{

// Nineteen 32-bit words: the product type and eighteen reserved ones.
static_assert(sizeof(CliProductRecord) == 19 * 4, "the product record is nineteen words");

constexpr const char *kShellPath = "/dev/shell-own"; // what the shell's records held before

class ProductRecord : public clitest::SimTest
{
  protected:
    // The platform reports `type`, and the version command stores it.
    void store(uint32_t type)
    {
        scenario().product_type = type;
        restart(); // a fresh camera; the library's record lives on in this process
        const clitest::Call call = run([] { return CLI_GetProductAllVersion(); });
        EXPECT_EQ(call.status, 0);
        EXPECT_TRUE(call.printed.empty());
        EXPECT_EQ(call.out + call.err, "");
    }

    // The two connector lines CLI_RsInit names now ("" where it leaves the shell's record).
    std::string lines_named()
    {
        CliSerialPort records[3] = {};
        for (CliSerialPort &record : records)
            record.pcDevPath = kShellPath;
        EXPECT_EQ(run([&] { return CLI_RsInit(records); }).status, 0);
        std::string named;
        for (int i = 1; i <= 2; ++i)
            named += std::string(i == 1 ? "" : " ") +
                     (records[i].pcDevPath == kShellPath ? "-" : records[i].pcDevPath);
        return named;
    }
};

TEST_F(ProductRecord, EachVersionCommandReplacesTheTypeTheSerialSetUpReads)
{
    store(62);
    EXPECT_EQ(lines_named(), "/dev/ttyS1 /dev/ttyS2");
    store(22);
    EXPECT_EQ(lines_named(), "/dev/ttyS2 -");
    store(0xFFFFFFFFu);
    EXPECT_EQ(lines_named(), "- -") << "an unknown product keeps no line of the one before";
    store(0x02012A01u);
    EXPECT_EQ(lines_named(), "- -");
    store(0);
    EXPECT_EQ(lines_named(), "/dev/ttyS1 /dev/ttyS1");
}

} // namespace
