#pragma once

#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "ZelMetrics.h"

// Installs itself as the process's metrics observer while it lives and sums
// every recorded value per (module, metric name).
class ZelMetricsRecorder : public ZelMetricsObserver {
public:
    ZelMetricsRecorder() { setZelMetricsObserver(this); }
    ~ZelMetricsRecorder() override { setZelMetricsObserver(nullptr); }

    void onCount(const std::string& moduleName, const std::string& name, int64_t value) override {
        std::lock_guard<std::mutex> guard(mLock);
        mTotals[{moduleName, name}] += value;
    }
    // Sum of the values recorded under the name.
    int64_t total(const std::string& moduleName, const std::string& name) const {
        std::lock_guard<std::mutex> guard(mLock);
        auto it = mTotals.find({moduleName, name});
        return it == mTotals.end() ? 0 : it->second;
    }

private:
    mutable std::mutex mLock;  // guards mTotals
    std::map<std::pair<std::string, std::string>, int64_t> mTotals;
};
