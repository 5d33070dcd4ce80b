#pragma once

#include <cstddef>

#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

namespace android {

// The process's binder state. On the host it owns the process's endpoint: a
// listening Unix socket under $ZELD_ROOT/dev/binder/, the table of local
// objects exported to other processes, the proxies of remote objects, the
// connections to peers and the binder thread pool.
class ProcessState : public virtual RefBase {
public:
    // The process-wide instance; created on first use and never destroyed.
    static sp<ProcessState> self();

    // Spawns the pool's first thread (once). More threads are spawned on
    // demand while every pool thread is busy, up to the maximum.
    void startThreadPool();
    // Threads spawned on demand, besides those that join with isMain
    // (default 15). Returns BAD_VALUE for 0.
    status_t setThreadPoolMaxThreadCount(size_t maxThreads);
    size_t getThreadPoolMaxThreadCount() const;
    void spawnPooledThread(bool isMain);

private:
    ProcessState();
    ~ProcessState() override;
};

}  // namespace android
