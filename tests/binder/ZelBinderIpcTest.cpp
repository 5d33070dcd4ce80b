// Binder semantics across real processes: a test service runs in a peer
// process (zeld_binder_test_peer serve), this process is its client.
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <com/ostrel/zeld/test/BnZelTestCallback.h>
#include <gtest/gtest.h>

#include "ZelBinderTestSupport.h"
#include "ZelPeerProcess.h"
#include "zel/binder/ZelBinderStats.h"
#include "zel/binder/ZelWireFrame.h"

using android::IBinder;
using android::IInterface;
using android::sp;
using android::wp;
using android::binder::Status;
using com::ostrel::zeld::test::IZelTestCallback;
using com::ostrel::zeld::test::IZelTestService;

namespace {

// Records every value it is called with; optionally tells when it is destroyed.
class RecordingCallback : public com::ostrel::zeld::test::BnZelTestCallback {
public:
    explicit RecordingCallback(std::atomic<bool>* destroyed = nullptr) : mDestroyed(destroyed) {}
    ~RecordingCallback() override {
        if (mDestroyed != nullptr) *mDestroyed = true;
    }
    Status onValue(int32_t value) override {
        std::lock_guard<std::mutex> guard(mLock);
        mValues.push_back(value);
        return Status::ok();
    }
    std::vector<int32_t> values() {
        std::lock_guard<std::mutex> guard(mLock);
        return mValues;
    }

private:
    std::atomic<bool>* mDestroyed;
    std::mutex mLock;
    std::vector<int32_t> mValues;
};

class DeathWatcher : public IBinder::DeathRecipient {
public:
    void binderDied(const wp<IBinder>& who) override {
        std::lock_guard<std::mutex> guard(mLock);
        mWho = who;
        mDied = true;
        mChanged.notify_all();
    }
    bool waitForDeath() {
        std::unique_lock<std::mutex> lock(mLock);
        return mChanged.wait_for(lock, std::chrono::seconds(10), [&] { return mDied; });
    }
    wp<IBinder> who() {
        std::lock_guard<std::mutex> guard(mLock);
        return mWho;
    }

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    bool mDied = false;
    wp<IBinder> mWho;
};

// Sanitizer runtimes keep freed memory (quarantine, shadow), so the
// resident-size check is left out, and they slow every process down (TSan
// also sleeps a second at the exit of a process with threads): fewer clients.
#if defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
constexpr int kChurnClients = 100;
#elif defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
constexpr int kChurnClients = 300;
#else
constexpr bool kSanitized = false;
constexpr int kChurnClients = 1000;
#endif

enum StatIndex { kExported, kProxies, kPeers, kIncoming, kPoolThreads, kFds, kThreads, kRssKiB };

class ZelBinderIpcTest : public ::testing::Test {
protected:
    void SetUp() override {
        binderTestRoot();
        mServer = std::make_unique<ZelPeerProcess>(ZELD_BINDER_TEST_PEER,
                                                   std::vector<std::string>{"serve", mName});
        mService = waitForTestService(mName);
        ASSERT_NE(mService, nullptr);
    }

    std::vector<int64_t> serverStats() {
        std::vector<int64_t> stats;
        EXPECT_TRUE(mService->stats(&stats).isOk());
        return stats;
    }

    // The server's endpoint, as its registration names it.
    std::string serverEndpoint() {
        std::ifstream in(binderTestRoot().at("/dev/binder/services/" + mName));
        std::string endpoint;
        in >> endpoint;
        return endpoint;
    }

    const std::string mName = testServiceName();
    std::unique_ptr<ZelPeerProcess> mServer;
    sp<IZelTestService> mService;
};

TEST_F(ZelBinderIpcTest, SynchronousCallsReturnRepliesAndTheCallerIdentity) {
    std::vector<uint8_t> data(200);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 7);
    std::vector<uint8_t> out;
    ASSERT_TRUE(mService->echo(data, &out).isOk());
    EXPECT_EQ(out, data);

