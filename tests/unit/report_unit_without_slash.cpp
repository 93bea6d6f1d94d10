// A reporting unit whose source name holds no '/', to show the file field falls back to the whole
// name.
#include "report.h"

static constexpr char kCliSourceFile[] = "plain_unit.cpp";
static inline const char *Cli_GetBaseName(void)
{
    return cli_base_name(kCliSourceFile);
}

void report_from_unit_without_slash()
{
    CLI_INFO("from a unit without directories");
}
