// A complete small client of zeld: asks to run one task, waits for the
// deferred approval when the daemon refuses it for now, reports the task
// started, works, and reports it completed.
//
//   zel_example_client COMP TASK [WORK_MS]
//
// Run it beside a daemon (ZELD_ROOT names the device root on a host):
//   build/examples/client/zel_example_client systemUpdate updateCheck 500

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "zel/client/ZelClient.h"

using namespace zel::client;

namespace {

constexpr Millis kReplyTimeout{2000};
constexpr Millis kApprovalTimeout{60000};

int failed(const char* what, ZelClientError error) {
    std::fprintf(stderr, "%s: %s\n", what, toString(error));
    return 1;
}

int refused(const char* what, const ZelReply& reply) {
    std::fprintf(stderr, "%s: status %d (%s)\n", what, reply.status, statusText(reply.status));
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s COMP TASK [WORK_MS]\n", argv[0]);
        return 2;
    }
    const std::string compId = argv[1];
    const std::string taskId = argv[2];
    const int32_t workMs = argc > 3 ? std::atoi(argv[3]) : 1000;

    // Client identifier 0: one no other live connection holds (for the first
    // connection of a process 0x40000000 + its id), so no other client takes
    // our replies.
    ZelClientError error = ZelClientError::kNone;
    const auto client = ZelClient::connect(ZelClientOptions(), &error);
    if (client == nullptr) return failed("connect", error);

    // Ask with notify: if the daemon cannot allow the start now, it keeps the
    // request and approves it later (a reply with the same token).
    const auto answer = client->requestStart(compId, taskId, true, workMs, kReplyTimeout);
    if (!answer.ok()) return failed("start request", answer.error());
    if (answer->status != 0) return refused("start request", answer.value());
    ZelReply grant = answer.value();
    if (!grant.canStart) {
        std::printf("not now; waiting for the approval of token %d\n", grant.token);
        const auto approval = client->waitForApproval(grant.token, kApprovalTimeout);
        // kDied: the daemon restarted and forgot the request; ask again.
        if (!approval.ok()) return failed("approval", approval.error());
        grant = approval.value();
    }
    std::printf("may start: token %d\n", grant.token);

    // Quote the token. A task of an auto-start component is already running
    // once granted: the daemon answers status 5 (wrong state) here.
    const auto started = client->reportStarted(compId, taskId, grant.token, workMs, kReplyTimeout);
    if (!started.ok()) return failed("started report", started.error());
    if (started->status != 0 && started->status != 5) return refused("started report", started.value());

    // The daemon ends the task itself when its granted run time is over
    // (the reaper) or when memory becomes critical (preemption).
    std::this_thread::sleep_for(Millis(workMs));

    const auto completed = client->reportCompleted(compId, taskId, grant.token, kReplyTimeout);
    if (!completed.ok()) return failed("completed report", completed.error());
    // Status 5: the daemon had already ended the task and forgotten it.
    std::printf("completed: status %d (%s)\n", completed->status, statusText(completed->status));
    return 0;
}