    std::vector<int32_t> identity;
    ASSERT_TRUE(mService->callerIdentity(&identity).isOk());
    EXPECT_EQ(identity, (std::vector<int32_t>{getpid(), static_cast<int32_t>(getuid())}));
    // Outside a transaction the calling identity is this process's own.
    EXPECT_EQ(android::IPCThreadState::self()->getCallingPid(), getpid());

    EXPECT_EQ(IInterface::asBinder(mService)->pingBinder(), android::OK);
    EXPECT_EQ(IInterface::asBinder(mService)->getInterfaceDescriptor(), IZelTestService::descriptor);
}

TEST_F(ZelBinderIpcTest, OnewayCallsOfOneCallerArriveInTheOrderMade) {
    constexpr int kThreads = 4;
    constexpr int kPerThread = 500;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kPerThread; ++i) EXPECT_TRUE(mService->record(t * 10000 + i).isOk());
        });
    }
    for (auto& thread : threads) thread.join();

    std::vector<int32_t> recorded;
    ASSERT_TRUE(eventually([&] {
        return mService->recorded(&recorded).isOk() && recorded.size() == kThreads * kPerThread;
    }));
    // Each thread's calls keep their order among the others'.
    std::vector<int32_t> last(kThreads, -1);
    for (int32_t value : recorded) {
        const int t = value / 10000;
        EXPECT_EQ(value % 10000, last[t] + 1);
        last[t] = value % 10000;
    }
}

TEST_F(ZelBinderIpcTest, BinderObjectsKeepTheirIdentityInBothDirections) {
    android::ProcessState::self()->startThreadPool();
    sp<RecordingCallback> callback = new RecordingCallback();
    sp<RecordingCallback> other = new RecordingCallback();

    // Our object comes back as itself.
    sp<IBinder> back;
    const Status echoed = mService->echoBinder(IInterface::asBinder(callback), &back);
    ASSERT_TRUE(echoed.isOk()) << echoed;
    EXPECT_EQ(back, IInterface::asBinder(callback));

    // The server sees one proxy for our object, however often it arrives.
    ASSERT_TRUE(mService->setCallback(callback).isOk());
    bool same = false;
    ASSERT_TRUE(mService->isStoredCallback(IInterface::asBinder(callback), &same).isOk());
    EXPECT_TRUE(same);
    ASSERT_TRUE(mService->isStoredCallback(IInterface::asBinder(other), &same).isOk());
    EXPECT_FALSE(same);

    // And we see one proxy for the server's object.
    ASSERT_TRUE(mService->echoBinder(IInterface::asBinder(mService), &back).isOk());
    EXPECT_EQ(back, IInterface::asBinder(mService));
    EXPECT_EQ(IInterface::asBinder(waitForTestService(mName)), IInterface::asBinder(mService));
}

TEST_F(ZelBinderIpcTest, ALocalObjectLivesWhileAnotherProcessHoldsIt) {
    android::ProcessState::self()->startThreadPool();
    const size_t exportedBefore = zel::binder::zelBinderStats().exportedObjects;
    std::atomic<bool> destroyed{false};
    {
        sp<RecordingCallback> callback = new RecordingCallback(&destroyed);
        ASSERT_TRUE(mService->setCallback(callback).isOk());
    }
    // Only the server's proxy keeps it now.
    ASSERT_TRUE(mService->pingCallback(5).isOk());
    EXPECT_FALSE(destroyed);

    sp<RecordingCallback> replacement = new RecordingCallback();
    ASSERT_TRUE(mService->setCallback(replacement).isOk());
    EXPECT_TRUE(eventually([&] { return destroyed.load(); }));
    EXPECT_TRUE(eventually([&] { return zel::binder::zelBinderStats().exportedObjects == exportedBefore + 1; }));
}

