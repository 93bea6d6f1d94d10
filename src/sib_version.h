/*
 * The control board's version text, without any I/O: the PCB revision and the MCU version that
 * the version command shows, taken out of the text the board library writes.
 *
 * The board reports major "." minor followed by its PCB revision, which starts with an upper-case
 * letter: "1.3A" is MCU firmware 1.3 on PCB revision A, and the operator reads it as PCB "A" and
 * MCU "13" (the dot dropped). "2.10B" reads PCB "B", MCU "210".
 *
 * The rules are those of the two scans the command has always used, bounded to the caller's
 * areas instead of running past them:
 *
 *   PCB  "%*[^A-Z]%s"      skip what is not an upper-case letter (at least one character), then
 *                          take the rest up to white space
 *   MCU  "%[^.].%[^A-Z]"   the text before the first '.', then, one character further on (over
 *                          the major number's second character, so that a one-digit major
 *                          loses only the dot), the text after the '.' up to the first upper-case
 *                          letter
 *
 * Where a scan stops early its area keeps what was written so far: a text without an upper-case
 * letter has no PCB text, a text that starts with one has none either (the skip needs a
 * character), and a text without a '.' has only the major number as its MCU text.
 *
 * The version area is read up to its first zero byte or its end, whichever comes first: a board
 * that fills all eight bytes leaves no terminator. Each scan writes at most `ulCapacity` bytes,
 * terminator included.
 */
#ifndef CLIDRIVER_SRC_SIB_VERSION_H
#define CLIDRIVER_SRC_SIB_VERSION_H

#include <stddef.h>

/* The version area the board library fills, and the PCB and MCU texts shown from it: four
 * characters and a terminator each. */
constexpr size_t kSibVersionSize = 8;
constexpr size_t kSibPartSize = 5;

/* The PCB revision into pcPcb (ulCapacity bytes, terminated when anything is written). Nothing
 * is written when the scan finds no revision; the caller zeroes the area first. */
void cli_sib_pcb_text(const char *pcVersion, size_t ulLength, char *pcPcb, size_t ulCapacity);

/* The MCU version into pcMcu (ulCapacity bytes): the major number at offset 0, then the minor
 * number from offset 1, each terminated. Nothing is written when the text starts with '.' or is
 * empty; the caller zeroes the area first. */
void cli_sib_mcu_text(const char *pcVersion, size_t ulLength, char *pcMcu, size_t ulCapacity);

#endif /* CLIDRIVER_SRC_SIB_VERSION_H */
