#pragma once

#include <cstdint>
#include <functional>
#include <string>

// Per-module metrics context. Every recording makes a fresh context from its
// module's gMetricsFactory, adds one value and drops the context; the values
// go to the process's ZelMetricsRegistry (configPath is kept, not read).
class ZelMetrics {
public:
    ZelMetrics(std::string program, std::string module);
    virtual ~ZelMetrics();

    // Records into ZelMetricsRegistry and tells an installed observer (tests).
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

// Turns the registry's recording off and on (a benchmark's baseline); on by
// default.
void setZelMetricsRecording(bool recording);