TEST_F(ZelBinderIpcTest, TheServerCallsBackWhileOtherCallsAreInFlight) {
    android::ProcessState::self()->startThreadPool();
    sp<RecordingCallback> callback = new RecordingCallback();
    ASSERT_TRUE(mService->setCallback(callback).isOk());

    std::atomic<int> failures{0};
    std::vector<std::thread> callers;
    for (int t = 0; t < 4; ++t) {
        callers.emplace_back([&] {
            std::vector<uint8_t> data(200, 0x5A);
            for (int i = 0; i < 200; ++i) {
                std::vector<uint8_t> out;
                if (!mService->echo(data, &out).isOk() || out != data) failures++;
            }
        });
    }
    // Two calls that hold server threads: the pool grows past them.
    callers.emplace_back([&] { EXPECT_TRUE(mService->sleepMs(300).isOk()); });
    callers.emplace_back([&] { EXPECT_TRUE(mService->sleepMs(300).isOk()); });
    for (int i = 0; i < 200; ++i) ASSERT_TRUE(mService->pingCallback(i).isOk());
    for (auto& caller : callers) caller.join();

    EXPECT_EQ(failures, 0);
    ASSERT_TRUE(eventually([&] { return callback->values().size() == 200; }));
    std::vector<int32_t> expected(200);
    for (int i = 0; i < 200; ++i) expected[i] = i;
    EXPECT_EQ(callback->values(), expected);  // one-way calls from the server keep their order
}

TEST_F(ZelBinderIpcTest, CallsToAnExitedProcessFailWithDeadObjectAndItsDeathIsNotified) {
    android::ProcessState::self()->startThreadPool();
    const sp<IBinder> binder = IInterface::asBinder(mService);
    sp<DeathWatcher> watcher = new DeathWatcher();
    sp<DeathWatcher> unlinked = new DeathWatcher();
    ASSERT_EQ(binder->linkToDeath(watcher), android::OK);
    ASSERT_EQ(binder->linkToDeath(unlinked), android::OK);
    ASSERT_EQ(binder->unlinkToDeath(unlinked), android::OK);
    EXPECT_EQ(binder->unlinkToDeath(unlinked), android::NAME_NOT_FOUND);

    mServer->kill(SIGKILL);
    mServer->wait();
    ASSERT_TRUE(watcher->waitForDeath());
    EXPECT_EQ(watcher->who().promote(), binder);
    EXPECT_FALSE(binder->isBinderAlive());

    std::vector<uint8_t> out;
    EXPECT_EQ(mService->echo({1, 2, 3}, &out).transactionError(), android::DEAD_OBJECT);
    EXPECT_EQ(binder->pingBinder(), android::DEAD_OBJECT);
    EXPECT_EQ(binder->linkToDeath(new DeathWatcher()), android::DEAD_OBJECT);
    EXPECT_EQ(binder->unlinkToDeath(watcher), android::DEAD_OBJECT);
    // The registration of the exited process reads as absent.
    EXPECT_EQ(android::defaultServiceManager()->checkService(android::String16(mName.c_str())), nullptr);
}

TEST_F(ZelBinderIpcTest, ATransactionAboveOneMiBFails) {
    // The request parcel is the interface token plus the byte vector.
    android::Parcel probe;
    probe.writeInterfaceToken(IZelTestService::descriptor);
    probe.writeByteVector(std::vector<uint8_t>{});
    const size_t overhead = probe.dataSize();
    constexpr size_t kLimit = 1024 * 1024;

    std::vector<uint8_t> fits(kLimit - overhead, 0x11);
    std::vector<uint8_t> out;
    ASSERT_TRUE(mService->echo(fits, &out).isOk());
    EXPECT_EQ(out.size(), fits.size());

    std::vector<uint8_t> tooLarge(kLimit - overhead + 1, 0x22);
    EXPECT_EQ(mService->echo(tooLarge, &out).transactionError(), android::FAILED_TRANSACTION);
    // The connection is still good.
    EXPECT_TRUE(mService->echo({9}, &out).isOk());
}

