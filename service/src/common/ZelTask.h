#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <random>
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

// A uniform draw over the closed range [a, b] by rejection: the low bits of one
// engine output, as many as the range needs, drawn again while they fall
// outside it. Tokens draw 31 bits and reject 0x7FFFFFFF, so one engine state
// gives the same tokens whatever the standard library.
class ZelTokenDistribution {
public:
    using result_type = uint32_t;

    constexpr ZelTokenDistribution(result_type a, result_type b)
        : mA(a), mB(b), mMask(maskFor(b - a)) {}

    constexpr result_type a() const { return mA; }
    constexpr result_type b() const { return mB; }
    constexpr result_type min() const { return mA; }
    constexpr result_type max() const { return mB; }

    // The engine must give 32 random bits per call (std::mt19937 does).
    template <typename Engine>
    result_type operator()(Engine& engine) const {
        static_assert(Engine::min() == 0 && Engine::max() == 0xFFFFFFFFu,
                      "one draw takes 32 random bits");
        result_type value = 0;
        do {
            value = static_cast<result_type>(engine()) & mMask;
        } while (value > mB - mA);
        return mA + value;
    }

private:
    // All ones up to the highest bit of `largest`.
    static constexpr result_type maskFor(result_type largest) {
        result_type mask = 0;
        while (mask < largest) mask = (mask << 1) | 1u;
        return mask;
    }

    result_type mA;
    result_type mB;
    result_type mMask;
};

// Token source shared by every record: seeded once from "/dev/urandom" before
// main, drawn only under gTokenLock (a leaf lock).
extern std::mt19937 gTokenEngine;
extern ZelTokenDistribution gTokenDistribution;
extern std::mutex gTokenLock;

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
    static uint32_t drawToken();

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
