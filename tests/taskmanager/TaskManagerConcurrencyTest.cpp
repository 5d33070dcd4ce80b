// Request threads, the reaper and memory reports at once. Runs in a child
// process (the reaper never ends); the sanitizers stop it at the first fault.
#include <gtest/gtest.h>
#include <log/log.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "ZelTaskManagerTestSupport.h"
#include "zel/ZelHostLog.h"

// A data race must fail the test, not only print a report.
extern "C" const char* __tsan_default_options() { return "halt_on_error=1"; }

namespace {

void runRequestsReaperAndReports() {
    ZelTestRoot root;
    auto events = std::make_shared<ZelRecordingEventDispatcher>();
    auto manager = createReapedManager(root, events);

    // The resource monitor stand-in, running before the first request: a
    // request that arrives during a purge waits for the next wake-up, which
    // only reports give. Each report arrives on a thread of its own, as on a
    // binder thread; one that waits for a purge is released by a later one.
    std::atomic<bool> done{false};
    std::thread reports([&] {
        for (int sequence = 0; !done; ++sequence) {
            const uint8_t status = sequence % 4 == 0 ? 4 : 1;
            const uint64_t value = 400 + static_cast<uint64_t>(sequence % 3) * 300;
            std::thread([events, status, value] {
                events->deliverMemoryReport(1, status, value, 1000);
            }).detach();
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
        }
    });

    // Keeps the running table non-empty, so every report wakes the reaper.
    if (manager->taskStarted("sync", "alarm", 0, -1, nullptr, 2, false) != 0) _exit(11);

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(600);
    auto requester = [&](const char* compId, const char* taskId, bool notify) {
        // The results depend on the interleaving: the sanitizers judge this run.
        for (int i = 0; i < 100 || std::chrono::steady_clock::now() < deadline; ++i) {
            (void)manager->taskStartRequested(compId, taskId, notify, i % 2 == 0 ? -3 : 2000,
                                              notify ? makeTestContext() : nullptr,
                                              notify ? &ZelApprovalRecorder::onApproved : nullptr, 2);
            auto task = manager->getTask(compId, taskId);
            if (task != nullptr && task->getState() == TASK_STATE_START_ALLOWED) {
                (void)manager->taskStarted(compId, taskId, task->getToken(), 0, nullptr, 2, false);
            }
            if (i % 3 != 0) (void)manager->taskCompleted(compId, taskId);  // the rest is reaped
        }
    };
    std::vector<std::thread> requesters;
    requesters.emplace_back(requester, "sync", "index", true);
    requesters.emplace_back(requester, "sync", "upload", true);
    requesters.emplace_back(requester, "media", "scan", false);
    for (std::thread& thread : requesters) thread.join();
    done = true;
    reports.join();
    _exit(0);
}

TEST(TaskManagerConcurrencyTest, RequestsReaperAndReportsRunAtOnce) {
    EXPECT_EXIT(runRequestsReaperAndReports(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
