/*
 * The camera's character devices and the requests their drivers take, each written once.
 *
 * The request numbers are the drivers' contract and are used exactly as the drivers define them,
 * including the size field some of them encode (the lens-motor status request says 4 bytes
 * although it fills six words: the driver recognises it by that number). Where a request moves
 * a record, the comment says what the record holds.
 */
#ifndef CLIDRIVER_SRC_DEVICES_H
#define CLIDRIVER_SRC_DEVICES_H

#include <stdint.h>

/* ---- CPLD driver ------------------------------------------------------------------------------ */
constexpr char kCpldDevice[] = "/dev/cpld_drv";
constexpr unsigned long kCpldVersionGet = 0x1950; /* fills one word with the CPLD's version number */

/* ---- Network driver: uplink kind and the Ethernet PHY's registers over MDIO ------------------- */
constexpr char kNetUserDevice[] = "/dev/NetUsrDrv";
constexpr unsigned long kNetUserInterfaceGet = 0x1923; /* fills one word with the uplink type */
constexpr unsigned long kPhyRegisterRead = 0x1920;     /* {0, register, value}: fills the value */
constexpr unsigned long kPhyRegisterWrite = 0x1921;    /* {0, register, value}: writes the value */

/* ---- GPIO driver: the I2C expanders, the chip identity, analogue input 0 and the PIR ---------- */
constexpr char kGpioDevice[] = "/dev/gpioDev";
constexpr unsigned long kPca9555Check = 0x4008; /* the driver probes the PCA9555 itself (no argument) */
constexpr unsigned long kPca9534Check = 0x4009; /* probes the PCA9534 whose index is the argument */
constexpr unsigned long kChipIdGet = 0x6001;    /* fills one word with the chip id (1 Hi3516A, 2 Hi3516D) */
constexpr unsigned long kAdc0Get = 0x2007;      /* fills one word with the 10-bit reading of input 0 */
constexpr unsigned long kPirStatusGet = 0x5006; /* fills one word with the PIR state */

/* ---- Lens-motor driver: motor flags, IR cut, iris and the inner open-collector output --------- */
constexpr char kMotorDevice[] = "/dev/motor";
constexpr unsigned long kMotorStatusGet =
    0x80046B0C; /* fills six words: valid mask, zoom, focus, zoom1, zoom2, ir */
constexpr unsigned long kIrCutStateGet = 0x80046B04; /* fills one word with the IR-cut state */
constexpr unsigned long kIrisStateGet = 0x80046B31;  /* fills one word with the iris state (inverted) */
constexpr unsigned long kOcOutputSet = 0x40046B44;   /* takes one word: the output's state, 0 or 1 */
constexpr unsigned long kOcOutputGet = 0x80046B45;   /* fills one word with the output's state */

/* ---- Orientation sensor (electronic compass) --------------------------------------------------- */
constexpr char kEcompassDevice[] = "/dev/ecompass";
constexpr unsigned long kEcompassSelfTest = 0x1010; /* fills one signed word with the result, 0 passed */

/* ---- Gyroscope ---------------------------------------------------------------------------------- */
constexpr char kGyroDevice[] = "/dev/gyro";
constexpr unsigned long kGyroStatusGet = 0x8004690C; /* fills one word with the status, 0 good */

#endif /* CLIDRIVER_SRC_DEVICES_H */
