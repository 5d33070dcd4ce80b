#pragma once

#include <cstdint>
#include <functional>
#include <string>

// Per-module metrics context. Recording is deliberately without effect: the
// shape stays so a real back end (configured by configPath) can go behind
// addCount without touching callers. Every recording makes a fresh context
// from its module's gMetricsFactory, adds one value and drops the context.
class ZelMetrics {
public:
    ZelMetrics(std::string program, std::string module);
    virtual ~ZelMetrics();

    // No effect beyond telling an installed observer (tests only).
    void addCount(const std::string& name, int64_t value) const;

    std::string programName;
    std::string moduleName;
    std::string configPath;
};

using ZelMetricsFactory = std::function<ZelMetrics()>;

// Builds a module's factory; each module keeps one as its gMetricsFactory.
ZelMetricsFactory makeZelMetricsFactory(const std::string& moduleName);

inline constexpr const char* kZelMetricsProgramName = "ZelDaemon";
inline constexpr const char* kZelMetricsConfigPath = "system/etc/ZeldHelvarConfig.json";
inline constexpr const char* kZelMetricsModuleActivityListener = "ActivityListener";
inline constexpr const char* kZelMetricsModuleTaskManager = "TaskManager";
inline constexpr const char* kZelMetricsModuleEventDispatcher = "EventDispatcher";
inline constexpr const char* kZelMetricsModuleBinderServer = "BinderServer";

// Test hook: sees every addCount of the process. Null by default; set it
// before the threads under test start and clear it after they are done.
class ZelMetricsObserver {
public:
    virtual ~ZelMetricsObserver() = default;
    virtual void onCount(const std::string& moduleName, const std::string& name,
                         int64_t value) = 0;
};
void setZelMetricsObserver(ZelMetricsObserver* observer);
