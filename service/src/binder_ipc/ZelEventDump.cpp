#include "ZelEventDump.h"

#include "ZelDumpFormat.h"

using namespace ZelDumpFormat;

namespace ZelEventDump {

std::string text(const ZelEventState& state) {
    std::string out = format("participants: %zu%s\n", state.participants.size(),
                             state.localDelivery ? " (and 1, in-process)" : "");
    if (!state.participants.empty()) out += "  " + joined(state.participants, " ") + "\n";
    out += format("subscriptions: %zu\n", state.subscriptions.size());
    for (const ZelEventState::Subscription& s : state.subscriptions) {
        out += format("  publisher=%d group=%d event=%d subscribers=%s\n", s.publisher, s.groupId,
                      s.eventId, joined(s.subscribers, ",").c_str());
    }
    return out;
}

std::string json(const ZelEventState& state) {
    return jsonObject([&state](Writer& writer) {
        ids(writer, "participants", state.participants);
        writer.Key("localDelivery");
        writer.Bool(state.localDelivery);
        writer.Key("subscriptions");
        writer.StartArray();
        for (const ZelEventState::Subscription& s : state.subscriptions) {
            writer.StartObject();
            number(writer, "publisher", s.publisher);
            number(writer, "groupId", s.groupId);
            number(writer, "eventId", s.eventId);
            ids(writer, "subscribers", s.subscribers);
            writer.EndObject();
        }
        writer.EndArray();
    });
}

}  // namespace ZelEventDump
