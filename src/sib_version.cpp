/*
 * The control board's version text taken apart, memory only (see sib_version.h for the rules).
 */
#include "sib_version.h"

namespace
{

/* What the board library's text is made of. The C locale's classes, whatever the process's
 * locale: the board sends ASCII, and a byte above 0x7F is simply not a letter or a blank. */
bool cli_sib_is_upper(char cChar)
{
    return cChar >= 'A' && cChar <= 'Z';
}

bool cli_sib_is_blank(char cChar)
{
    return cChar == ' ' || (cChar >= '\t' && cChar <= '\r');
}

/* The version text ends at its first zero byte or at the end of the area. */
size_t cli_sib_text_length(const char *pcVersion, size_t ulLength)
{
    size_t ulEnd = 0;
    while (ulEnd < ulLength && pcVersion[ulEnd] != '\0')
        ++ulEnd;
    return ulEnd;
}

} // namespace

void cli_sib_pcb_text(const char *pcVersion, size_t ulLength, char *pcPcb, size_t ulCapacity)
{
    const size_t ulEnd = cli_sib_text_length(pcVersion, ulLength);
    size_t ulAt = 0;
    /* The skip must take at least one character: a text that starts with the revision letter
     * (or is empty) gives no PCB text. */
    while (ulAt < ulEnd && !cli_sib_is_upper(pcVersion[ulAt]))
        ++ulAt;
    if (ulAt == 0 || ulAt == ulEnd || ulCapacity == 0)
        return;
    /* The skip stopped at an upper-case letter, so there are no blanks to pass over before the
     * revision; it runs to the next blank or the end, cut to what the area holds. */
    size_t ulTaken = 0;
    while (ulAt < ulEnd && ulTaken + 1 < ulCapacity && !cli_sib_is_blank(pcVersion[ulAt]))
        pcPcb[ulTaken++] = pcVersion[ulAt++];
    pcPcb[ulTaken] = '\0';
}

void cli_sib_mcu_text(const char *pcVersion, size_t ulLength, char *pcMcu, size_t ulCapacity)
{
    const size_t ulEnd = cli_sib_text_length(pcVersion, ulLength);
    if (ulEnd == 0 || pcVersion[0] == '.' || ulCapacity == 0)
        return;

    /* The major number: at least one character, up to the '.' or what the area holds. */
    size_t ulAt = 0;
    size_t ulTaken = 0;
    while (ulAt < ulEnd && ulTaken + 1 < ulCapacity && pcVersion[ulAt] != '.')
        pcMcu[ulTaken++] = pcVersion[ulAt++];
    pcMcu[ulTaken] = '\0';

    /* The '.' must come next: a major number longer than the area leaves its rest unread here,
     * and that is not a '.', so the minor number is not taken. */
    if (ulAt == ulEnd || pcVersion[ulAt] != '.' || ulCapacity < 2)
        return;
    ++ulAt;
    if (ulAt == ulEnd || cli_sib_is_upper(pcVersion[ulAt]))
        return;

    /* The minor number from offset 1, over the major number's second character: with a one-digit
     * major this is just where the terminator stood, so the dot is dropped. */
    char *pcMinor = pcMcu + 1;
    const size_t ulMinorCapacity = ulCapacity - 1;
    ulTaken = 0;
    while (ulAt < ulEnd && ulTaken + 1 < ulMinorCapacity && !cli_sib_is_upper(pcVersion[ulAt]))
        pcMinor[ulTaken++] = pcVersion[ulAt++];
    pcMinor[ulTaken] = '\0';
}
