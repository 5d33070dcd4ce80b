#pragma once

// The binder tests' test service in a peer process, a recording callback,
// and raw connections for playing hostile or broken peers.

#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <fstream>
#include <string>

#include <android-base/unique_fd.h>
#include <com/ostrel/zeld/test/BnZelTestCallback.h>

#include "ZelBinderTestSupport.h"
#include "zel/binder/ZelWireFrame.h"

// The runtime's deadlines, shortened through their documented knobs for this
// test program and the peers it starts, so that hostile peers are cut off
// within a test's time.
inline const bool kZelShortBinderDeadlines = [] {
    setenv("ZELD_BINDER_HELLO_TIMEOUT_MS", "300", 1);
    setenv("ZELD_BINDER_FRAME_TIMEOUT_MS", "1500", 1);
    setenv("ZELD_BINDER_SEND_TIMEOUT_MS", "2000", 1);
    return true;
}();

// IZelTestService::stats, by index.
enum StatIndex { kExported, kProxies, kPeers, kIncoming, kPoolThreads, kFds, kThreads, kRssKiB, kLogLines };

// Where the service `name`'s endpoint listens and the handle it is registered under.
inline std::pair<std::string, uint32_t> serviceAddress(const std::string& name) {
    std::ifstream registration(binderTestRoot().at("/dev/binder/services/" + name));
    std::string endpoint;
    uint32_t handle = 0;
    registration >> endpoint >> handle;
    return {binderTestRoot().at("/dev/binder/" + endpoint), handle};
}

// A test service in a peer process and this process as its client.
class ZelTestServiceFixture : public ::testing::Test {
protected:
    void SetUp() override {
        mService = waitForTestService(mName);
        ASSERT_NE(mService, nullptr);
    }

    std::vector<int64_t> serverStats() {
        std::vector<int64_t> stats;
        EXPECT_TRUE(mService->stats(&stats).isOk());
        return stats;
    }

    const std::string mName = testServiceName();  // before the server: it sets up the root
    ZelPeerProcess mServer{ZELD_BINDER_TEST_PEER, {"serve", mName}};
    android::sp<com::ostrel::zeld::test::IZelTestService> mService;
};

// Records every value it is called with; optionally tells when it is destroyed.
class ZelRecordingCallback : public com::ostrel::zeld::test::BnZelTestCallback {
public:
    explicit ZelRecordingCallback(std::atomic<bool>* destroyed = nullptr) : mDestroyed(destroyed) {}
    ~ZelRecordingCallback() override {
        if (mDestroyed != nullptr) *mDestroyed = true;
    }
    android::binder::Status onValue(int32_t value) override {
        values.put(value);
        return android::binder::Status::ok();
    }
    Inbox<int32_t> values;

private:
    std::atomic<bool>* mDestroyed;
};

// An endpoint name of this process (the runtime accepts a HELLO only for the
// sender's own pid).
inline std::string ownEndpoint(const std::string& suffix) { return std::to_string(getpid()) + "-" + suffix; }

inline std::vector<uint8_t> encodedFrame(zel::binder::ZelFrameType type, uint32_t code, uint32_t handle,
                                         std::vector<uint8_t> payload, std::vector<zel::binder::ZelObjectRef> objects = {}) {
    zel::binder::ZelFrame f;
    f.type = type;
    f.code = code;
    f.handle = handle;
    f.payload = std::move(payload);
    f.objects = std::move(objects);
    std::vector<uint8_t> bytes;
    EXPECT_EQ(zel::binder::encodeZelFrame(f, &bytes), android::OK);
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
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        std::snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path.c_str());
        EXPECT_EQ(connect(mFd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0) << strerror(errno);
        for (const auto& bytes : sends) send(bytes);
    }
    // Writes all of `bytes` (blocking); false once the other side is gone.
    bool send(const std::vector<uint8_t>& bytes) {
        for (size_t done = 0; done < bytes.size();) {
            const ssize_t n = ::send(mFd.get(), bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
            if (n <= 0) return false;
            done += static_cast<size_t>(n);
        }
        return true;
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
