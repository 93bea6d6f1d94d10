/*
 * The default command set.
 *
 * The shell links one fixed command list on every camera model, but a model implements only some
 * of the commands. Every command `X` therefore has a default body `__X` here, and `X` is a weak
 * alias of it: a strong `X` elsewhere in this library (or in a library loaded ahead of it)
 * replaces the alias, while `__X` stays callable under its own name. A default in force tells
 * the operator the device lacks the function and reports success, so station scripts that run
 * whole command lists carry on.
 *
 * Defaults ignore their arguments; the bodies are generated from the command list.
 */
#include "clidriver/clidriver.h"

/* Lines from this file name the default set, not the command implementations. */
#include "report.h"
static constexpr char kCliSourceFile[] = "src/cli_weak_libfun.cpp";
static inline const char *Cli_GetBaseName(void)
{
    return cli_base_name(kCliSourceFile);
}

/* Defaults take the public parameter list so that the shell may call either name, and ignore it.
 * Three defaults return nothing although the command they stand in for returns a status: their
 * alias keeps the public type, which is what the shell links against. */
#pragma GCC diagnostic ignored "-Wunused-parameter"
#if defined(__clang__)
#pragma clang diagnostic ignored "-Wunknown-warning-option"
#endif
#pragma GCC diagnostic ignored "-Wattribute-alias"

/* The standard answer, reported under the default's own name (with its two underscores) and the
 * line of its row in the command list. Operators' scripts match this text as it stands. */
static void cli_report_unsupported(const char *pcFunction, int lLine)
{
    CLI_DIAG_AT(pcFunction, lLine, CLI_LEVEL_INFO, "unsupport this function");
}

#define CLI_DEFAULT_STANDARD(name, params, default_ret)                                                      \
    default_ret __##name params                                                                              \
    {                                                                                                        \
        cli_report_unsupported(__func__, __LINE__);                                                          \
        return static_cast<default_ret>(0);                                                                  \
    }
#define CLI_DEFAULT_SPECIAL(name, params, default_ret) /* written out below */

/* The public name aliases the default until this library builds the command strongly. */
#define CLI_ALIAS_0(name, ret, params) ret name params __attribute__((weak, alias("__" #name)));
#define CLI_ALIAS_1(name, ret, params)

#define CLI_COMMAND(family, name, owner, built, ret, params, default_ret, default_body)                      \
    CLI_DEFAULT_##default_body(name, params, default_ret) CLI_ALIAS_##built(name, ret, params)
#include "clidriver/commands.def"

/* ---- Defaults that answer with fixed values --------------------------------------------------- */

/* NAND until the platform says otherwise; like the camera's own default, the pointer is trusted. */
uint32_t __CLI_GetFlashType(uint32_t *pulType)
{
    CLI_INFO("defautl set flash type: nand"); /* spelt as operators' logs have always shown it */
    *pulType = 0;
    return 0;
}

/* Two alarm inputs and one output. */
uint32_t __CLI_GetAlarmPortNum(uint32_t *pulIn, uint32_t *pulOut)
{
    if (pulIn == nullptr || pulOut == nullptr) {
        CLI_INFO("NULL alm in/out num pointer");
        return 1;
    }
    *pulIn = 2;
    *pulOut = 1;
    return 0;
}

/* Boards map to slots one to one; no camera of this family overrides it. A shell that passes no
 * result word gets nothing written rather than a crash inside its own process. */
uint32_t __CLI_HeatCtrlBoardToSlot(uint32_t ulBoard, uint32_t ulSlot, uint32_t *pulOut)
{
    if (pulOut != nullptr)
        *pulOut = ulSlot;
    return 0;
}

/* Nothing to say and nothing to return. */
void __CLI_GetSysEmmcDiskNum(void) {}

/* ---- Strong here ----------------------------------------------------------------------------- */

/* The shell calls this once at start-up; this library needs no platform set-up. */
int32_t CLI_PlatformInit(void)
{
    return 0;
}
