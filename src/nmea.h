/*
 * NMEA 0183 sentences as the GPS commands read and write them, without any I/O: splitting a
 * sentence into its comma-separated fields, the XOR checksum, finishing a command sentence with
 * it, and finding a wanted sentence in a block read off the line. The exported parsers
 * (CLI_InfoAnalyse, CLI_StringConvert) live in nmea.cpp beside these helpers; unit tests, fuzz
 * targets and benchmarks compile that file directly.
 *
 * A sentence as the receiver sends it:
 *
 *   $GPRMC,202640.000,A,4404.1306,N,12118.8515,W,0.03,225.97,130415,,,D*73<CR><LF>
 *    ^^^^^ address (talker GP, type RMC): field 0
 *          field 1, field 2, ... up to the '*'; the two hex digits after it are the checksum
 */
#ifndef CLIDRIVER_SRC_NMEA_H
#define CLIDRIVER_SRC_NMEA_H

#include <stddef.h>
#include <stdint.h>

/* The field table of one sentence: 32 fields of up to 31 characters and their terminating zero.
 * Real receivers send at most about 20 fields of at most about 12 characters; what a broken or
 * hostile receiver sends beyond the table is dropped (see cli_nmea_split). */
constexpr uint32_t kNmeaFieldCount = 32;
constexpr uint32_t kNmeaFieldSize = 32;

struct CliNmeaFields {
    char aacField[kNmeaFieldCount][kNmeaFieldSize];
};

/* Zero-fills `pstFields` and splits `pcSentence` (the text after '$') into it, up to the '*'
 * that starts the checksum or, should the sentence have none, up to the end of the text.
 * Field 0 is the address, field k the text after the k-th comma. Every character is kept as it
 * came, line breaks included, except:
 *   - a field longer than 31 characters keeps its first 31; the rest of it is dropped;
 *   - fields after the 32nd (the 32nd comma and everything after it) are dropped.
 * So every field of the table always ends in a zero, whatever the receiver sent. */
void cli_nmea_split(const char *pcSentence, CliNmeaFields *pstFields);

/* The NMEA checksum: XOR of every character after a leading '$' (from the first character when
 * there is none) up to, not including, the '*' or the end of the text. */
uint32_t cli_nmea_checksum(const char *pcSentence);

/* Writes `pcBody` (a sentence up to and including its '*') followed by its checksum in upper-case
 * hex without leading zeros and CR LF into `pcOut`, which holds `ulCapacity` bytes. Returns the
 * length written, or 0 when it would not fit (the output is then an empty text). */
uint32_t cli_nmea_command(char *pcOut, uint32_t ulCapacity, const char *pcBody);

/* The bytes that must follow a sentence found in a block for it to count: a sentence starting
 * closer than this to the end of what was received may have been cut off by the block's end. */
constexpr uint32_t kNmeaTailBytes = 128;

/* The first occurrence of `pcKey` in the zero-terminated block `pcBlock`, of which the line
 * delivered `ulLength` bytes, provided it counts: its offset must be at most ulLength - 128,
 * computed in unsigned 32-bit arithmetic, so that with fewer than 128 bytes received the
 * difference wraps and any occurrence counts. Only the first occurrence is looked at: a key found
 * too near the end is not searched for again further on. Null when there is none that counts. */
char *cli_nmea_find(char *pcBlock, uint32_t ulLength, const char *pcKey);

#endif /* CLIDRIVER_SRC_NMEA_H */
