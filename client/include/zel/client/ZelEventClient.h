#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "zel/client/ZelClient.h"

namespace zel::client {

// A participant of the daemon's event service
// "com.ostrel.zeld.service.IZelEventManager": receives the events it
// subscribed to and publishes events of its own.
//
// The service delivers one publication safely to one subscriber only: a
// second delivery of the same publication ends the daemon (deliberate). Never
// subscribe to a key that another participant with a callback already
// receives, and never to the memory report (publisher 5, group 1, event 1),
// which the daemon itself receives.
class ZelEventClient {
public:
    using Handler = std::function<void(int32_t publisher, int32_t groupId, int32_t eventId,
                                       const std::vector<uint8_t>& payload)>;

    // Registers as participant `options.clientId` (0: an identifier of its
    // own, picked as for ZelClient; participants and request clients draw
    // from separate sets) with `handler` receiving deliveries on a binder
    // thread. After a daemon
    // restart it registers again and repeats its subscriptions.
    static std::unique_ptr<ZelEventClient> connect(const ZelClientOptions& options,
                                                   Handler handler, ZelClientError* error);
    // Unsubscribes and unregisters when the daemon is still there.
    ~ZelEventClient();
    ZelEventClient(const ZelEventClient&) = delete;
    ZelEventClient& operator=(const ZelEventClient&) = delete;

    int32_t participantId() const;
    // Registered (and, after a daemon restart, subscribed again).
    bool isConnected() const;
    // How often it has registered and subscribed again after a daemon restart.
    uint64_t reconnections() const;
    // A key this participant already receives is not subscribed again (two
    // entries would mean two deliveries). The memory report is refused with
    // kInvalidArgument: the daemon receives it.
    ZelClientError subscribe(int32_t publisher, int32_t groupId, int32_t eventId);
    ZelClientError unsubscribe(int32_t publisher, int32_t groupId, int32_t eventId);
    // Publishes as this participant.
    ZelClientError publish(int32_t groupId, int32_t eventId, const std::vector<uint8_t>& payload);
    // Publishes the resource monitor's memory report as participant 5
    // (group 1, event 1); status 4 is critical. Type 1 is memory.
    ZelClientError publishMemoryReport(uint8_t status, uint64_t value, uint64_t criticalThreshold,
                                       uint8_t resourceType = 1);

    class Impl;

private:
    explicit ZelEventClient(std::shared_ptr<Impl> impl);
    std::shared_ptr<Impl> mImpl;
};

// Decodes the payload of the daemon's task events (ZelEventParamsParcelable):
// false when it is not one.
bool decodeTaskEventPayload(const std::vector<uint8_t>& payload, int32_t* first, int32_t* second);

}  // namespace zel::client
