/*
 * The command implementations report as one unit, "cli_libfun.cpp", whichever subsystem source
 * they live in: operators and station scripts grep this name, so splitting or moving a source
 * must not change what the lines say. Every command source includes this header, which brings
 * the report shapes (report.h) bound to the unit's names; the line field still shows the real
 * source's line, so a developer finds the report in one hop.
 */
#ifndef CLIDRIVER_SRC_CLI_LIBFUN_UNIT_H
#define CLIDRIVER_SRC_CLI_LIBFUN_UNIT_H

#include "report.h"

/* The unit's source name as the build knows it; console lines print it whole. */
static constexpr char kCliSourceFile[] = "src/cli_libfun.cpp";

/* The file field of this unit's diagnostic lines, computed afresh for every line. */
static inline const char *Cli_GetBaseName(void)
{
    return cli_base_name(kCliSourceFile);
}

#endif /* CLIDRIVER_SRC_CLI_LIBFUN_UNIT_H */
