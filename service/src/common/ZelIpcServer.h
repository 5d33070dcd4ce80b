#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class ZelIpcContext;

// The request handler a server calls for each accepted client message: the
// request's context, its function ID and its data. Zero means handled.
using ServerCallback = std::function<int(std::shared_ptr<ZelIpcContext> context, int functionId,
                                         const void* data, int length)>;

// The daemon's dump as the client service prints it: given the identifiers
// of the clients with a registered callback, the text, or one JSON document
// when `json`.
using ZelDumpFunction = std::function<std::string(const std::vector<int32_t>& clients, bool json)>;

// The server interface the activity listener uses: publish the client
// service, hand requests to the installed handler, send replies. It lies on
// the listener's side, as the event dispatcher's interface lies on the task
// manager's; the binder front end implements it.
class ZelIpcServer {
public:
    virtual ~ZelIpcServer();

    // Publishes the client service and serves.
    [[nodiscard]] virtual int start() = 0;
    // Stops handing messages to the handler.
    [[nodiscard]] virtual int stop() = 0;
    // Sends one reply record to the context's client.
    [[nodiscard]] virtual int sendMessage(std::shared_ptr<ZelIpcContext> context, const void* data,
                                          int length) = 0;

    virtual void setServerCallback(ServerCallback callback);
    // Returns 0.
    [[nodiscard]] virtual int clearServerCallback();
    // A copy, so a caller can run it while another thread replaces it.
    virtual ServerCallback getServerCallback();
    // What the published service's dump prints; a server without a dump
    // ignores it.
    virtual void setDump(ZelDumpFunction dump);

private:
    std::mutex mCallbackLock;  // a leaf: guards mServerCallback
    ServerCallback mServerCallback;
};
