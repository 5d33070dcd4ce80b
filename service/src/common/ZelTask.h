#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

// The requester's per-request context (client, callback, server). The task
// record only keeps it and hands it back to the requester's answer function;
// it never looks inside, so the type stays incomplete here.
class ZelIpcContext;

// The requester's answer function for a start decided later: called once with
// the stored context and the record's token.
using ZelTaskCallback = bool (*)(std::shared_ptr<ZelIpcContext> context, uint32_t token);

enum TaskState : int32_t {
    TASK_STATE_CREATED = 1,
    TASK_STATE_START_ALLOWED = 2,
    TASK_STATE_START_PENDING = 3,
    TASK_STATE_RUNNING = 4,
    TASK_STATE_COMPLETED = 5,
};

// A task counts as started once its start is allowed: allowed or running.
inline bool isStartedState(int32_t state) {
    return state == TASK_STATE_START_ALLOWED || state == TASK_STATE_RUNNING;
}

// The daemon's record of one task of one component. Every field is guarded by
// mLock, which is a leaf: no accessor calls out while holding it.
class ZelTask {
public:
    // The fields a diagnostic dump shows, copied under one holding.
    struct Fields {
        std::string compId;
        std::string taskId;
        int32_t state = 0;
        uint32_t token = 0;
        int32_t notify = 0;
        int32_t duration = 0;       // granted run time, ms
        int32_t ensureRunTime = 0;
        int64_t startTime = 0;      // monotonic seconds; 0 until running
    };

    // Empty when exactly one of taskContext and callback is given: a deferred
    // answer needs both or neither.
    static std::shared_ptr<ZelTask> create(std::string compId, std::string taskId,
                                           int32_t notify, int32_t duration, bool ensureRunTime,
                                           std::shared_ptr<ZelIpcContext> taskContext,
                                           ZelTaskCallback callback);

    ZelTask(std::string compId, std::string taskId, int32_t notify, int32_t duration,
            bool ensureRunTime, std::shared_ptr<ZelIpcContext> taskContext,
            ZelTaskCallback callback);
    ZelTask(const ZelTask&) = delete;
    ZelTask& operator=(const ZelTask&) = delete;

    // A new request for a known task: new answer channel and a fresh token.
    void renewRequest(int32_t notify, std::shared_ptr<ZelIpcContext> taskContext,
                      ZelTaskCallback callback);
    // Restarts the allowed run time from now.
    void resetRunTime(int32_t duration, bool ensureRunTime);
    // Stores any state; RUNNING stamps mStartTime, COMPLETED stamps mEndTime.
    void setState(int32_t state);

    TaskState getState() const;
    uint32_t getToken() const;
    int64_t getStartTime() const;
    int64_t getEndTime() const;
    int32_t getDuration() const;
    int32_t getEnsureRunTime() const;
    int32_t getNotify() const;
    std::shared_ptr<ZelIpcContext> getTaskContext() const;
    ZelTaskCallback getCallback() const;
    std::string getCompId() const;
    std::string getTaskId() const;
    bool isProcessStartTask() const;

    // mStartTime and mDuration read under one holding (run-time checks).
    void getRunTime(int64_t& startTime, int32_t& duration) const;
    Fields fields() const;
    // Everything a deferred answer needs, read under one holding.
    void getAnswerChannel(std::shared_ptr<ZelIpcContext>& taskContext, ZelTaskCallback& callback,
                          uint32_t& token) const;

private:
    std::string mCompId;
    std::string mTaskId;
    int32_t mNotify;
    std::shared_ptr<ZelIpcContext> mTaskContext;
    ZelTaskCallback mCallback;
    uint32_t mToken;
    int32_t mState;
    int64_t mStartTime;
    int64_t mEndTime;
    int32_t mDuration;
    int32_t mEnsureRunTime;
    mutable std::mutex mLock;
};
