#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include <binder/Parcel.h>

#include "ZelSocket.h"
#include "zel/binder/ZelWireFrame.h"

namespace zel::binder {

class ZelPeer;

// What a peer (the connections to one other process) needs of the runtime
// of its own process; the runtime implements it.
class ZelPeerHost {
public:
    // Where endpoints listen, the name this process says HELLO with, and how
    // long a peer may take none of what waits for it.
    struct Settings {
        const ZelSocketDir& dir;
        const std::string& self;
        std::chrono::milliseconds sendTimeout;
    };
    virtual Settings peerSettings() const = 0;

    // Parcel <-> frame: local objects are exported to `to`; references
    // arriving from `from` become local objects or proxies.
    [[nodiscard]] virtual android::status_t flatten(const android::Parcel& parcel, const std::string& to,
                                                    ZelFrame* frame) = 0;
    virtual void unflatten(ZelFrame&& frame, const std::string& from, android::Parcel* parcel) = 0;

    // Watches the peer's primary connection for hang-up; armPeer re-arms
    // that watch, also for room while bytes wait on it (with the send
    // deadline by which some of them must have gone).
    virtual void watchPeer(const std::shared_ptr<ZelPeer>& peer, int fd) = 0;
    virtual void armPeer(uint64_t peerId, int fd, bool writable, std::chrono::steady_clock::time_point deadline) = 0;
    // True while pool threads send what waits on primary connections.
    virtual bool poolServing() const = 0;
    // The peer's process is gone (or its connection broke): its proxies die.
    virtual void onPeerDead(const std::shared_ptr<ZelPeer>& peer) = 0;

protected:
    ~ZelPeerHost() = default;
};

}  // namespace zel::binder