// A raw connection to the server's endpoint, speaking the frame format by hand.
class RawConnection {
public:
    explicit RawConnection(const std::string& path) {
        mFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        std::snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path.c_str());
        mConnected = connect(mFd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0;
        timeval tv{10, 0};
        setsockopt(mFd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
    }
    ~RawConnection() { close(mFd); }
    bool connected() const { return mConnected; }
    void send(const std::vector<uint8_t>& bytes) {
        ASSERT_EQ(::send(mFd, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }
    void sendFrame(const zel::binder::ZelFrame& frame) {
        std::vector<uint8_t> bytes;
        ASSERT_EQ(zel::binder::encodeZelFrame(frame, &bytes), android::OK);
        send(bytes);
    }
    void sendHello() {
        zel::binder::ZelFrame hello;
        hello.type = zel::binder::ZelFrameType::HELLO;
        const std::string name = "1-raw";
        hello.payload.assign(name.begin(), name.end());
        sendFrame(hello);
    }
    // True when the server closed the connection: end of stream, or a reset
    // when it closed with our bytes still unread.
    bool closedByPeer() {
        uint8_t byte;
        const ssize_t n = recv(mFd, &byte, 1, 0);
        return n == 0 || (n < 0 && errno == ECONNRESET);
    }
    int fd() const { return mFd; }

private:
    int mFd;
    bool mConnected = false;
};

TEST_F(ZelBinderIpcTest, AMalformedFrameClosesOnlyItsOwnConnection) {
    const std::string path = binderTestRoot().at("/dev/binder/" + serverEndpoint());
    using zel::binder::ZelFrame;
    using zel::binder::ZelFrameType;

    {  // Garbage instead of a header.
        RawConnection raw(path);
        ASSERT_TRUE(raw.connected());
        raw.send(std::vector<uint8_t>(64, 0xAB));
        EXPECT_TRUE(raw.closedByPeer());
    }
    {  // A transaction before HELLO.
        RawConnection raw(path);
        ZelFrame frame;
        frame.type = ZelFrameType::TRANSACTION;
        frame.code = IBinder::PING_TRANSACTION;
        frame.handle = 1;
        raw.sendFrame(frame);
        EXPECT_TRUE(raw.closedByPeer());
    }
    {  // A truncated frame: the header promises more than ever arrives.
        RawConnection raw(path);
        raw.sendHello();
        ZelFrame frame;
        frame.type = ZelFrameType::TRANSACTION;
        frame.payload.assign(100, 0);
        std::vector<uint8_t> bytes;
        ASSERT_EQ(zel::binder::encodeZelFrame(frame, &bytes), android::OK);
        bytes.resize(bytes.size() - 50);
        raw.send(bytes);
        shutdown(raw.fd(), SHUT_WR);
        EXPECT_TRUE(raw.closedByPeer());
    }
    {  // A reply where only calls may come.
        RawConnection raw(path);
        raw.sendHello();
        ZelFrame frame;
        frame.type = ZelFrameType::REPLY;
        raw.sendFrame(frame);
        EXPECT_TRUE(raw.closedByPeer());
    }
    {  // A well-formed ping on a hand-made connection is answered.
        RawConnection raw(path);
        raw.sendHello();
        ZelFrame frame;
        frame.type = ZelFrameType::TRANSACTION;
        frame.code = IBinder::PING_TRANSACTION;
        std::ifstream in(binderTestRoot().at("/dev/binder/services/" + mName));
        std::string endpoint;
        in >> endpoint >> frame.handle;
        raw.sendFrame(frame);
        uint8_t header[zel::binder::kZelFrameHeaderSize];
        ASSERT_EQ(recv(raw.fd(), header, sizeof(header), MSG_WAITALL), static_cast<ssize_t>(sizeof(header)));
        zel::binder::ZelFrameHeader decoded;
        ASSERT_EQ(zel::binder::decodeZelFrameHeader(header, &decoded), android::OK);
        EXPECT_EQ(decoded.type, ZelFrameType::REPLY);
        EXPECT_EQ(decoded.code, static_cast<uint32_t>(android::OK));
    }
    // The server kept serving through all of it.
    std::vector<uint8_t> out;
    EXPECT_TRUE(mService->echo({1, 2}, &out).isOk());
    ASSERT_TRUE(eventually([&] { return serverStats()[kIncoming] == 1; }));
}

TEST_F(ZelBinderIpcTest, ManyConcurrentCallersAreAllServed) {
    std::vector<std::unique_ptr<ZelPeerProcess>> clients;
    for (int i = 0; i < 6; ++i) {
        clients.push_back(std::make_unique<ZelPeerProcess>(
                ZELD_BINDER_TEST_PEER, std::vector<std::string>{"call", mName, "300"}));
    }
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 300; ++i) {
                std::vector<uint8_t> data(200, static_cast<uint8_t>(t + i));
                std::vector<uint8_t> out;
                if (!mService->echo(data, &out).isOk() || out != data) failures++;
            }
        });
    }
    for (auto& thread : threads) thread.join();
    for (auto& client : clients) EXPECT_EQ(client->wait(), 0);
    EXPECT_EQ(failures, 0);
    std::vector<int64_t> stats = serverStats();
    EXPECT_LE(stats[kPoolThreads], 2 + 15);
}

