#include "ZelTask.h"

#include <utility>

#include "ZelLog.h"
#include "ZelTime.h"
#include "ZelToken.h"

namespace {
constexpr const char* kProcessStartTaskId = "START_PROCESS";
}  // namespace

std::shared_ptr<ZelTask> ZelTask::create(std::string compId, std::string taskId, int32_t notify,
                                         int32_t duration, bool ensureRunTime,
                                         std::shared_ptr<ZelIpcContext> taskContext,
                                         ZelTaskCallback callback) {
    if ((taskContext == nullptr) != (callback == nullptr)) return nullptr;
    return std::make_shared<ZelTask>(std::move(compId), std::move(taskId), notify, duration,
                                     ensureRunTime, std::move(taskContext), callback);
}

ZelTask::ZelTask(std::string compId, std::string taskId, int32_t notify, int32_t duration,
                 bool ensureRunTime, std::shared_ptr<ZelIpcContext> taskContext,
                 ZelTaskCallback callback)
    : mCompId(std::move(compId)),
      mTaskId(std::move(taskId)),
      mNotify(notify),
      mTaskContext(std::move(taskContext)),
      mCallback(callback),
      mToken(ZelToken::draw()),
      mState(TASK_STATE_CREATED),
      mStartTime(0),
      mEndTime(0),
      mDuration(duration),
      mEnsureRunTime(ensureRunTime ? 1 : 0) {
    ZEL_LOGD("New task (%s,%s), notify=%d, token=%x, duration=%d , ensureRunTime=%d\n",
             mCompId.c_str(), mTaskId.c_str(), mNotify, mToken, mDuration, mEnsureRunTime);
}

void ZelTask::renewRequest(int32_t notify, std::shared_ptr<ZelIpcContext> taskContext,
                           ZelTaskCallback callback) {
    const uint32_t token = ZelToken::draw();
    std::shared_ptr<ZelIpcContext> previous;  // released after mLock
    std::lock_guard<std::mutex> guard(mLock);
    mNotify = notify;
    previous = std::exchange(mTaskContext, std::move(taskContext));
    mCallback = callback;
    mToken = token;
}

void ZelTask::resetRunTime(int32_t duration, bool ensureRunTime) {
    const int64_t now = ZelTime::monotonicSeconds();
    std::lock_guard<std::mutex> guard(mLock);
    mStartTime = now;
    mDuration = duration;
    mEnsureRunTime = ensureRunTime ? 1 : 0;
}

void ZelTask::setState(int32_t state) {
    const int64_t now = ZelTime::monotonicSeconds();
    std::lock_guard<std::mutex> guard(mLock);
    mState = state;
    if (state == TASK_STATE_COMPLETED) mEndTime = now;
    if (state == TASK_STATE_RUNNING) mStartTime = now;
}

TaskState ZelTask::getState() const {
    std::lock_guard<std::mutex> guard(mLock);
    return static_cast<TaskState>(mState);
}

uint32_t ZelTask::getToken() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mToken;
}

int64_t ZelTask::getStartTime() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mStartTime;
}

ZelTask::Fields ZelTask::fields() const {
    std::lock_guard<std::mutex> guard(mLock);
    return Fields{mCompId, mTaskId, mState, mToken, mNotify, mDuration, mEnsureRunTime, mStartTime};
}

int64_t ZelTask::getEndTime() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mEndTime;
}

int32_t ZelTask::getDuration() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mDuration;
}

int32_t ZelTask::getEnsureRunTime() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mEnsureRunTime;
}

int32_t ZelTask::getNotify() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mNotify;
}

std::shared_ptr<ZelIpcContext> ZelTask::getTaskContext() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mTaskContext;
}

ZelTaskCallback ZelTask::getCallback() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mCallback;
}

std::string ZelTask::getCompId() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mCompId;
}

std::string ZelTask::getTaskId() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mTaskId;
}

bool ZelTask::isProcessStartTask() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mTaskId == kProcessStartTaskId;
}

void ZelTask::getRunTime(int64_t& startTime, int32_t& duration) const {
    std::lock_guard<std::mutex> guard(mLock);
    startTime = mStartTime;
    duration = mDuration;
}

void ZelTask::getAnswerChannel(std::shared_ptr<ZelIpcContext>& taskContext,
                               ZelTaskCallback& callback, uint32_t& token) const {
    std::lock_guard<std::mutex> guard(mLock);
    taskContext = mTaskContext;
    callback = mCallback;
    token = mToken;
}
