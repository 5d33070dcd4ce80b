#include "ZelMetrics.h"

#include <atomic>
#include <utility>

namespace {
std::atomic<ZelMetricsObserver*> gObserver{nullptr};
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
}

ZelMetricsFactory makeZelMetricsFactory(const std::string& moduleName) {
    return [moduleName]() { return ZelMetrics(kZelMetricsProgramName, moduleName); };
}

void setZelMetricsObserver(ZelMetricsObserver* observer) {
    gObserver.store(observer, std::memory_order_release);
}
