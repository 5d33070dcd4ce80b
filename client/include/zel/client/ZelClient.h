#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <string>

#include "zel/client/ZelClientError.h"
#include "zel/client/ZelReply.h"

namespace zel::client {

using Millis = std::chrono::milliseconds;

struct ZelClientOptions {
    // The ServiceIdentifier value this client registers under. 0 picks one
    // no other live connection holds: kClientIdPidBase + the process id for
    // the first connection of a process (process ids are unique among running
    // processes), then the same plus a sequence number above the largest
    // process id, (n << 22), n from 1 to 255, for each further live
    // connection; an identifier is reused once its connection is gone.
    // connect() refuses a 257th live connection with kTooManyConnections.
    // A non-zero value is used as given: keeping it unique is the caller's
    // affair, within the process too.
    int32_t clientId = 0;
    // How long connect() (and a request made while the daemon restarts)
    // looks for the service.
    Millis connectTimeout{2000};
    // Follow a restart of the daemon: look the service up again and register
    // again. Requests in flight at the daemon's death fail with kDied.
    bool reconnect = true;
};

inline constexpr int32_t kClientIdPidBase = 0x40000000;

// A client of the daemon's service "com.ostrel.zeld.service.IZelBinderIPC".
//
// Replies carry no request identifier, so a client has at most one request in
// flight (calls from several threads are serialised) and tells replies apart
// by this rule: a reply { token T, canStart true, status 0 } whose T is the
// token of a start it was told to wait for (an earlier start request with
// notify that answered canStart false) is that start's deferred approval;
// any other reply answers the request in flight. Two clients must not share
// a client identifier: the last to register takes the other's replies (with
// clientId 0 every connection has its own, see ZelClientOptions).
//
// Thread-safe. Replies arrive on the process's binder thread pool, which
// connect() starts.
class ZelClient {
public:
    static std::unique_ptr<ZelClient> connect(const ZelClientOptions& options,
                                              ZelClientError* error);
    // Unregisters the callback when the daemon is still there.
    ~ZelClient();
    ZelClient(const ZelClient&) = delete;
    ZelClient& operator=(const ZelClient&) = delete;

    int32_t clientId() const;
    bool isConnected() const;

    // Function 1. With notify, a start refused now (canStart false, a token,
    // status 0) is approved later: waitForApproval(token).
    ZelResult<ZelReply> requestStart(const std::string& compId, const std::string& taskId,
                                     bool notify, int32_t durationMs, Millis timeout);
    std::future<ZelResult<ZelReply>> requestStartAsync(const std::string& compId,
                                                       const std::string& taskId, bool notify,
                                                       int32_t durationMs, Millis timeout);
    // Function 2: the task has started, quoting the token of its start grant.
    ZelResult<ZelReply> reportStarted(const std::string& compId, const std::string& taskId,
                                      int32_t token, int32_t durationMs, Millis timeout);
    // Function 3. The daemon neither uses nor checks the token.
    ZelResult<ZelReply> reportCompleted(const std::string& compId, const std::string& taskId,
                                        int32_t token, Millis timeout);
    // Any function ID and raw fields: waits for a reply like the calls above
    // (a request the daemon does not answer times out).
    ZelResult<ZelReply> sendRequest(int32_t functionId, const std::string& compId,
                                    const std::string& taskId, int32_t token, bool notify,
                                    int32_t durationMs, Millis timeout);

    // The deferred approval of a start answered canStart false with `token`.
    ZelResult<ZelReply> waitForApproval(int32_t token, Millis timeout);
    // Called on a binder thread for every deferred approval, once installed.
    void setApprovalListener(std::function<void(const ZelReply&)> listener);

    class Impl;

private:
    explicit ZelClient(std::shared_ptr<Impl> impl);
    std::shared_ptr<Impl> mImpl;
};

}  // namespace zel::client
