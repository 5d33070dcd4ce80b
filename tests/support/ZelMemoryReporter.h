#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

#include "zel/client/ZelEventClient.h"

// The resource monitor's stand-in for tests against the real daemon: from the
// first report() on, it publishes the current report as participant 5 at once
// and then every period, as a device's monitor does (a request that arrives
// during a purge waits for the next report). Link zelclient.
class ZelMemoryReporter {
public:
    struct Report {
        uint8_t resourceType = 1;
        uint8_t status = 1;
        uint64_t value = 0;
        uint64_t criticalThreshold = 1000;
    };

    explicit ZelMemoryReporter(std::chrono::milliseconds period = std::chrono::seconds(1))
        : mPeriod(period) {
        zel::client::ZelClientOptions options;
        options.clientId = 5;
        mClient = zel::client::ZelEventClient::connect(options, nullptr, nullptr);
        mThread = std::thread([this] { run(); });
    }
    ~ZelMemoryReporter() {
        {
            std::lock_guard<std::mutex> guard(mLock);
            mStopping = true;
            mChanged.notify_all();
        }
        mThread.join();
    }
    // Publishes `report` at once, and from then on every period. Returns once
    // the daemon has handled it (publishing is a call that delivers to the
    // daemon before it returns).
    void report(const Report& report) {
        std::unique_lock<std::mutex> lock(mLock);
        mReport = report;
        mNow = true;
        const uint64_t wanted = ++mGeneration;
        mChanged.notify_all();
        mChanged.wait_for(lock, std::chrono::seconds(5), [&] { return mHandled >= wanted || mStopping; });
    }

private:
    void run() {
        std::unique_lock<std::mutex> lock(mLock);
        mChanged.wait(lock, [this] { return mStopping || mNow; });
        while (!mStopping) {
            const Report report = mReport;
            const uint64_t generation = mGeneration;
            mNow = false;
            lock.unlock();
            if (mClient != nullptr) {
                mClient->publishMemoryReport(report.status, report.value, report.criticalThreshold,
                                             report.resourceType);
            }
            lock.lock();
            mHandled = generation;
            mChanged.notify_all();
            mChanged.wait_for(lock, mPeriod, [this] { return mStopping || mNow; });
        }
    }

    const std::chrono::milliseconds mPeriod;
    std::unique_ptr<zel::client::ZelEventClient> mClient;
    std::mutex mLock;  // guards the fields below
    std::condition_variable mChanged;
    Report mReport;
    bool mNow = false;
    bool mStopping = false;
    uint64_t mGeneration = 0;  // of the last report()
    uint64_t mHandled = 0;     // generation of the last publication made
    std::thread mThread;
};
