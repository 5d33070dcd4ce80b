// Hostile and broken peers against a test service in a peer process: each
// costs the service no more than its own connections, and a well-behaved
// client (this process) keeps being served.
#include <sys/wait.h>

#include <atomic>
#include <thread>

#include <binder/Parcel.h>
#include <binder/ProcessState.h>

#include "ZelTestServiceFixture.h"
#include "zel/binder/ZelBinderStats.h"

using android::IBinder;
using android::sp;
using namespace zel::binder;

namespace {

using ZelHostilePeerTest = ZelTestServiceFixture;

// `count` raw peers of the service `name`, each saying HELLO under its own
// name and sending `bytes`.
std::vector<std::unique_ptr<ZelRawConnection>> rawPeers(const std::string& name, int count, const std::vector<uint8_t>& bytes) {
    std::vector<std::unique_ptr<ZelRawConnection>> peers;
    for (int i = 0; i < count; ++i) {
        const std::string endpoint = ownEndpoint(std::to_string(i));
        peers.push_back(std::make_unique<ZelRawConnection>(serviceAddress(name).first,
                                                           std::vector<std::vector<uint8_t>>{helloFrame(endpoint), bytes}));
    }
    return peers;
}

TEST_F(ZelHostilePeerTest, StalledAndTrickledFramesCostWhatArrivedAndAreCutOffAtTheirDeadlines) {
    // A header announcing a 1 MiB call, and the first 100 bytes of its body.
    std::vector<uint8_t> start = encodedFrame(ZelFrameType::TRANSACTION, 1, serviceAddress(mName).second,
                                              std::vector<uint8_t>(kZelMaxPayload));
    start.resize(kZelFrameHeaderSize + 100);
    constexpr int kStalled = 64;
    const int64_t residentBefore = serverStats()[kRssKiB];
    auto peers = rawPeers(mName, kStalled + 1, start);  // the last one trickles its body
    peers.push_back(std::make_unique<ZelRawConnection>(serviceAddress(mName).first));  // never says HELLO
    ASSERT_TRUE(eventually([&] { return serverStats()[kIncoming] == kStalled + 3; }));
    for (int i = 0; i <= kStalled; ++i) ASSERT_TRUE(peers[i]->send({0}));  // a little more of each body
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    // The bodies were announced, not sent: they take no room.
    EXPECT_LT(serverStats()[kRssKiB] - residentBefore, kStalled * 1024 / 4);

    EXPECT_TRUE(eventually([&] {
        peers[kStalled]->send({0});  // progress does not extend a frame's deadline
        return std::all_of(peers.begin(), peers.end(), [](auto& peer) { return peer->closed(); });
    }));
    EXPECT_EQ(serverStats()[kIncoming], 1);
}

TEST_F(ZelHostilePeerTest, AReferenceToAnEndpointThatAcceptsNothingHoldsNoThread) {
    // An endpoint of this process whose listen queue is full.
    const std::string full = ownEndpoint("full");
    android::base::unique_fd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un addr{AF_UNIX, {}};
    std::snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", binderTestRoot().at("/dev/binder/" + full).c_str());
    ASSERT_EQ(bind(listener.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
    ASSERT_EQ(listen(listener.get(), 0), 0);
    auto filler = std::make_unique<ZelRawConnection>(addr.sun_path);

    // Two calls that each hand the service a reference to an object there.
    const auto [path, handle] = serviceAddress(mName);
    std::vector<std::unique_ptr<ZelRawConnection>> attackers;
    for (int i = 0; i < 2; ++i) {
        attackers.push_back(std::make_unique<ZelRawConnection>(
                path, std::vector<std::vector<uint8_t>>{helloFrame(full), encodedFrame(ZelFrameType::TRANSACTION,
                                                        IBinder::PING_TRANSACTION, handle, {}, {{full, 1}})}));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // the service takes both
    std::atomic<bool> served{false};
    std::thread good([&] {
        std::vector<uint8_t> out;
        served = mService->echo({1}, &out).isOk();
    });
    EXPECT_TRUE(eventually([&] { return served.load(); }));
    listener.reset();  // let go
    filler.reset();
    good.join();
}

TEST_F(ZelHostilePeerTest, AHelloClaimingAnotherProcessesEndpointIsRefused) {
    android::ProcessState::self()->startThreadPool();
    sp<ZelRecordingCallback> callback = new ZelRecordingCallback();
    ASSERT_TRUE(mService->setCallback(callback).isOk());
    // A child claims this process's endpoint, closes and exits.
    const std::vector<uint8_t> claim = helloFrame(zelBinderStats().endpoint);
    const std::string path = serviceAddress(mName).first;
    const pid_t child = fork();
    if (child == 0) _exit(ZelRawConnection(path).send(claim) ? 0 : 1);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
    // Had the claim been taken, its exit would make this process look dead to the service.
    constexpr int kCalls = 40;
    for (int i = 0; i < kCalls; ++i) {
        ASSERT_TRUE(mService->pingCallback(i).isOk()) << i;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_TRUE(callback->values.waitFor(kCalls));
}

TEST_F(ZelHostilePeerTest, HellosUnderManyNamesCostOneDescriptor) {
    const int64_t before = serverStats()[kFds];
    for (int i = 0; i < 200; ++i) ZelRawConnection(serviceAddress(mName).first, {helloFrame(ownEndpoint("n" + std::to_string(i)))});
    // One to learn when this process exits; a connection still being closed goes.
    EXPECT_TRUE(eventually([&] { return serverStats()[kIncoming] == 1 && serverStats()[kFds] <= before + 1; }));
}

TEST_F(ZelHostilePeerTest, AtTheDescriptorLimitTheServiceBacksOffAndLogsOnce) {
    const std::string limitedName = mName + ".limited";
    ZelPeerProcess limited(ZELD_BINDER_TEST_PEER, {"serve", limitedName, "64"});
    const sp<com::ostrel::zeld::test::IZelTestService> service = waitForTestService(limitedName);
    ASSERT_NE(service, nullptr);
    std::vector<int64_t> stats;
    ASSERT_TRUE(service->stats(&stats).isOk());
    const int64_t logged = stats[kLogLines];

    auto hogs = rawPeers(limitedName, 80, {});  // more than it has descriptors for
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    std::vector<uint8_t> out;
    EXPECT_TRUE(service->echo({1}, &out).isOk());  // connections it has are served
    hogs.clear();
    // New clients get in again once descriptors are free.
    EXPECT_EQ(ZelPeerProcess(ZELD_BINDER_TEST_PEER, {"call", limitedName, "1"}).wait(), 0);
    ASSERT_TRUE(service->stats(&stats).isOk());
    EXPECT_LE(stats[kLogLines] - logged, 2);  // the condition and its end, no flood
}

TEST_F(ZelHostilePeerTest, CallersThatDoNotReadTheirRepliesHoldNoThread) {
    android::Parcel request;  // filled(1 MiB - 1 KiB)
    request.writeInterfaceToken(com::ostrel::zeld::test::IZelTestService::descriptor);
    request.writeInt32(kZelMaxPayload - 1024);
    constexpr int kIdle = 17;  // more than the pool has threads
    auto idle = rawPeers(mName, kIdle, encodedFrame(ZelFrameType::TRANSACTION, IBinder::FIRST_CALL_TRANSACTION + 1,
                                                    serviceAddress(mName).second, {request.data(), request.data() + request.dataSize()}));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // the service answers them all
    std::vector<uint8_t> out;
    EXPECT_TRUE(mService->echo({7}, &out).isOk());
    EXPECT_EQ(serverStats()[kIncoming], kIdle + 1);  // served before any of them was given up
    EXPECT_TRUE(eventually([&] { return serverStats()[kIncoming] == 1; }));  // then each at its deadline
}

}  // namespace
