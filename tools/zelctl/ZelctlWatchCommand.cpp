// zelctl watch: the daemon's task events as they arrive.

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>

#include "ZelDevicePath.h"
#include "ZelPolicyFile.h"
#include "ZelctlClientCommand.h"
#include "ZelctlClientCommands.h"
#include "ZelctlPolicyLoad.h"

namespace {

using zel::client::ZelClientError;

// The daemon publishes its task events as participant 1.
constexpr int32_t kDaemonPublisher = 1;
// One fixed participant: a watcher that was killed left its subscriptions
// behind, and the next one replaces them instead of adding a second receiver.
constexpr int32_t kWatchParticipantId = zel::client::kClientIdPidBase - 1;
constexpr const char* kLockPath = "/dev/zelctl-watch.lock";

int run(const std::vector<std::string>& words, std::ostream& out, std::ostream& err);

const ZelctlCommand kCommand = {
        "watch", "watch [--policy FILE] [--count N]",
        "print the daemon's task events as they arrive",
        "Subscribes to every event that the policy attaches to a task's start or\n"
        "completion (published by the daemon as participant 1) and prints each one as it\n"
        "arrives, named by its group and event and by the tasks that publish it. Runs\n"
        "until SIGINT (Ctrl-C), SIGTERM or SIGHUP, then unsubscribes.\n"
        "\n"
        "  --policy FILE   the policy that names the events (default: the device's,\n"
        "                  $ZELD_ROOT/system/etc/zel_policy.json, or\n"
        "                  $ZELD_ROOT/data/zeld/zel_policy.json when the property\n"
        "                  zeld.config.policy.override is true)\n"
        "  --count N       stop after N events (0, the default: only a signal stops it)\n"
        "\n"
        "The event service delivers one publication safely to one receiver only: a\n"
        "second delivery ends the daemon. So one watch runs per device root (a lock\n"
        "under $ZELD_ROOT/dev), it registers as participant 1073741823 (0x3fffffff)\n"
        "unless --client-id says otherwise, and no other process may subscribe to the\n"
        "task events it watches.\n"
        "With --json every event is one JSON object on its own line.\n"
        "Exit status: 0 stopped, 1 no daemon, a refused policy or another watch\n"
        "running, 2 wrong command line.\n",
        true, run};

struct EventKey {
    int32_t groupId;
    int32_t eventId;
    bool operator<(const EventKey& other) const {
        return groupId != other.groupId ? groupId < other.groupId : eventId < other.eventId;
    }
};

// What the policy says about one published event.
struct EventInfo {
    std::string group;
    std::string event;
    std::vector<std::string> tasks;  // "component/task started" or "... completed"
};

// Every event a task publishes, keyed as it travels (group id in 8 bits).
std::map<EventKey, EventInfo> publishedEvents(const ZelPolicy& policy) {
    std::map<EventKey, EventInfo> names;
    std::map<std::string, int32_t> groups(policy.eventGroups.begin(), policy.eventGroups.end());
    for (const auto& [group, groupId] : groups) {
        const auto events = policy.groupEvents.find(group);
        if (events == policy.groupEvents.end()) continue;
        std::map<std::string, int32_t> sorted(events->second.begin(), events->second.end());
        for (const auto& [event, eventId] : sorted) {
            names.emplace(EventKey{static_cast<uint8_t>(groupId), eventId}, EventInfo{group, event, {}});
        }
    }
    std::map<EventKey, EventInfo> published;
    policy.taskTable->forEach([&](const TaskKey& key, const PolicyTask& task) {
        const std::string name = key.first + "/" + key.second;
        for (const auto& [events, what] : {std::make_pair(&task.startEvents, " started"),
                                            std::make_pair(&task.stopEvents, " completed")}) {
            for (const PolicyEvent& event : *events) {
                if (event.groupId == 0 || event.eventId == 0) continue;  // never published
                const EventKey eventKey{event.groupId, event.eventId};
                EventInfo& info = published[eventKey];
                if (info.tasks.empty()) info = names[eventKey];
                info.tasks.push_back(name + what);
            }
        }
    });
    return published;
}

std::string policyPath(const ZelctlArgs& args) {
    if (args.has("--policy")) return args.value("--policy");
    return ZelPolicyFile::choose().path;
}

std::string clockTime() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char text[32];
    const size_t length = strftime(text, sizeof(text), "%H:%M:%S", &local);
    snprintf(text + length, sizeof(text) - length, ".%03ld", now.tv_nsec / 1000000);
    return text;
}

