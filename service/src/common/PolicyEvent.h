#pragma once

#include <cstdint>

// One event to publish when a task starts or completes. The group id is the
// low 8 bits of the 32-bit id of the document's event group.
struct PolicyEvent {
    uint8_t groupId = 0;
    int32_t eventId = 0;

    bool operator==(const PolicyEvent& other) const {
        return groupId == other.groupId && eventId == other.eventId;
    }
    bool operator!=(const PolicyEvent& other) const { return !(*this == other); }
};
