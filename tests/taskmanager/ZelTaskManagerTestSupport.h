#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <cutils/properties.h>
#include <log/log.h>
#include <unistd.h>

#include "zel/ZelHostLog.h"

#include "ZelRecordingEventDispatcher.h"
#include "ZelTaskManager.h"
#include "ZelTestFiles.h"
#include "ZelTestRoot.h"
#include "ZelTime.h"

// The policy of the scenarios and of the C++ task-manager tests.
inline const std::string kTaskManagerPolicy = zelTestDataPath(ZELD_TASKMANAGER_SCENARIOS "/tasks.json");

// The monotonic clock as the tests set it, in whole seconds; starts at 1000.
class ZelFakeClock {
public:
    ZelFakeClock() {
        set(1000);
        ZelTime::setMonotonicSource(&nanos);
    }
    ~ZelFakeClock() { ZelTime::setMonotonicSource(nullptr); }
    static void set(int64_t seconds) { sNanos.store(seconds * 1000000000LL); }
    static void advance(int64_t seconds) { sNanos.fetch_add(seconds * 1000000000LL); }

private:
    static int64_t nanos() { return sNanos.load(); }
    static inline std::atomic<int64_t> sNanos{0};
};

// Deferred answers, as the requester's answer function receives them.
class ZelApprovalRecorder {
public:
    struct Approval {
        std::shared_ptr<ZelIpcContext> context;
        uint32_t token;
    };
    static bool onApproved(std::shared_ptr<ZelIpcContext> context, uint32_t token) {
        std::lock_guard<std::mutex> guard(sLock);
        sApprovals.push_back({std::move(context), token});
        return true;
    }
    static std::vector<Approval> approvals() {
        std::lock_guard<std::mutex> guard(sLock);
        return sApprovals;
    }

private:
    static inline std::mutex sLock;
    static inline std::vector<Approval> sApprovals;
};

// The manager only stores and hands back a requester's context, so an opaque
// non-null pointer stands for one.
inline std::shared_ptr<ZelIpcContext> makeTestContext() {
    auto owner = std::make_shared<int>(0);
    return std::shared_ptr<ZelIpcContext>(owner, reinterpret_cast<ZelIpcContext*>(owner.get()));
}

// A manager built as the daemon's create() does, without starting the reaper:
// the policy file is copied into `root`.
inline std::shared_ptr<ZelTaskManager> makeTestManager(
        const ZelTestRoot& root, const std::string& policyFile,
        std::shared_ptr<ZelEventDispatcherInterface> dispatcher) {
    root.writeFile("/system/etc/zel_policy.json", readZelTestFile(policyFile));
    auto engine = ZelPolicyEngine::create(root.at("/system/etc/zel_policy.json"));
    return engine ? std::make_shared<ZelTaskManager>(std::move(dispatcher), engine) : nullptr;
}

// A manager as the daemon's create() makes it, its reaper running, quiet:
// for a child process only (the reaper never ends). Exits 10 if the policy
// does not load.
inline std::shared_ptr<ZelTaskManager> createReapedManager(const ZelTestRoot& root,
                                                           std::shared_ptr<ZelEventDispatcherInterface> events) {
    zel::hostlog::setStderrMinPriority(ANDROID_LOG_SILENT);
    root.writeFile("/system/etc/zel_policy.json", readZelTestFile(kTaskManagerPolicy));
    auto manager = ZelTaskManager::create(root.at("/system/etc/zel_policy.json"), std::move(events));
    if (manager == nullptr) _exit(10);
    return manager;
}