// Prints the events; called on binder threads (the output writes one line at
// a time).
class EventPrinter {
public:
    // Prints no more than `limit` events (0: no limit): more may arrive
    // before the watch stops.
    EventPrinter(ZelctlOutput& output, std::map<EventKey, EventInfo> events, uint64_t limit)
        : mOutput(output), mEvents(std::move(events)), mLimit(limit) {}

    void print(int32_t publisher, int32_t groupId, int32_t eventId,
               const std::vector<uint8_t>& payload) {
        if (mLimit != 0 && mTaken.fetch_add(1) >= mLimit) return;
        const auto it = mEvents.find(EventKey{groupId, eventId});
        const EventInfo info = it != mEvents.end() ? it->second : EventInfo{};
        int32_t first = 0;
        int32_t second = 0;
        const bool decoded = zel::client::decodeTaskEventPayload(payload, &first, &second);

        ZelctlJsonObject object;
        object.addNumber("publisher", publisher).addNumber("groupId", groupId).addNumber("eventId", eventId);
        std::string line = clockTime() + " ";
        if (!info.group.empty()) {
            object.addString("group", info.group).addString("event", info.event);
            line += info.group + "/" + info.event + " ";
        }
        line += "(group " + std::to_string(groupId) + ", event " + std::to_string(eventId) +
                ") from " + std::to_string(publisher);
        std::string tasks;
        for (size_t i = 0; i < info.tasks.size(); ++i) {
            tasks += (i == 0 ? "" : ",") + zelctlJsonString(info.tasks[i]);
            line += (i == 0 ? ": " : ", ") + info.tasks[i];
        }
        object.addRaw("tasks", "[" + tasks + "]");
        if (decoded) {
            object.addNumber("param1", first).addNumber("param2", second);
            line += "; params " + std::to_string(first) + " " + std::to_string(second);
        } else {
            line += "; payload of " + std::to_string(payload.size()) + " bytes";
        }
        mOutput.print(object, line);
        ++mDone;
    }
    // Events printed (once printing has ended, not before).
    uint64_t printed() const { return mDone.load(); }

private:
    ZelctlOutput& mOutput;
    const std::map<EventKey, EventInfo> mEvents;
    const uint64_t mLimit;
    std::atomic<uint64_t> mTaken{0};  // events taken to print, with a limit
    std::atomic<uint64_t> mDone{0};   // events printed
};

