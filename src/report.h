/*
 * The four report shapes every command shares: the diagnostic line handed to the platform's print
 * sink, the console error line on stderr, the call-failure pair, and the plain stdout echo.
 *
 * A source includes this through the header of the unit it reports as: cli_libfun_unit.h for the
 * command implementations, whatever subsystem source they live in; the default set
 * (cli_weak_libfun.cpp) defines its own unit names before including this. The unit fixes the file
 * name that operators see in every line (kCliSourceFile and Cli_GetBaseName), whatever file the
 * code actually lives in.
 *
 * Every shape comes in two forms: the plain one reports under the enclosing function's name, the
 * _AS one under a name the caller gives. A procedure shared by several commands (the GPS queries'
 * listening loop, the link's receive shapes, the character-device helper) reports under the
 * command the operator called, as operators' logs have always shown it.
 *
 * Every message is a printf format with its arguments, checked by the compiler against the whole
 * line (Cli_Common_Print carries the format attribute). Message texts are written without the
 * newline that ends every diagnostic line; the macros add it.
 */
#ifndef CLIDRIVER_SRC_REPORT_H
#define CLIDRIVER_SRC_REPORT_H

#include <stdio.h>
#include <string.h>

#include "clidriver/platform.h"

/* Level words: exactly five characters, printed through "%.5s". INFO keeps its leading blank so
 * that INFO and ERROR lines line up on the console. */
#define CLI_LEVEL_INFO  " INFO"
#define CLI_LEVEL_ERROR "ERROR"

/* Date, time, microseconds, file (20 columns), function (30), line (6), level. Long function
 * names are printed whole and push the rest of the line right. */
#define CLI_DIAG_PREFIX "%.4d-%.2d-%.2d %.2d:%.2d:%.2d %.6lu %-20s@fun:%-30sline:%-6d--[%.5s]"

/* The wall clock of one diagnostic line, broken down in local time. */
struct CliStamp {
    int year;
    int month;
    int day;
    int hour;
    int minute;
    int second;
    unsigned long usec;
};

/* Reads gettimeofday and breaks its seconds down with localtime_r. */
CliStamp cli_stamp_now(void);

/* The part of a source path after its last '/', or the whole path when it has none. */
static inline const char *cli_base_name(const char *pcPath)
{
    const char *pcSlash = strrchr(pcPath, '/');
    return pcSlash != nullptr ? pcSlash + 1 : pcPath;
}

/* A diagnostic line naming an explicit function and line; evaluates to the sink's result. */
#define CLI_DIAG_AT(func, line, level, fmt, ...)                                                             \
    ({                                                                                                       \
        const CliStamp cli_stamp_ = cli_stamp_now();                                                         \
        Cli_Common_Print(CLI_DIAG_PREFIX fmt "\n", cli_stamp_.year, cli_stamp_.month, cli_stamp_.day,        \
                         cli_stamp_.hour, cli_stamp_.minute, cli_stamp_.second, cli_stamp_.usec,             \
                         Cli_GetBaseName(), func, line, level __VA_OPT__(, ) __VA_ARGS__);                   \
    })

/* Diagnostic lines reported under the function `func` (a string), at this source line. */
#define CLI_INFO_AS(func, fmt, ...)                                                                          \
    CLI_DIAG_AT(func, __LINE__, CLI_LEVEL_INFO, fmt __VA_OPT__(, ) __VA_ARGS__)
#define CLI_ERROR_AS(func, fmt, ...)                                                                         \
    CLI_DIAG_AT(func, __LINE__, CLI_LEVEL_ERROR, fmt __VA_OPT__(, ) __VA_ARGS__)

/* Console error line: the message built into the format, then the unit's full source name and
 * the function. Evaluates to fprintf's character count. */
#define CLI_CONSOLE_AS(func, fmt, ...)                                                                       \
    fprintf(stderr, "[ERROR]:" fmt "\t@[%s %s]\r\n" __VA_OPT__(, ) __VA_ARGS__, kCliSourceFile, func)

/* An ERROR diagnostic line and the console error line with the same message. */
#define CLI_FAIL_AS(func, fmt, ...)                                                                          \
    (CLI_ERROR_AS(func, fmt __VA_OPT__(, ) __VA_ARGS__), CLI_CONSOLE_AS(func, fmt __VA_OPT__(, ) __VA_ARGS__))

/* The call-failure pair: names what failed (a callee or a short reason) instead of a message.
 * Evaluates to the second fprintf's character count. */
#define CLI_CALL_FAILED_AS(func, what)                                                                       \
    (CLI_ERROR_AS(func, "Function %s call failed", what),                                                    \
     fprintf(stderr, "[%s %s]: %s call failed\r\n", kCliSourceFile, func, what))

/* The same shapes reported by the enclosing function. */
#define CLI_INFO(fmt, ...)    CLI_INFO_AS(__func__, fmt __VA_OPT__(, ) __VA_ARGS__)
#define CLI_ERROR(fmt, ...)   CLI_ERROR_AS(__func__, fmt __VA_OPT__(, ) __VA_ARGS__)
#define CLI_CONSOLE(fmt, ...) CLI_CONSOLE_AS(__func__, fmt __VA_OPT__(, ) __VA_ARGS__)
#define CLI_FAIL(fmt, ...)    CLI_FAIL_AS(__func__, fmt __VA_OPT__(, ) __VA_ARGS__)
#define CLI_CALL_FAILED(what) CLI_CALL_FAILED_AS(__func__, what)

/* Standard-output echo: a plain line ending CR LF, which the test station's terminal expects. */
#define CLI_ECHO(fmt, ...) fprintf(stdout, fmt "\r\n" __VA_OPT__(, ) __VA_ARGS__)

/* A result read from hardware: an INFO line and the stdout echo, in the same words. */
#define CLI_RESULT_AS(func, fmt, ...)                                                                        \
    (CLI_INFO_AS(func, fmt __VA_OPT__(, ) __VA_ARGS__), CLI_ECHO(fmt __VA_OPT__(, ) __VA_ARGS__))
#define CLI_RESULT(fmt, ...) CLI_RESULT_AS(__func__, fmt __VA_OPT__(, ) __VA_ARGS__)

/* ---- Failures that many commands share; each evaluates to the status word 1 ---------------- */

/* A device or file that will not open: "Open file %s error", ERROR line and console line. */
#define CLI_OPEN_FAILED_AS(func, path) (CLI_FAIL_AS(func, "Open file %s error", path), 1u)
#define CLI_OPEN_FAILED(path)          CLI_OPEN_FAILED_AS(__func__, path)

/* A driver request that failed: the ERROR line shows the request number in plain hex, the console
 * line with its 0x prefix. */
#define CLI_IOCTL_FAILED_AS(func, request)                                                                   \
    (CLI_ERROR_AS(func, "ioctl cmd[%x] failed", static_cast<unsigned>(request)),                             \
     CLI_CONSOLE_AS(func, "ioctl cmd[%#x]", static_cast<unsigned>(request)), 1u)
#define CLI_IOCTL_FAILED(request) CLI_IOCTL_FAILED_AS(__func__, request)

#endif /* CLIDRIVER_SRC_REPORT_H */
