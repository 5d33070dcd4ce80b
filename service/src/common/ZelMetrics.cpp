#include "ZelMetrics.h"

#include <atomic>
#include <utility>

#include "ZelMetricsRegistry.h"

namespace {
std::atomic<ZelMetricsObserver*> gObserver{nullptr};
std::atomic<bool> gRecording{true};
}  // namespace

ZelMetrics::ZelMetrics(std::string program, std::string module)
    : programName(std::move(program)),
      moduleName(std::move(module)),
      configPath(kZelMetricsConfigPath) {}

ZelMetrics::~ZelMetrics() = default;

void ZelMetrics::addCount(const std::string& name, int64_t value) const {
    if (ZelMetricsObserver* observer = gObserver.load(std::memory_order_acquire)) {
        observer->onCount(moduleName, name, value);
    }
    if (gRecording.load(std::memory_order_relaxed)) {
        ZelMetricsRegistry::instance().record(moduleName, name, value);
    }
}

ZelMetricsFactory makeZelMetricsFactory(const std::string& moduleName) {
    return [moduleName]() { return ZelMetrics(kZelMetricsProgramName, moduleName); };
}

void setZelMetricsObserver(ZelMetricsObserver* observer) {
    gObserver.store(observer, std::memory_order_release);
}

void setZelMetricsRecording(bool recording) {
    gRecording.store(recording, std::memory_order_relaxed);
}
