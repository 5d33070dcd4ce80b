// Binder semantics across real processes: a test service runs in a peer
// process (zeld_binder_test_peer serve), this process is its client.
#include <unistd.h>

#include <atomic>
#include <deque>
#include <future>

#include <binder/Parcel.h>
#include <binder/ProcessState.h>

#include "ZelBinderTestSupport.h"
#include "zel/binder/ZelBinderStats.h"

using android::IBinder;
using android::sp;
using com::ostrel::zeld::test::IZelTestService;
using zel::binder::zelBinderStats;

namespace {

sp<IBinder> asBinder(const sp<android::IInterface>& object) { return android::IInterface::asBinder(object); }

class ZelBinderIpcTest : public ZelTestServiceFixture {
protected:
    // Runs `count` peers `call <service> <echoes>`, at most eight at a time, each to a 0 exit.
    void runCallers(int count, int echoes) {
        const std::vector<std::string> args{"call", mName, std::to_string(echoes)};
        for (int done = 0; done < count; done += 8) {
            std::deque<ZelPeerProcess> wave;
            for (int i = done; i < count && i < done + 8; ++i) wave.emplace_back(ZELD_BINDER_TEST_PEER, args);
            for (auto& peer : wave) ASSERT_EQ(peer.wait(), 0);
        }
    }
};

TEST_F(ZelBinderIpcTest, BinderObjectsKeepTheirIdentityAndLiveWhileAnotherProcessHoldsThem) {
    android::ProcessState::self()->startThreadPool();
    const size_t exportedBefore = zelBinderStats().exportedObjects;
    sp<ZelRecordingCallback> other = new ZelRecordingCallback();
    android::wp<ZelRecordingCallback> weak;
    {
        sp<ZelRecordingCallback> callback = new ZelRecordingCallback();
        weak = callback;
        // Our object comes back as itself.
        sp<IBinder> back;
        ASSERT_TRUE(mService->echoBinder(asBinder(callback), &back).isOk());
        EXPECT_EQ(back, asBinder(callback));

        // The server sees one proxy for our object, however often it arrives.
        ASSERT_TRUE(mService->setCallback(callback).isOk());
        bool same = false;
        ASSERT_TRUE(mService->isStoredCallback(asBinder(callback), &same).isOk());
        EXPECT_TRUE(same);
        ASSERT_TRUE(mService->isStoredCallback(asBinder(other), &same).isOk());
        EXPECT_FALSE(same);

        // And we see one proxy for the server's object.
        ASSERT_TRUE(mService->echoBinder(asBinder(mService), &back).isOk());
        EXPECT_EQ(back, asBinder(mService));
    }
    // Only the server's proxy keeps our object now; it goes with the last one.
    ASSERT_TRUE(mService->pingCallback(5).isOk());
    EXPECT_NE(weak.promote(), nullptr);
    ASSERT_TRUE(mService->setCallback(other).isOk());
    EXPECT_TRUE(eventually([&] { return weak.promote() == nullptr; }));
    EXPECT_TRUE(eventually([&] { return zelBinderStats().exportedObjects == exportedBefore + 1; }));
}

TEST_F(ZelBinderIpcTest, ManyCallersAreServedAtOnceOnewayCallsKeepTheirOrderAndTheServerCallsBack) {
    android::ProcessState::self()->startThreadPool();
    std::atomic<int> failures{0};
    std::vector<std::thread> callers;
    callers.emplace_back([&] { runCallers(6, 300); });  // six processes at once
    // Four threads of this one: a burst of one-way calls, then synchronous ones.
    constexpr int kThreads = 4, kOneway = 500;
    for (int t = 0; t < kThreads; ++t) {
        callers.emplace_back([&, t] {
            for (int i = 0; i < kOneway; ++i) failures += !mService->record(t * 10000 + i).isOk();
            for (int i = 0; i < 300; ++i) {
                std::vector<uint8_t> data(200, static_cast<uint8_t>(t + i));
                std::vector<uint8_t> out;
                failures += !mService->echo(data, &out).isOk() || out != data;
            }
        });
    }
    // Calls that hold server threads, more at once than one process may have
    // connections to it: the pool grows, and the calls beyond what this
    // process opens to one peer wait for a connection instead of being refused.
    for (int t = 0; t < 40; ++t) callers.emplace_back([&] { EXPECT_TRUE(mService->sleepMs(100).isOk()); });
    // The loop's last call back is held: one that overtook it would be recorded first.
    struct HeldCallback : ZelRecordingCallback {
        android::binder::Status onValue(int32_t value) override {
            if (value == 199) released.wait();
            return ZelRecordingCallback::onValue(value);
        }
        std::promise<void> release;
        std::shared_future<void> released = release.get_future().share();
    };
    sp<HeldCallback> callback = new HeldCallback();
    std::vector<int32_t> expected(201);
    for (int i = 0; i < 200; ++i) failures += !mService->callBack(callback, expected[i] = i).isOk();
    for (auto& caller : callers) caller.join();
    // A caller's callback replaces ours: the server lets go of its last proxy
    // of us, and calls the next one back through a new proxy.
    runCallers(1, 0);
    failures += !mService->callBack(callback, expected[200] = 200).isOk();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // time to overtake
    callback->release.set_value();

    EXPECT_EQ(failures, 0);
    ASSERT_TRUE(callback->values.waitFor(201));
    EXPECT_EQ(callback->values.items(), expected);  // one-way calls from the server keep their order
    EXPECT_LE(serverStats()[kPoolThreads], 2 + 15);
    // Each thread's one-way calls keep their order among the others'.
    std::vector<int32_t> recorded;
    ASSERT_TRUE(eventually([&] { return mService->recorded(&recorded).isOk() && recorded.size() == kThreads * kOneway; }));
    std::vector<int32_t> last(kThreads, -1);
    for (int32_t value : recorded) {
        EXPECT_EQ(value % 10000, last[value / 10000] + 1);
        last[value / 10000] = value % 10000;
    }
}

TEST_F(ZelBinderIpcTest, AMalformedOrTruncatedFrameClosesOnlyItsOwnConnection) {
    using namespace zel::binder;
    const auto [path, handle] = serviceAddress(mName);
    const auto hello = helloFrame(ownEndpoint("raw"));
    const auto ping = encodedFrame(ZelFrameType::TRANSACTION, IBinder::PING_TRANSACTION, handle, {});
    auto truncated = encodedFrame(ZelFrameType::TRANSACTION, 0, 0, std::vector<uint8_t>(100));
    truncated.resize(truncated.size() - 50);  // the header promises more than ever arrives
    struct Case {
        const char* what;
        std::vector<std::vector<uint8_t>> sends;
        bool endOfStream;  // shut our side after sending
    };
    const std::vector<Case> cases = {
            {"garbage instead of a header", {std::vector<uint8_t>(64, 0xAB)}, false},
            {"a call before HELLO", {ping}, false},
            // An endpoint that exists, but is the service's own.
            {"a HELLO for another process", {helloFrame(path.substr(path.rfind('/') + 1)), ping}, false},
            {"a truncated frame", {hello, truncated}, true},
            {"a reply where only calls may come", {hello, encodedFrame(ZelFrameType::REPLY, 0, 0, {})}, false},
            {"a well-formed ping", {hello, ping}, false},
    };
    for (const Case& c : cases) {
        ZelRawConnection raw(path, c.sends);  // the sends may find it closed already
        if (c.endOfStream) shutdown(raw.fd(), SHUT_WR);
        ZelFrameHeader reply;
        if (&c == &cases.back()) {
            ASSERT_EQ(answerOf(raw, &reply), ZelAnswer::ANSWERED);
            EXPECT_EQ(reply.type, ZelFrameType::REPLY);
            EXPECT_EQ(reply.code, static_cast<uint32_t>(android::OK));
        } else {
            EXPECT_EQ(answerOf(raw), ZelAnswer::CLOSED) << c.what;
        }
    }
    // The server kept serving through all of it.
    std::vector<uint8_t> out;
    EXPECT_TRUE(mService->echo({1, 2}, &out).isOk());
    ASSERT_TRUE(eventually([&] { return serverStats()[kIncoming] == 1; }));
}

TEST_F(ZelBinderIpcTest, ACallThatEndsTheServiceIsNamedInItsLogAndTheServiceEndsAsBefore) {
    const std::string name = mName + ".ending";
    const std::string errors = binderTestRoot().at("/" + name + ".err");
    ZelPeerProcess server(ZELD_BINDER_TEST_PEER, {"serve", name}, ZelOutputTo(errors + ".out", errors).get());
    const auto service = waitForTestService(name);
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(service->unlockTwice().transactionError(), android::DEAD_OBJECT);
    EXPECT_EQ(server.wait(), 128 + SIGABRT);

    const std::string log = readZelTestFile(errors);
    const size_t named = log.find(" F zeld_binder_test_peer: ZelTerminateLog::onTerminate:");
    const std::string code = std::to_string(IBinder::FIRST_CALL_TRANSACTION + 11);  // unlockTwice
    EXPECT_NE(log.find(" - uncaught std::system_error (Operation not permitted) ends the process; this thread was "
                       "serving transaction " + code + " of " + android::String8(IZelTestService::descriptor).string(),
                       named),
              std::string::npos)
            << log;
    // Then the standard library's own last words, as before.
    EXPECT_NE(log.find("terminate called after throwing an instance of 'std::system_error'", named), std::string::npos)
            << log;
}

// A pool whose first thread the system will not make, as on a device: the
// failure is logged and the process goes on; a thread that joins serves.
TEST(ZelThreadPoolTest, AFirstThreadTheSystemWillNotMakeIsLoggedAndTheProcessGoesOn) {
    const std::string name = testServiceName();
    const std::string errors = binderTestRoot().at("/" + name + ".err");
    ZelPeerProcess server(ZELD_BINDER_TEST_PEER, {"unthreaded", name}, ZelOutputTo(errors).get());
    const auto service = waitForTestService(name);
    ASSERT_NE(service, nullptr);
    std::vector<uint8_t> out;
    EXPECT_TRUE(service->echo({3}, &out).isOk());
    EXPECT_NE(readZelTestFile(errors).find("cannot start the binder thread pool: Resource temporarily unavailable"),
              std::string::npos)
            << readZelTestFile(errors);
}

}  // namespace
