#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

enum ReaperState : int32_t {
    REAPER_STATE_PURGE = 1,
    REAPER_STATE_WAIT = 2,
    REAPER_STATE_EXIT = 3,
};

// The process-wide state shared by the reaper thread and the request paths:
// the reaper thread object, the reaper mutex and condition variable, the
// command word and the purge-in-progress flag (with a purge count and the
// time of the last purge, for the dump). It lives in ZelReaperSync.cpp and is
// reached only through these functions.
//
// The reaper mutex guards all of it and is the outermost lock of task
// management (then the stopped-list mutex, then one table mutex, then one
// record mutex). The reaper and the request paths wait on the same condition
// variable, so every notification wakes all waiters.
class ZelReaperSync {
public:
    // What the dump shows, copied under the reaper mutex.
    struct State {
        int32_t command = 0;
        bool purging = false;
        uint64_t purges = 0;        // purges finished
        int64_t lastPurgeTime = 0;  // monotonic second the last one ended; 0: none yet
        int waiting = 0;            // requests waiting for a purge's end
    };

    // Returns once no purge runs. A purge's end is not signalled: a caller that
    // arrives during one stays blocked until the next notification.
    static void waitForPurgeEnd();
    // Stores a command word and wakes every waiter.
    static void command(int32_t state);
    // Stores a command word and wakes nobody.
    static void setCommand(int32_t state);
    // Wakes every waiter without a new command.
    static void notify();
    // The resource path's wake-up: when `due()`, asked under the reaper mutex,
    // is true, stores WAIT (which the waiting reaper turns into a purge) and
    // wakes every waiter.
    static void wakeForPurgeIf(const std::function<bool()>& due);
    static State state();

    // The reaper thread. Taking one while another runs terminates the process
    // (the standard thread object's assignment): one reaper per process. It is
    // never detached, so a process that exits while it runs ends through its
    // destructor.
    static void adoptThread(std::thread thread);
    static bool hasThread();
    static void joinThread();

    // The reaper's own side: holds the reaper mutex for its lifetime, except
    // while a purge runs and while it waits.
    class Reaper {
    public:
        Reaper();
        Reaper(const Reaper&) = delete;
        Reaper& operator=(const Reaper&) = delete;

        int32_t command() const;
        void setCommand(int32_t state);
        // Sets the flag, runs `purge` without the mutex, takes it back, clears
        // the flag, counts the purge and stores WAIT whatever was stored
        // meanwhile (a stop request included). Wakes nobody.
        void purge(const std::function<void()>& purge);
        // Until a notification, a spurious wake-up or the wall clock's deadline.
        void waitUntil(std::chrono::system_clock::time_point deadline);
        // Until a notification or a spurious wake-up.
        void wait();

    private:
        std::unique_lock<std::mutex> mLock;
    };
};
