#pragma once

#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "ZelMetrics.h"

// Installs itself as the process's metrics observer while it lives, sums
// every recorded value per (module, metric name) and counts the recordings.
class ZelMetricsRecorder : public ZelMetricsObserver {
public:
    ZelMetricsRecorder() { setZelMetricsObserver(this); }
    ~ZelMetricsRecorder() override { setZelMetricsObserver(nullptr); }

    void onCount(const std::string& moduleName, const std::string& name, int64_t value) override {
        std::lock_guard<std::mutex> guard(mLock);
        mTotals[{moduleName, name}] += value;
        ++mRecordings[{moduleName, name}];
    }
    // Sum of the values recorded under the name.
    int64_t total(const std::string& moduleName, const std::string& name) const {
        std::lock_guard<std::mutex> guard(mLock);
        auto it = mTotals.find({moduleName, name});
        return it == mTotals.end() ? 0 : it->second;
    }

    // How many values were recorded under the name; under any name when
    // `moduleName` is empty.
    int64_t recordings(const std::string& moduleName = "", const std::string& name = "") const {
        std::lock_guard<std::mutex> guard(mLock);
        int64_t count = 0;
        for (const auto& [key, times] : mRecordings) {
            if (moduleName.empty() || key == std::make_pair(moduleName, name)) count += times;
        }
        return count;
    }

private:
    mutable std::mutex mLock;  // guards mTotals and mRecordings
    std::map<std::pair<std::string, std::string>, int64_t> mTotals;
    std::map<std::pair<std::string, std::string>, int64_t> mRecordings;
};
