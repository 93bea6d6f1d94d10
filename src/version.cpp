/*
 * Version reports.
 */
#include "clidriver/clidriver.h"
#include "product.h"

/* Zero at load: the product type reads 0 until CLI_GetProductAllVersion has run. */
CliProductRecord g_stCliProduct = {};

/* Camera type codes and their paired codes, for the rest of the camera software; this library
 * only exports the table. */
CliCamType gastCamTypeList[3] = {
    {0x02012A00u, 0xA006u},
    {0x02012A01u, 0xA008u},
    {0x02012A02u, 0xA007u},
};