TEST_F(ZelBinderIpcTest, ShortLivedClientsLeaveNothingBehind) {
    // Each client connects, hands the server a callback, is called back once
    // and exits.
    auto runClients = [&](int count) {
        constexpr int kWave = 8;
        for (int done = 0; done < count; done += kWave) {
            std::vector<std::unique_ptr<ZelPeerProcess>> wave;
            for (int i = 0; i < kWave && done + i < count; ++i) {
                wave.push_back(std::make_unique<ZelPeerProcess>(
                        ZELD_BINDER_TEST_PEER, std::vector<std::string>{"callback-once", mName}));
            }
            for (auto& client : wave) ASSERT_EQ(client->wait(), 0);
        }
    };
    auto settled = [&] {
        const std::vector<int64_t> stats = serverStats();
        // Ours is the only connection left; at most the last callback's proxy.
        return stats[kIncoming] == 1 && stats[kPeers] <= 1 && stats[kProxies] <= 1;
    };
    runClients(40);  // warm up the server's pool and allocator
    ASSERT_TRUE(eventually(settled));
    const std::vector<int64_t> before = serverStats();

    const char* configured = std::getenv("ZELD_BINDER_CHURN_CLIENTS");
    runClients(configured != nullptr ? std::atoi(configured) : kChurnClients);
    ASSERT_TRUE(eventually(settled));
    const std::vector<int64_t> after = serverStats();

    EXPECT_EQ(after[kExported], before[kExported]);
    EXPECT_LE(after[kFds], before[kFds]);
    EXPECT_LE(after[kThreads], 1 + 2 + 15);
    if (!kSanitized) {
        EXPECT_LE(after[kRssKiB], before[kRssKiB] + 4096);
    }
    // Dead clients' endpoints are gone from the directory.
    size_t sockets = 0;
    for (const auto& entry : std::filesystem::directory_iterator(binderTestRoot().at("/dev/binder"))) {
        sockets += entry.is_socket();
    }
    EXPECT_LE(sockets, 3u);
}

TEST(ZelThreadPoolDeathTest, StopProcessMakesJoinedThreadsReturn) {
    // In a child: stopping the pool is for good in a process.
    EXPECT_EXIT(
            {
                binderTestRoot();
                android::ProcessState::self()->startThreadPool();
                std::thread joined([] { android::IPCThreadState::self()->joinThreadPool(true); });
                while (zel::binder::zelBinderStats().poolThreads < 2) std::this_thread::yield();
                android::IPCThreadState::self()->stopProcess();
                joined.join();
                while (zel::binder::zelBinderStats().poolThreads != 0) std::this_thread::yield();
                _exit(0);
            },
            ::testing::ExitedWithCode(0), "");
}

}  // namespace
