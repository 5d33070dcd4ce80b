#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

// Process-wide state shared by the reaper thread and the request paths.
// gReaperMutex guards the other g- variables below and is the outermost
// lock of task management (then the stopped-list mutex, then one table
// mutex, then one record mutex). gReaperThread is never detached: a process
// that exits while the reaper runs ends through its destructor.
enum ReaperState : int32_t {
    REAPER_STATE_PURGE = 1,
    REAPER_STATE_WAIT = 2,
    REAPER_STATE_EXIT = 3,
};

extern std::thread gReaperThread;
extern std::mutex gReaperMutex;
extern std::condition_variable gReaperCondition;
extern int32_t gReaperState;
extern uint8_t gPurgeInProgress;
// Purges finished and the monotonic second the last one ended (0: none yet),
// for diagnostics; guarded by gReaperMutex like the rest.
extern uint64_t gPurgeCount;
extern int64_t gLastPurgeTime;

// The short operations on that state. The reaper and the request paths wait
// on the same condition variable, so every notification wakes all waiters.
class ZelReaperSync {
public:
    // Returns once no purge runs. A purge's end is not signalled: a caller that
    // arrives during one stays blocked until the next notification.
    static void waitForPurgeEnd();
    // Stores a command word and wakes every waiter.
    static void command(int32_t state);
    // Wakes every waiter without a new command.
    static void notify();
};
