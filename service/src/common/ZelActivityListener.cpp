#include "ZelActivityListener.h"

#include <chrono>
#include <string>
#include <utility>

#include "ZelLog.h"
#include "ZelMetrics.h"
#include "ZelTrace.h"

namespace {

const ZelMetricsFactory gMetricsFactory = makeZelMetricsFactory(kZelMetricsModuleActivityListener);

constexpr int kFunctionTaskStartRequest = 1;
constexpr int kFunctionTaskStarted = 2;
constexpr int kFunctionTaskCompleted = 3;

void countMetric(const std::string& name, int64_t value = 1) {
    gMetricsFactory().addCount(name, value);
}

int32_t clientOf(const std::shared_ptr<ZelIpcContext>& context) {
    return context != nullptr ? context->getClientId() : 0;
}

}  // namespace

std::shared_ptr<ZelActivityListener> ZelActivityListener::create(
        const std::string& moduleName, std::shared_ptr<ZelTaskManager> taskManager,
        const ServerFactory& makeServer) {
    ZEL_LOGD("creating ZelActivityListener");
    if (taskManager == nullptr) {
        ZEL_LOGE("Required ZelTaskManager is null");
        return nullptr;
    }
    return std::make_shared<ZelActivityListener>(moduleName, std::move(taskManager),
                                                 makeServer ? makeServer(moduleName) : nullptr);
}

ZelActivityListener::ZelActivityListener(const std::string& moduleName,
                                         std::shared_ptr<ZelTaskManager> taskManager,
                                         std::shared_ptr<ZelIpcServer> server)
    : mTaskManager(std::move(taskManager)), mModuleName(moduleName), mServer(std::move(server)) {}

bool ZelActivityListener::start() {
    if (mServer == nullptr) return false;
    // The server is owned by this listener, so the handler never outlives it.
    mServer->setServerCallback([this](std::shared_ptr<ZelIpcContext> context, int functionId,
                                      const void* data, int length) {
        // The one place where a request's data is read as a task context.
        const bool whole = data != nullptr && length == static_cast<int>(sizeof(ZelTaskContext));
        return processAsyncFunction(std::move(context), functionId,
                                    whole ? static_cast<const ZelTaskContext*>(data) : nullptr);
    });
    if (mServer->start() != 1) return false;
    ZEL_LOGD("ZelActivityListener Started");
    return true;
}

bool ZelActivityListener::stop() {
    if (mServer != nullptr && mServer->stop() != 0) {
        (void)mServer->clearServerCallback();
        ZEL_LOGI("ZelActivityListener Stopped");
        return true;
    }
    ZEL_LOGE("Error stopping IPC server");
    return false;
}

int ZelActivityListener::processAsyncFunction(std::shared_ptr<ZelIpcContext> context,
                                              int functionId, const ZelTaskContext* request) {
    const auto begin = std::chrono::steady_clock::now();
    const char* name = nullptr;
    int status = kStatusSuccess;
    switch (functionId) {
        case kFunctionTaskCompleted:
            name = "TaskCompleted";
            status = processTaskCompleted(std::move(context), request);
            break;
        case kFunctionTaskStarted:
            name = "TaskStarted";
            status = processTaskStarted(std::move(context), request);
            break;
        case kFunctionTaskStartRequest:
            name = "TaskStartRequest";
            status = processTaskStartRequest(std::move(context), request);
            break;
        default:
            ZEL_LOGE("Unsupported function ID: %d", functionId);
            return kStatusInvalidParams;
    }
    const auto elapsed = std::chrono::steady_clock::now() - begin;
    const long long millis =
            std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count() / 1000000;
    countMetric(std::string(name) + "Time", millis);
    countMetric(std::string(name) + "Count");
    ZEL_LOGD("Async request, %s: %lld ms", name, millis);
    return status;
}

int ZelActivityListener::validateParams(const ZelTaskContext& request) {
    const bool hasCompId = request.compId[0] != '\0';
    const bool hasTaskId = request.taskId[0] != '\0';
    if (hasTaskId && hasCompId) return kStatusSuccess;
    if (hasTaskId) {
        ZEL_LOGE("Invalid CompId %s", request.getCompId().c_str());
        countMetric("InvalidCompIdCount");
        return kStatusInvalidCompId;
    }
    if (hasCompId) {
        ZEL_LOGE("Invalid TaskId %s", request.getTaskId().c_str());
        countMetric("InvalidTaskIdCount");
        return kStatusInvalidTaskId;
    }
    ZEL_LOGE("Empty TaskId and CompId");
    countMetric("InvalidParamsCount");
    return kStatusInvalidParams;
}

