// The product record that the serial set-up reads. It is internal to libclidriver (not exported),
// so this test compiles the version commands' own source in and calls that copy: the record it
// inspects is the one the same code fills inside the library. The platform answering is the
// simulated camera's.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "clidriver/clidriver.h"
#include "product.h"
#include "sim_fixture.h"

namespace
{

class ProductRecord : public clitest::SimTest
{
};

TEST_F(ProductRecord, IsNineteenWordsAndZeroAtLoad)
{
    EXPECT_EQ(sizeof g_stCliProduct, 19u * 4u);
    EXPECT_EQ(g_stCliProduct.ulProductType, 0u);
    for (uint32_t word : g_stCliProduct.aulReserved)
        EXPECT_EQ(word, 0u);
}

TEST_F(ProductRecord, HoldsThePlatformsProductTypeAndNothingElse)
{
    for (uint32_t type : {62u, 0u, 0x02012A01u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(type);
        scenario().product_type = type;
        restart();
        memset(&g_stCliProduct, 0xA5, sizeof g_stCliProduct); // whatever an earlier run left
        const clitest::Call call = run([] { return CLI_GetProductAllVersion(); });
        EXPECT_EQ(call.status, 0);
        EXPECT_TRUE(call.printed.empty());
        EXPECT_EQ(call.out + call.err, "");
        EXPECT_EQ(g_stCliProduct.ulProductType, type);
        for (uint32_t word : g_stCliProduct.aulReserved)
            EXPECT_EQ(word, 0u);
    }
}

} // namespace
