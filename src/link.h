/*
 * The peripheral link's capability table, as the rest of the library sees it.
 *
 * The table itself (gastComCap) is exported so that a platform can declare the hub and the devices
 * it fits, and a station can look at it; inside this library only the link (link.cpp) writes it.
 * The serial set-up and the device commands go through the calls below, so that every change of a
 * device's presence or speed is made in one place and reads the same everywhere.
 */
#ifndef CLIDRIVER_SRC_LINK_H
#define CLIDRIVER_SRC_LINK_H

#include <stdint.h>

#include "clidriver/clidriver.h"
#include "hub_frame.h"

/* A GPS receiver wired straight to the line is read in blocks of this many bytes: about a second
 * of sentences at 9600 baud, so a block holds at least one whole burst. Callers of CLI_ComRecv
 * give at least this much room. */
constexpr uint32_t kLinkGpsBlockSize = kHubBufferSize;

/* Hub mode: the platform has declared the hub present (its flag is exactly 1). */
bool cli_link_hub_mode(void);

/* The serial line the link devices share; null until the serial set-up has named it. */
const char *cli_link_line(void);
void cli_link_set_line(const char *pcPath);

/* Declares a device present (flag 1) on the line, running at `ulRate` bits per second. */
void cli_link_declare(uint32_t ulType, uint32_t ulRate);

/* The speed the next CLI_ComOpen of the device uses; its presence is not touched. A type outside
 * the table is ignored. */
void cli_link_set_rate(uint32_t ulType, uint32_t ulRate);

/* A device's flag and speed as the table holds them, for reports. */
CliComDevCap cli_link_device(uint32_t ulType);

#endif /* CLIDRIVER_SRC_LINK_H */