int ZelActivityListener::processTaskStartRequest(std::shared_ptr<ZelIpcContext> context,
                                                 const ZelTaskContext* data) {
    ZEL_LOGD("ZEL Task start request");
    if (data == nullptr) {
        ZEL_LOGE("Invalid parameters");
        countMetric("InvalidParamsCount");
        return kStatusInvalidParams;
    }
    const ZelTaskContext& request = *data;
    const ZelTraceSlice served("start request", "client", clientOf(context), "component",
                               request.compId, "task", request.taskId);
    const std::string compId = request.getCompId();
    const std::string taskId = request.getTaskId();
    ZEL_LOGD("Created task context");
    ZEL_LOGD("Request to start task %s", taskId.c_str());

    ZelCallbackParams reply;
    const int invalid = validateParams(request);
    if (invalid != kStatusSuccess) {
        reply.status = invalid;
        return sendReply(context, reply);
    }
    const bool notify = request.wantsNotify();
    reply.status = mTaskManager->taskStartRequested(compId, taskId, notify, request.duration,
                                                    context, &ZelActivityListener::onTaskStartApproved,
                                                    ZelTaskManager::kClientRequestType);
    if (const std::shared_ptr<ZelTask> task = mTaskManager->getTask(compId, taskId)) {
        reply.token = static_cast<int32_t>(task->getToken());
        reply.canStart = isStartedState(task->getState());
    } else if (reply.status == kStatusSuccess && notify) {
        ZEL_LOGE("Unable to find task with compId %s, taskId %s", compId.c_str(), taskId.c_str());
        countMetric("InvalidTaskCount");
        reply.status = ZelTaskManager::kResultInvalidTask;
    }
    return sendReply(context, reply);
}

int ZelActivityListener::processTaskStarted(std::shared_ptr<ZelIpcContext> context,
                                            const ZelTaskContext* data) {
    if (data == nullptr) {
        ZEL_LOGE("asyncParams is null");
        return kStatusInvalidParams;
    }
    const ZelTaskContext& request = *data;
    const ZelTraceSlice served("started", "client", clientOf(context), "component", request.compId,
                               "task", request.taskId);
    ZelCallbackParams reply{request.token, true, validateParams(request)};
    if (reply.status == kStatusSuccess) {
        const std::string taskId = request.getTaskId();
        ZEL_LOGD("ZEL Task %s started", taskId.c_str());
        reply.status = mTaskManager->taskStarted(request.getCompId(), taskId,
                                                 static_cast<uint32_t>(request.token),
                                                 request.duration, nullptr,
                                                 ZelTaskManager::kClientRequestType, false);
        if (reply.status == kStatusSuccess) {
            ZEL_LOGD("Task %s created, token=%d", taskId.c_str(), request.token);
        }
    }
    return sendReply(context, reply);
}

int ZelActivityListener::processTaskCompleted(std::shared_ptr<ZelIpcContext> context,
                                              const ZelTaskContext* data) {
    if (data == nullptr) {
        ZEL_LOGE("asyncParams is null");
        return kStatusInvalidParams;
    }
    const ZelTaskContext& request = *data;
    const ZelTraceSlice served("completed", "client", clientOf(context), "component",
                               request.compId, "task", request.taskId);
    // Deliberate: the request's token is neither passed on nor compared.
    ZelCallbackParams reply{request.token, true, validateParams(request)};
    if (reply.status == kStatusSuccess) {
        reply.status = mTaskManager->taskCompleted(request.getCompId(), request.getTaskId());
    }
    return sendReply(context, reply);
}

bool ZelActivityListener::onTaskStartApproved(std::shared_ptr<ZelIpcContext> context,
                                              uint32_t token) {
    return sendReply(context, ZelCallbackParams{static_cast<int32_t>(token), true, 0}) == 0;
}

int ZelActivityListener::sendReply(const std::shared_ptr<ZelIpcContext>& context,
                                   const ZelCallbackParams& reply) {
    ZelIpcServer* server = context != nullptr ? context->getServer() : nullptr;
    if (server == nullptr) return kStatusNoServer;
    zelTraceInstant("reply", "token", reply.token, "canStart", reply.canStart, "status",
                    reply.status);
    // The one place where a reply record leaves typed: the server reads it back.
    return server->sendMessage(context, &reply, static_cast<int>(sizeof(reply)));
}
