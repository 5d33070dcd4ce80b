#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <com/ostrel/zeld/interfaces/ZelCallbackParams.h>

#include "ZelIpcContext.h"
#include "ZelIpcServer.h"
#include "ZelTaskManager.h"

// The daemon's request handler for clients: checks each task context, turns
// the three client functions into task-manager calls and answers every
// validated request with one reply record through the IPC server. It keeps
// no per-request state and no lock: a deferred answer travels in the context
// that the task manager keeps with the task.
class ZelActivityListener {
public:
    using ZelCallbackParams = com::ostrel::zeld::interfaces::ZelCallbackParams;

    // Status codes of the listener's own (the task manager's pass through).
    static constexpr int kStatusSuccess = 0;
    static constexpr int kStatusInvalidParams = 1;
    static constexpr int kStatusInvalidCompId = 2;
    static constexpr int kStatusInvalidTaskId = 3;
    static constexpr int kStatusNoServer = 6;

    // Empty when there is no task manager. The server is made from the module
    // name; a listener without one is still made, and cannot start.
    static std::shared_ptr<ZelActivityListener> create(const std::string& moduleName,
                                                       std::shared_ptr<ZelTaskManager> taskManager);
    // The same with a server of the caller's (tests).
    static std::shared_ptr<ZelActivityListener> create(const std::string& moduleName,
                                                       std::shared_ptr<ZelTaskManager> taskManager,
                                                       std::shared_ptr<ZelIpcServer> server);

    ZelActivityListener(const std::string& moduleName, std::shared_ptr<ZelTaskManager> taskManager,
                        std::shared_ptr<ZelIpcServer> server);
    ZelActivityListener(const ZelActivityListener&) = delete;
    ZelActivityListener& operator=(const ZelActivityListener&) = delete;

    // Installs the request handler and starts the server; true only when the
    // server's start returned 1, which serving never does (deliberate).
    bool start();
    bool stop();

    // The request handler: 1 without a reply for an unsupported function.
    int processAsyncFunction(std::shared_ptr<ZelIpcContext> context, int functionId,
                             const void* data);
    int processTaskStartRequest(std::shared_ptr<ZelIpcContext> context, const void* data);
    int processTaskStarted(std::shared_ptr<ZelIpcContext> context, const void* data);
    int processTaskCompleted(std::shared_ptr<ZelIpcContext> context, const void* data);
    // 0 when both identifiers are given; tested by their first byte.
    int validateParams(const void* data);

    // The answer function handed to the task manager with a start request.
    static bool onTaskStartApproved(std::shared_ptr<ZelIpcContext> context, uint32_t token);
    // 0 sent, 1 not sent, 8 not serialisable, 6 no server in the context.
    static int sendReply(const std::shared_ptr<ZelIpcContext>& context,
                         const ZelCallbackParams& reply);

    const std::shared_ptr<ZelIpcServer>& getServer() const { return mServer; }

private:
    std::shared_ptr<ZelTaskManager> mTaskManager;
    const std::string mModuleName;  // kept from construction, not used afterwards
    std::shared_ptr<ZelIpcServer> mServer;
};
