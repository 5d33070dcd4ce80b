#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <com/ostrel/zeld/interfaces/ZelCallbackParams.h>
#include <com/ostrel/zeld/interfaces/ZelTaskContext.h>

#include "ZelIpcContext.h"
#include "ZelIpcServer.h"
#include "ZelTaskManager.h"

// The daemon's request handler for clients: checks each task context, turns
// the three client functions into task-manager calls and answers every
// validated request with one reply record through the IPC server. It keeps
// no per-request state and no lock: a deferred answer travels in the context
// that the task manager keeps with the task.
//
// A request's data arrives untyped from the server and leaves typed: the
// handler the listener installs checks its length once and hands a
// ZelTaskContext to everything behind it; sendReply() is the one place where
// a reply record becomes bytes for the server again.
class ZelActivityListener {
public:
    using ZelCallbackParams = com::ostrel::zeld::interfaces::ZelCallbackParams;
    using ZelTaskContext = com::ostrel::zeld::interfaces::ZelTaskContext;
    // Makes the IPC server for a module name (the daemon's parts pass
    // ZelBinderIpcServer::create); may yield none.
    using ServerFactory =
            std::function<std::shared_ptr<ZelIpcServer>(const std::string& moduleName)>;

    // Status codes of the listener's own (the task manager's pass through).
    static constexpr int kStatusSuccess = 0;
    static constexpr int kStatusInvalidParams = 1;
    static constexpr int kStatusInvalidCompId = 2;
    static constexpr int kStatusInvalidTaskId = 3;
    static constexpr int kStatusNoServer = 6;

    // Empty when there is no task manager. The server is made from the module
    // name; a listener without one is still made, and cannot start.
    static std::shared_ptr<ZelActivityListener> create(const std::string& moduleName,
                                                       std::shared_ptr<ZelTaskManager> taskManager,
                                                       const ServerFactory& makeServer);

    ZelActivityListener(const std::string& moduleName, std::shared_ptr<ZelTaskManager> taskManager,
                        std::shared_ptr<ZelIpcServer> server);
    ZelActivityListener(const ZelActivityListener&) = delete;
    ZelActivityListener& operator=(const ZelActivityListener&) = delete;

    // Installs the request handler and starts the server; true only when the
    // server's start returned 1, which serving never does (deliberate).
    [[nodiscard]] bool start();
    [[nodiscard]] bool stop();

    // The request handler behind the installed one: 1 without a reply for an
    // unsupported function. `request` is null when the data was missing or
    // not one task context.
    [[nodiscard]] int processAsyncFunction(std::shared_ptr<ZelIpcContext> context, int functionId,
                                           const ZelTaskContext* request);
    [[nodiscard]] int processTaskStartRequest(std::shared_ptr<ZelIpcContext> context,
                                              const ZelTaskContext* request);
    [[nodiscard]] int processTaskStarted(std::shared_ptr<ZelIpcContext> context,
                                         const ZelTaskContext* request);
    [[nodiscard]] int processTaskCompleted(std::shared_ptr<ZelIpcContext> context,
                                           const ZelTaskContext* request);
    // 0 when both identifiers are given; tested by their first byte.
    [[nodiscard]] int validateParams(const ZelTaskContext& request);

    // The answer function handed to the task manager with a start request.
    static bool onTaskStartApproved(std::shared_ptr<ZelIpcContext> context, uint32_t token);
    // 0 sent, 1 not sent, 8 not serialisable, 6 no server in the context.
    [[nodiscard]] static int sendReply(const std::shared_ptr<ZelIpcContext>& context,
                                       const ZelCallbackParams& reply);

    const std::shared_ptr<ZelIpcServer>& getServer() const { return mServer; }

private:
    std::shared_ptr<ZelTaskManager> mTaskManager;
    const std::string mModuleName;  // kept from construction, not used afterwards
    std::shared_ptr<ZelIpcServer> mServer;
};
