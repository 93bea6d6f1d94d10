#include "core/fault.h"

#include "core/journal.h"

namespace sim
{

FaultPoint &fault_point()
{
    static FaultPoint *instance = new FaultPoint;
    return *instance;
}

void FaultPoint::reset()
{
    std::lock_guard<std::mutex> hold(mutex_);
    kinds_.store(0, std::memory_order_release);
    nth_ = 0;
    mode_ = PeerMode::Silent;
    seen_.clear();
    failed_.reset();
    silent_ports_.clear();
}

void FaultPoint::arm(unsigned kinds, int nth, PeerMode mode)
{
    std::lock_guard<std::mutex> hold(mutex_);
    nth_ = nth;
    mode_ = mode;
    seen_.clear();
    failed_.reset();
    silent_ports_.clear();
    kinds_.store(kinds, std::memory_order_release);
}

void FaultPoint::disarm()
{
    kinds_.store(0, std::memory_order_release);
}

bool FaultPoint::armed() const
{
    return kinds_.load(std::memory_order_acquire) != 0;
}

bool FaultPoint::count(Fault kind, std::string what)
{
    bool fail = false;
    {
        std::lock_guard<std::mutex> hold(mutex_);
        if ((kinds_.load(std::memory_order_relaxed) & static_cast<unsigned>(kind)) == 0)
            return false;
        seen_.push_back(FaultOp{kind, what});
        fail = nth_ > 0 && static_cast<int>(seen_.size()) == nth_;
        if (fail)
            failed_ = seen_.back();
    }
    if (fail) {
        Entry entry;
        entry.kind = Kind::Note;
        entry.name = what;
        entry.text = "fault: " + what + " fails";
        journal().add(entry);
    }
    return fail;
}

FaultPoint::Message FaultPoint::peer_message(const std::string &port)
{
    {
        std::lock_guard<std::mutex> hold(mutex_);
        if (silent_ports_.count(port) != 0)
            return Message::Lose;
    }
    if (!fails(Fault::Peer, [&] { return "message to the camera on " + port; }))
        return Message::Deliver;
    std::lock_guard<std::mutex> hold(mutex_);
    if (mode_ == PeerMode::Silent) {
        silent_ports_.insert(port);
        return Message::Lose;
    }
    return Message::Garble;
}

std::vector<FaultOp> FaultPoint::seen() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return seen_;
}

std::optional<FaultOp> FaultPoint::failed() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return failed_;
}

} // namespace sim
