#include "peripherals/gps.h"

#include <algorithm>
#include <cstdio>
#include <optional>

#include "core/clock.h"
#include "core/hex_digit.h"

namespace sim
{

namespace
{

// Talkers of satellite-system sentences, the ones a receiver renames when its systems change.
// Proprietary sentences ($P...) and other instruments' talkers keep theirs.
constexpr const char *kSystemTalkers[] = {"GP", "GL", "GA", "GB", "BD", "GN", "GQ", "GI"};

// $PMTK packet types the receiver acts on, and its acknowledgement.
constexpr int kPmtkTest = 0;
constexpr int kPmtkSearchMode = 353;
constexpr const char *kPmtkAck = "$PMTK001";

// PMTK001 flags.
constexpr int kAckInvalid = 0;
constexpr int kAckUnsupported = 1;
constexpr int kAckFailed = 2;
constexpr int kAckDone = 3;

// A line the product sends longer than this is not a command; only its end is kept.
constexpr size_t kLongestCommand = 4096;

bool system_talker(const std::string &sentence)
{
    if (sentence.size() < 6 || sentence[0] != '$')
        return false;
    for (const char *talker : kSystemTalkers)
        if (sentence.compare(1, 2, talker) == 0)
            return true;
    return false;
}

// The checksum written after the '*' of `sentence`, if it is one or two hex digits ending the line.
std::optional<uint8_t> written_checksum(const std::string &sentence, size_t star)
{
    const size_t digits = sentence.size() - star - 1;
    if (digits < 1 || digits > 2)
        return std::nullopt;
    int value = 0;
    for (size_t at = star + 1; at < sentence.size(); ++at) {
        const int digit = hex_digit(sentence[at]);
        if (digit < 0)
            return std::nullopt;
        value = value * 16 + digit;
    }
    return static_cast<uint8_t>(value);
}

// Where a UART at the wrong speed starts reading its wrong bits.
constexpr uint32_t kMismatchSeed = 0x9E3779B9u;

std::vector<uint8_t> as_bytes(const std::string &text)
{
    return std::vector<uint8_t>(text.begin(), text.end());
}

} // namespace

const Framing GpsPeer::kFraming = {"the GPS receiver", spoil_nmea_checksum};

void spoil_nmea_checksum(std::vector<uint8_t> &sentence)
{
    const auto star = std::find(sentence.rbegin(), sentence.rend(), '*');
    if (star == sentence.rend())
        return;
    const size_t at = static_cast<size_t>(sentence.rend() - star); // the first digit
    if (at + 2 > sentence.size() || hex_digit(static_cast<char>(sentence[at])) < 0 ||
        hex_digit(static_cast<char>(sentence[at + 1])) < 0)
        return;
    const int written =
        hex_digit(static_cast<char>(sentence[at])) * 16 + hex_digit(static_cast<char>(sentence[at + 1]));
    char digits[3];
    snprintf(digits, sizeof digits, "%02X", (written + 1) & 0xFF);
    sentence[at] = static_cast<uint8_t>(digits[0]);
    sentence[at + 1] = static_cast<uint8_t>(digits[1]);
}

GpsPeer::GpsPeer(GpsSetup setup) : MessagePeer(kFraming), setup_(std::move(setup)), mismatch_(kMismatchSeed)
{
    setup_.chunk = std::max<size_t>(setup_.chunk, 1);
    if (setup_.baud == 0)
        setup_.baud = 9600;
    piece_time_ = static_cast<Nanos>(setup_.chunk) * byte_time(setup_.baud);
    // The receiver has talked since the camera booted; what it said before this line was first
    // opened went nowhere. Its sentences start with the first piece after that.
    next_piece_ = clock().now() / piece_time_ + 1;
}

std::vector<std::string> GpsPeer::read_log(const std::string &text)
{
    std::vector<std::string> sentences;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        std::string line = text.substr(start, end - start);
        while (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (!line.empty() && line[0] != '#')
            sentences.push_back(line);
        start = end + 1;
    }
    return sentences;
}

uint8_t GpsPeer::checksum(const std::string &sentence)
{
    uint8_t sum = 0;
    for (size_t at = !sentence.empty() && sentence[0] == '$' ? 1 : 0;
         at < sentence.size() && sentence[at] != '*'; ++at)
        sum ^= static_cast<uint8_t>(sentence[at]);
    return sum;
}

std::string GpsPeer::with_checksum(const std::string &body)
{
    char digits[4];
    snprintf(digits, sizeof digits, "%02X", checksum(body));
    return body + "*" + digits;
}

// A sentence as it goes out now: under the talker of the commanded systems, its checksum
// recomputed when it was right (a sentence recorded with a wrong one keeps its wrong one).
std::string GpsPeer::dress(const std::string &sentence) const
{
    if (!setup_.follow_mode || talker_.empty() || !system_talker(sentence))
        return sentence;
    std::string renamed = sentence;
    renamed.replace(1, 2, talker_);
    const size_t star = sentence.find('*');
    if (star == std::string::npos)
        return renamed;
    const auto written = written_checksum(sentence, star);
    if (!written || *written != checksum(sentence))
        return renamed;
    return with_checksum(renamed.substr(0, star));
}

// Fills the text of the coming pieces with whole sentences, acknowledgements first, each handed
// to the misbehaviour layer as one message. When the layer lets nothing through (a silent or
// noisy receiver) there is nothing to say for now.
void GpsPeer::compose(Nanos due)
{
    while (pending_.size() < setup_.chunk) {
        std::string sentence;
        if (!acks_.empty()) {
            sentence = acks_.front();
            acks_.pop_front();
        } else {
            const bool cold = due < setup_.cold_start;
            const std::vector<std::string> &source = cold ? setup_.cold_sentences : setup_.sentences;
            if (source.empty())
                return;
            size_t &next = cold ? next_cold_ : next_sentence_;
            sentence = dress(source[next % source.size()]);
            next = (next + 1) % source.size();
        }
        const std::vector<uint8_t> passed = pass_message(as_bytes(sentence + "\r\n"));
        if (passed.empty())
            return;
        pending_.append(passed.begin(), passed.end());
    }
}

// Composes the next piece on the grid, when there is anything to say.
void GpsPeer::schedule()
{
    if (ahead_)
        return;
    Nanos due = next_piece_ * piece_time_;
    if (due < setup_.cold_start && setup_.cold_sentences.empty()) {
        // A cold receiver without a word to say: the first piece is the first after its start.
        next_piece_ = (setup_.cold_start + piece_time_ - 1) / piece_time_;
        due = next_piece_ * piece_time_;
    }
    compose(due);
    if (pending_.empty())
        return; // nothing to say until the product asks something
    const size_t count = std::min(setup_.chunk, pending_.size());
    ahead_ = Piece{due, std::vector<uint8_t>(pending_.begin(), pending_.begin() + static_cast<long>(count))};
    pending_.erase(0, count);
    ++next_piece_;
}

Nanos GpsPeer::next_action()
{
    schedule();
    return ahead_ ? ahead_->due : kNever;
}

// Hands over the piece that is due and composes the next, so that what is heard meanwhile goes
// after the sentences already composed, as in a real receiver's output buffer.
void GpsPeer::act(Nanos now)
{
    if (ahead_ && ahead_->due <= now) {
        send_bytes(ahead_->due, std::move(ahead_->bytes));
        ahead_.reset();
    }
    next_piece_ = std::max(next_piece_, now / piece_time_ + 1);
    schedule();
}

// A UART set to another speed samples the wrong bits: what the product reads bears no relation
// to what was sent, and is mostly 8-bit noise.
void GpsPeer::on_the_wire(std::vector<uint8_t> &bytes)
{
    if (line_ == nullptr || line_->baud() == setup_.baud)
        return;
    for (uint8_t &byte : bytes)
        byte = static_cast<uint8_t>((byte ^ mismatch_.next()) | 0x80);
}

void GpsPeer::on_receive(const std::vector<uint8_t> &bytes, Nanos now)
{
    for (const uint8_t byte : bytes) {
        if (byte != '\n') {
            partial_ += static_cast<char>(byte);
            if (partial_.size() > kLongestCommand)
                partial_.erase(0, partial_.size() - kLongestCommand);
            continue;
        }
        while (!partial_.empty() && partial_.back() == '\r')
            partial_.pop_back();
        heard_.push_back(partial_);
        command(partial_);
        partial_.clear();
    }
    if (!acks_.empty() && !ahead_) {
        next_piece_ = std::max(next_piece_, now / piece_time_ + 1);
        schedule();
    }
}

// What a MediaTek receiver does with a line: $PMTK packets are checked and acknowledged, the
// search mode is taken; anything else is not for it.
void GpsPeer::command(const std::string &line)
{
    if (line.compare(0, 5, "$PMTK") != 0)
        return;
    size_t at = 5;
    int packet = 0;
    while (at < line.size() && line[at] >= '0' && line[at] <= '9' && at < 8)
        packet = packet * 10 + (line[at++] - '0');
    if (at == 5)
        return; // no packet number: not a command it can even refuse
    const size_t star = line.find('*');
    const auto written = star == std::string::npos ? std::nullopt : written_checksum(line, star);
    if (!written || *written != checksum(line)) {
        acknowledge(packet, kAckInvalid);
        return;
    }
    if (packet == kPmtkTest) {
        acknowledge(packet, star == at ? kAckDone : kAckInvalid);
        return;
    }
    if (packet != kPmtkSearchMode) {
        acknowledge(packet, kAckUnsupported);
        return;
    }
    // ,GPS,GLONASS,Galileo,Galileo full,BeiDou: five flags, each 0 or 1.
    bool enabled[5] = {};
    size_t field = 0;
    for (size_t pos = at; pos < star; pos += 2) {
        if (field == 5 || line[pos] != ',' || pos + 1 >= star ||
            (line[pos + 1] != '0' && line[pos + 1] != '1')) {
            acknowledge(packet, kAckInvalid);
            return;
        }
        enabled[field++] = line[pos + 1] == '1';
    }
    if (field != 5) {
        acknowledge(packet, kAckInvalid);
        return;
    }
    const bool gps = enabled[0], glonass = enabled[1], galileo = enabled[2] || enabled[3],
               beidou = enabled[4];
    const int systems = gps + glonass + galileo + beidou;
    if (systems == 0) {
        acknowledge(packet, kAckFailed);
        return;
    }
    if (setup_.follow_mode)
        talker_ = systems > 1 ? "GN" : gps ? "GP" : glonass ? "GL" : galileo ? "GA" : "BD";
    acknowledge(packet, kAckDone);
}

void GpsPeer::acknowledge(int packet, int flag)
{
    if (!setup_.acknowledge)
        return;
    const std::string ack =
        with_checksum(std::string(kPmtkAck) + "," + std::to_string(packet) + "," + std::to_string(flag));
    acks_.push_back(ack);
    acknowledged_.push_back(ack);
}

} // namespace sim
