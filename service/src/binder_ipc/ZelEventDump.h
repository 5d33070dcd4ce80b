#pragma once

#include <cstdint>
#include <string>
#include <vector>

// What the event service's dump prints: a copy of its participants and
// subscriptions, taken under its lock and formatted after.
struct ZelEventState {
    struct Subscription {
        int32_t publisher;
        int32_t groupId;
        int32_t eventId;
        std::vector<int32_t> subscribers;
    };
    std::vector<int32_t> participants;  // with a registered callback
    bool localDelivery = false;         // participant 1 reached in-process
    std::vector<Subscription> subscriptions;
};

namespace ZelEventDump {

std::string text(const ZelEventState& state);
std::string json(const ZelEventState& state);

}  // namespace ZelEventDump