// One watch per device root: an exclusive lock on a file under it, held while
// the object lives (the kernel releases it when the process dies).
class WatchLock {
public:
    enum Result { kHeld, kTakenByAnother, kUnavailable };
    WatchLock() = default;
    WatchLock(const WatchLock&) = delete;
    WatchLock& operator=(const WatchLock&) = delete;
    ~WatchLock() {
        if (mFd >= 0) close(mFd);
    }
    Result take() {
        std::error_code ignored;
        std::filesystem::create_directories(zelDevicePath("/dev"), ignored);
        mFd = open(zelDevicePath(kLockPath).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        if (mFd < 0) return kUnavailable;
        return flock(mFd, LOCK_EX | LOCK_NB) == 0 ? kHeld : kTakenByAnother;
    }

private:
    int mFd = -1;
};

int run(const std::vector<std::string>& words, std::ostream& out, std::ostream& err) {
    ZelctlClientCommand command(kCommand, out, err);
    int32_t count = 0;
    if (!command.parse(words, {{"--policy", true}, {"--count", true}}, {}) ||
        !command.readInt32("--count", 0, &count)) {
        return kZelctlExitUsage;
    }
    if (count < 0) {
        command.refuse("--count must not be negative");
        return kZelctlExitUsage;
    }

    // Both outlive the connection, which the bounded run lets go after the
    // work: the printer receives events until then, and the lock keeps
    // another watch from registering the same participant before this one
    // has unregistered.
    WatchLock lock;
    std::unique_ptr<EventPrinter> printer;
    return command.run(
            [&] {
                const std::string path = policyPath(command.args());
                if (FILE* file = fopen(path.c_str(), "r")) {
                    fclose(file);
                } else {
                    return command.output().fail(
                            "no_policy", path + ": cannot read the policy: " + strerror(errno));
                }
                const ZelctlPolicyLoad load = ZelctlPolicyLoad::fromFile(path);
                if (!load.accepted) {
                    return command.output().fail(
                            "policy_refused", path + ": refused by the daemon's loader "
                                                     "(see: zelctl policy check " + path + ")");
                }
                const std::map<EventKey, EventInfo> events = publishedEvents(*load.policy);
                if (events.empty()) {
                    return command.output().fail("no_events",
                                                 path + ": no task publishes an event");
                }
                // The lock file lies under the root: not made under a root without a daemon.
                if (!command.reachDaemon()) return kZelctlExitFailed;
                // Before registering: a registration replaces another of the same participant.
                const WatchLock::Result locked = lock.take();
                if (locked == WatchLock::kTakenByAnother) {
                    return command.output().fail("watch_running",
                                                 "another zelctl watch runs on this device root; "
                                                 "two receivers of one event end the daemon");
                }
                if (locked == WatchLock::kUnavailable) {
                    command.output().note("cannot take the lock " + zelDevicePath(kLockPath) +
                                          ": make sure no other watch runs");
                }
                printer = std::make_unique<EventPrinter>(command.output(), events,
                                                         static_cast<uint64_t>(count));
                const int32_t participant =
                        command.clientId() != 0 ? command.clientId() : kWatchParticipantId;
                auto* const client = command.connectEvents(
                        [&printer](int32_t publisher, int32_t groupId, int32_t eventId,
                                   const std::vector<uint8_t>& payload) {
                            printer->print(publisher, groupId, eventId, payload);
                        },
                        participant, true);
                if (client == nullptr) return kZelctlExitFailed;

                command.waitingFor("subscribing to its events");
                for (const auto& [key, info] : events) {
                    // Drops what a killed watcher of the same identifier left behind.
                    (void)client->unsubscribe(kDaemonPublisher, key.groupId, key.eventId);
                    const ZelClientError error =
                            client->subscribe(kDaemonPublisher, key.groupId, key.eventId);
                    if (error != ZelClientError::kNone) return command.fail(error);
                }
                command.unbounded();
                command.output().note("watching " + std::to_string(events.size()) +
                                      " task events of " + path + " as participant " +
                                      std::to_string(participant) + "; stop with Ctrl-C");
                bool connected = true;
                uint64_t reconnections = 0;
                while (!command.waitForStop(std::chrono::milliseconds(100))) {
                    if (client->reconnections() != reconnections) {
                        reconnections = client->reconnections();
                        command.output().note("the daemon restarted: subscribed again");
                    } else if (connected && !client->isConnected()) {
                        command.output().note("the daemon is gone: waiting for it");
                    }
                    connected = client->isConnected();
                    if (count > 0 && printer->printed() >= static_cast<uint64_t>(count)) break;
                }
                // Part of the result: a subscription left behind would be a
                // second receiver once another participant subscribes.
                if (client->isConnected()) {
                    command.setDeadline(ZelctlClientCommand::Clock::now() + command.timeout());
                    command.waitingFor("unsubscribing from its events");
                    for (const auto& [key, info] : events) {
                        (void)client->unsubscribe(kDaemonPublisher, key.groupId, key.eventId);
                    }
                }
                return kZelctlExitOk;
            },
            true);
}

}  // namespace

const ZelctlCommand& zelctlWatchCommand() {
    return kCommand;
}
