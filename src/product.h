/*
 * The product record: what this library knows of the unit it runs on. CLI_GetProductAllVersion
 * stores the product type from the manufacturing data; CLI_RsInit reads it to fill the shell's
 * serial port list. Internal to the library (not exported).
 */
#ifndef CLIDRIVER_SRC_PRODUCT_H
#define CLIDRIVER_SRC_PRODUCT_H

#include <stdint.h>

struct CliProductRecord {
    uint32_t ulProductType;   /* drv_GetManuparseProductType; 0 until the version command ran */
    uint32_t aulReserved[18]; /* cleared with the record, never filled by this library */
};

extern CliProductRecord g_stCliProduct;

#endif /* CLIDRIVER_SRC_PRODUCT_H */
