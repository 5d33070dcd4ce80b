#pragma once

// The binder tests' shared device root, the test service in a peer process
// (ZelTestServiceFixture), a recording callback, and raw connections for
// playing hostile or broken peers.

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>
#include <binder/IServiceManager.h>
#include <com/ostrel/zeld/test/BnZelTestCallback.h>
#include <com/ostrel/zeld/test/IZelTestService.h>
#include <gtest/gtest.h>

#include "ZelTestProcess.h"
#include "ZelTestRoot.h"
#include "ZelTestWait.h"
#include "zel/binder/ZelWireFrame.h"

// One device root for the whole test program: the binder runtime of a
// process stays on the root it first used, so every test shares it and
// tells its services apart by name.
inline ZelTestRoot& binderTestRoot() {
    static ZelTestRoot* root = new ZelTestRoot();
    return *root;
}

// A service name unique to the running test, on the shared root.
inline std::string testServiceName() {
    binderTestRoot();
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    return std::string("zeld.test.") + info->test_suite_name() + "." + info->name();
}

inline android::sp<com::ostrel::zeld::test::IZelTestService> waitForTestService(const std::string& name) {
    android::sp<com::ostrel::zeld::test::IZelTestService> service;
    android::getService(android::String16(name.c_str()), &service);
    return service;
}

// A callback that records every value it is called with.
class ZelRecordingCallback : public com::ostrel::zeld::test::BnZelTestCallback {
public:
    android::binder::Status onValue(int32_t value) override {
        values.put(value);
        return android::binder::Status::ok();
    }
    Inbox<int32_t> values;
};

// The runtime's deadlines, shortened through their documented knobs for this
// test program and the peers it starts, so that hostile peers are cut off
// within a test's time.
inline const bool kZelShortBinderDeadlines = setenv("ZELD_BINDER_HELLO_TIMEOUT_MS", "300", 1) == 0 &&
                                              setenv("ZELD_BINDER_FRAME_TIMEOUT_MS", "1500", 1) == 0 &&
                                              setenv("ZELD_BINDER_SEND_TIMEOUT_MS", "2000", 1) == 0;

// IZelTestService::stats, by index.
enum StatIndex { kExported, kProxies, kPeers, kIncoming, kPoolThreads, kFds, kThreads, kRssKiB, kLogLines };

// Where the service `name`'s endpoint listens and the handle it is registered
// under, on the root this process runs on (a peer's is the test program's).
inline std::pair<std::string, uint32_t> serviceAddress(const std::string& name) {
    const char* root = std::getenv("ZELD_ROOT");
    const std::string binder = (root != nullptr ? std::string(root) : binderTestRoot().path()) + "/dev/binder/";
    std::ifstream registration(binder + "services/" + name);
    std::string endpoint;
    uint32_t handle = 0;
    registration >> endpoint >> handle;
    return {binder + endpoint, handle};
}

// A test service in a peer process and this process as its client.
class ZelTestServiceFixture : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NE(mService = waitForTestService(mName), nullptr); }

    std::vector<int64_t> serverStats() {
        std::vector<int64_t> stats;
        EXPECT_TRUE(mService->stats(&stats).isOk());
        return stats;
    }

    const std::string mName = testServiceName();  // before the server: it sets up the root
    ZelPeerProcess mServer{ZELD_BINDER_TEST_PEER, {"serve", mName}};
    android::sp<com::ostrel::zeld::test::IZelTestService> mService;
};

// An endpoint name of this process (the runtime accepts a HELLO only for the
// sender's own pid).
inline std::string ownEndpoint(const std::string& suffix) { return std::to_string(getpid()) + "-" + suffix; }

inline std::vector<uint8_t> encodedFrame(zel::binder::ZelFrameType type, uint32_t code, uint32_t handle,
                                         std::vector<uint8_t> payload, std::vector<zel::binder::ZelObjectRef> objects = {}) {
    std::vector<uint8_t> bytes;
    EXPECT_EQ(zel::binder::encodeZelFrame({type, code, 0, handle, std::move(payload), std::move(objects), {}}, &bytes), android::OK);
    return bytes;
}

inline std::vector<uint8_t> helloFrame(const std::string& endpoint) {
    return encodedFrame(zel::binder::ZelFrameType::HELLO, 0, 0, {endpoint.begin(), endpoint.end()});
}

// A connection made by hand to a socket path, writing raw bytes as a
// hostile or broken peer would; `sends` go out at once.
class ZelRawConnection {
public:
    explicit ZelRawConnection(const std::string& path, const std::vector<std::vector<uint8_t>>& sends = {})
        : mFd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un addr{AF_UNIX, {}};
        std::snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path.c_str());
        EXPECT_EQ(connect(mFd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0) << strerror(errno);
        for (const auto& bytes : sends) send(bytes);
    }
    // Writes all of `bytes` (a blocking stream socket takes all or fails);
    // false once the other side is gone.
    bool send(const std::vector<uint8_t>& bytes) {
        return ::send(mFd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }
    // True once the other side has closed the connection.
    bool closed() {
        uint8_t byte;
        const ssize_t n = recv(mFd.get(), &byte, 1, MSG_DONTWAIT | MSG_PEEK);
        return n == 0 || (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK);
    }
    int fd() const { return mFd.get(); }

private:
    android::base::unique_fd mFd;
};

// What became of a call sent on a raw connection: answered (its reply read
// whole, the header in `*reply`), closed unanswered (refused), or neither
// within a patience that no working service comes near.
enum class ZelAnswer { ANSWERED, CLOSED, NONE };
inline ZelAnswer answerOf(const ZelRawConnection& raw, zel::binder::ZelFrameHeader* reply = nullptr) {
    timeval patience{5, 0};
    setsockopt(raw.fd(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    uint8_t header[zel::binder::kZelFrameHeaderSize];
    zel::binder::ZelFrameHeader decoded;
    const ssize_t n = recv(raw.fd(), header, sizeof(header), MSG_WAITALL);
    if (n == 0 || (n < 0 && errno == ECONNRESET)) return ZelAnswer::CLOSED;
    if (n != static_cast<ssize_t>(sizeof(header)) || zel::binder::decodeZelFrameHeader(header, &decoded) != android::OK) {
        return ZelAnswer::NONE;
    }
    std::vector<uint8_t> body(decoded.bodySize);
    if (!body.empty() && recv(raw.fd(), body.data(), body.size(), MSG_WAITALL) != static_cast<ssize_t>(body.size())) {
        return ZelAnswer::NONE;
    }
    if (reply != nullptr) *reply = decoded;
    return ZelAnswer::ANSWERED;
}

// Opens connections to the service `name` that each say HELLO and ping it,
// until the service refuses one; the answered ones stay open in `held`.
// False when one is neither answered nor refused (or after 256).
inline bool holdUntilRefused(const std::string& name, std::vector<ZelRawConnection>* held) {
    const auto [path, handle] = serviceAddress(name);
    const std::vector<std::vector<uint8_t>> ping{
            helloFrame(ownEndpoint("held")),
            encodedFrame(zel::binder::ZelFrameType::TRANSACTION, android::IBinder::PING_TRANSACTION, handle, {})};
    while (held->size() < 256) {
        ZelRawConnection raw(path, ping);
        const ZelAnswer answer = answerOf(raw);
        if (answer != ZelAnswer::ANSWERED) return answer == ZelAnswer::CLOSED;
        held->push_back(std::move(raw));
    }
    return false;
}
