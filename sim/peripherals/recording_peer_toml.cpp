#include "peripherals/recording_peer_toml.h"

#include "peripherals/recording_peer.h"

namespace sim
{

MakePeer load_recording_peer(const Section &port)
{
    port.only({"peer", "log", "absent", "open_errno", "opens"});
    const auto text = port.file_text("log");
    if (!text)
        port.fail("log", "a recorded port needs its log (the file the recording wrote beside the scenario)");
    PortLog log = read_port_log(*text);
    if (!log.error.empty())
        port.fail("log", "the port log " + log.error);
    // The table's path is "ports./dev/ttyS1": the port's own path is what departures name.
    std::string path = port.path();
    if (path.rfind("ports.", 0) == 0)
        path.erase(0, 6);
    return [=]() -> std::unique_ptr<Peer> { return std::make_unique<RecordingPeer>(path, log); };
}

} // namespace sim
