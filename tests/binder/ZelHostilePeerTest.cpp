// Hostile and broken peers against a test service in a peer process: each
// costs the service no more than its own connections, and a well-behaved
// client (this process) keeps being served.
#include <sys/wait.h>

#include <atomic>
#include <thread>

#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <com/ostrel/zeld/test/BnZelTestCallback.h>

#include "ZelTestServiceFixture.h"
#include "zel/binder/ZelBinderStats.h"

using android::IBinder;
using android::sp;
using namespace zel::binder;

namespace {

using ZelHostilePeerTest = ZelTestServiceFixture;

class RecordingCallback : public com::ostrel::zeld::test::BnZelTestCallback {
public:
    android::binder::Status onValue(int32_t value) override {
        values.put(value);
        return android::binder::Status::ok();
    }
    Inbox<int32_t> values;
};

TEST_F(ZelHostilePeerTest, AHelloClaimingAnotherProcessesEndpointIsRefused) {
    android::ProcessState::self()->startThreadPool();
    sp<RecordingCallback> callback = new RecordingCallback();
    ASSERT_TRUE(mService->setCallback(callback).isOk());
    // A child claims this process's endpoint, closes and exits.
    const std::vector<uint8_t> claim = helloFrame(zelBinderStats().endpoint);
    const std::string path = serviceAddress(mName).first;
    const pid_t child = fork();
    if (child == 0) {
        ZelRawConnection connection(path);
        _exit(connection.send(claim) ? 0 : 1);
    }
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
    const std::string path = serviceAddress(mName).first;
    const int64_t before = serverStats()[kFds];
    for (int i = 0; i < 200; ++i) {
        ZelRawConnection connection(path);
        ASSERT_TRUE(connection.send(helloFrame(ownEndpoint("name" + std::to_string(i)))));
    }
    ASSERT_TRUE(eventually([&] { return serverStats()[kIncoming] == 1; }));
    EXPECT_LE(serverStats()[kFds], before + 1);  // one to learn when this process exits
}

}  // namespace
