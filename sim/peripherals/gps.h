// The GPS receiver on the camera's peripheral link (/dev/ttyC0 in direct mode, hub port 0x005B
// behind the hub): a MediaTek-style module that streams NMEA sentences without pause.
//
// Like a real receiver it talks whether or not anyone listens. From the camera's boot it puts its
// sentences on the line back to back at its own UART speed (about 960 bytes a second at 9600
// baud), handed over in pieces of `chunk` bytes as a UART's receive interrupts would; the port
// drops what arrives while the product has it closed, and a tcflush discards what came so far,
// so the next read gets fresh sentences. It plays a recorded log (the gpsd corpus in
// tests/data/nmea: `#` lines skipped, CR LF or LF line ends, junk lines sent as they stand) or the
// sentences a test gives, from the start again when they run out, each ended with CR LF.
//
// It answers the MediaTek sentences the camera sends: $PMTK000 (test packet) and $PMTK353
// (which satellite systems to search) with $PMTK001,<packet>,<flag>*CS acknowledgements (flag 3:
// valid and done; 2: valid but nothing to search; 1: a packet it does not support; 0: invalid,
// e.g. a wrong checksum), put on the line at the next sentence boundary. After a $PMTK353 it
// sends its sentences under the talker of the systems it was told to search (GPS only: GP,
// BeiDou only: BD, several: GN), unless told to keep the talkers of its recording.
//
// Its messages for the misbehaviour layer are its sentences and acknowledgements, each with its
// line end, in the order it composes them (silence, noise, a trickle, hang-ups and bad checksums
// come from there). Besides, it can start late (a cold receiver sends nothing, or no-fix
// sentences, for a while after boot) or run at another speed than the product set the line to,
// and then what the product reads is garbage, as on a real UART.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "core/random.h"
#include "peripherals/message_peer.h"

namespace sim
{

struct GpsSetup {
    std::vector<std::string> sentences;      // what it sends, in a loop; line ends are its own
    std::vector<std::string> cold_sentences; // sent in a loop before `cold_start` (none: silence)
    Nanos cold_start = 0;                    // simulated time after boot before the fix sentences
    unsigned baud = 9600;                    // its own UART speed
    size_t chunk = 16;                       // bytes handed over at a time
    bool follow_mode = true;                 // take the talker of the systems $PMTK353 enables
    bool acknowledge = true;                 // answer $PMTK sentences
};

class GpsPeer : public MessagePeer
{
  public:
    // A bad checksum is the two hex digits after the '*' off by one; sentences have no length.
    static const Framing kFraming;

    explicit GpsPeer(GpsSetup setup);

    // The sentences of a recorded log: comment lines (`#`) and empty lines skipped, the line end
    // (CR LF or LF) removed; every other line kept as it stands, junk included.
    static std::vector<std::string> read_log(const std::string &text);
    // The NMEA checksum of a sentence: XOR of the characters after '$' up to '*' or the end.
    static uint8_t checksum(const std::string &sentence);
    // `body` (from '$' up to and without '*') with "*HH", HH its checksum in two upper-case digits.
    static std::string with_checksum(const std::string &body);

    // Whole lines the product sent, without their line ends, in order.
    const std::vector<std::string> &heard() const { return heard_; }
    // Acknowledgements it decided on, in order (a silent receiver decides them too).
    const std::vector<std::string> &acknowledged() const { return acknowledged_; }
    // The talker it puts on its sentences now; empty: the talkers of its recording.
    const std::string &talker() const { return talker_; }
    // Time between two pieces on the line.
    Nanos piece_time() const { return piece_time_; }

  protected:
    void on_receive(const std::vector<uint8_t> &bytes, Nanos now) override;
    Nanos next_action() override;
    void act(Nanos now) override;
    void on_the_wire(std::vector<uint8_t> &bytes) override;
    unsigned uart_baud() const override { return setup_.baud; }

  private:
    struct Piece {
        Nanos due;
        std::vector<uint8_t> bytes;
    };

    void schedule();
    void compose(Nanos due);
    std::string dress(const std::string &sentence) const;
    void command(const std::string &line);
    void acknowledge(int packet, int flag);

    GpsSetup setup_;
    Nanos piece_time_;
    int64_t next_piece_;         // index of the next piece on the boot-based grid (n * piece_time_)
    std::optional<Piece> ahead_; // the next piece, composed, waiting for its time
    std::string pending_;        // composed, not yet in a piece
    size_t next_sentence_ = 0;   // in setup_.sentences
    size_t next_cold_ = 0;       // in setup_.cold_sentences
    std::deque<std::string> acks_;
    std::string talker_;
    std::string partial_; // what the product sent since its last line end
    std::vector<std::string> heard_;
    std::vector<std::string> acknowledged_;
    SeededRandom mismatch_; // what a UART at the wrong speed reads
};

// The check of an NMEA sentence (the two hex digits after its '*') off by one; a sentence
// without one is left as it is.
void spoil_nmea_checksum(std::vector<uint8_t> &sentence);

} // namespace sim
