#pragma once

#include <atomic>
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
    bool connected() const { return mClient != nullptr; }
    // Publishes `report` at once, and from then on every period.
    void report(const Report& report) {
        std::lock_guard<std::mutex> guard(mLock);
        mReport = report;
        mNow = true;
        mChanged.notify_all();
    }
    uint64_t published() const { return mPublished.load(); }

private:
    void run() {
        std::unique_lock<std::mutex> lock(mLock);
        mChanged.wait(lock, [this] { return mStopping || mNow; });
        while (!mStopping) {
            const Report report = mReport;
            mNow = false;
            lock.unlock();
            if (mClient != nullptr &&
                mClient->publishMemoryReport(report.status, report.value, report.criticalThreshold,
                                             report.resourceType) == zel::client::ZelClientError::kNone) {
                ++mPublished;
            }
            lock.lock();
            mChanged.wait_for(lock, mPeriod, [this] { return mStopping || mNow; });
        }
    }

    const std::chrono::milliseconds mPeriod;
    std::unique_ptr<zel::client::ZelEventClient> mClient;
    std::mutex mLock;  // guards mReport, mNow, mStopping
    std::condition_variable mChanged;
    Report mReport;
    bool mNow = false;
    bool mStopping = false;
    std::atomic<uint64_t> mPublished{0};
    std::thread mThread;
};
