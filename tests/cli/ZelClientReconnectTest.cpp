// libzelclient across a restart of the daemon: a connected client and an
// event participant find the new daemon, register again (the participant
// subscribes again) and go on; a request made while no daemon serves waits
// for the next one.

#include <gtest/gtest.h>

#include <future>

#include "ZelDaemonProcess.h"
#include "ZelMemoryReporter.h"
#include "ZelTestRoot.h"
#include "zel/client/ZelClient.h"
#include "zel/client/ZelEventClient.h"

using namespace zel::client;

namespace {

constexpr Millis kReply{5000};
// The example policy publishes diagnostics/crashUpload's completion as
// diagnosticEvents/crashUploadDone (group 6, event 1).
constexpr int32_t kDoneGroup = 6;
constexpr int32_t kDoneEvent = 1;

// The started and completed reports of a granted crashUpload.
void runCrashUpload(ZelClient& client, const ZelResult<ZelReply>& grant) {
    ASSERT_TRUE(grant.ok()) << toString(grant.error());
    ASSERT_TRUE(grant->canStart);
    const auto started = client.reportStarted("diagnostics", "crashUpload", grant->token, 3000, kReply);
    ASSERT_TRUE(started.ok());
    EXPECT_EQ(started->status, 0);
    const auto completed = client.reportCompleted("diagnostics", "crashUpload", grant->token, kReply);
    ASSERT_TRUE(completed.ok());
    EXPECT_EQ(completed->status, 0);
}

}  // namespace

TEST(ZelClientReconnectTest, ClientAndParticipantFollowADaemonRestart) {
    ZelTestRoot root;
    root.writeFile("/system/etc/zel_policy.json", readZelTestFile(ZELD_EXAMPLE_POLICY));
    auto daemon = std::make_unique<ZelDaemonProcess>(ZELD_PATH, root);
    ASSERT_TRUE(daemon->waitUntilServing());
    ZelMemoryReporter monitor;
    monitor.report({});

    ZelClientError error = ZelClientError::kNone;
    const auto client = ZelClient::connect({}, &error);
    ASSERT_NE(client, nullptr) << toString(error);
    Inbox<int32_t> events;
    const auto participant = ZelEventClient::connect(
            {}, [&](int32_t, int32_t, int32_t eventId, const std::vector<uint8_t>&) { events.put(eventId); },
            &error);
    ASSERT_NE(participant, nullptr) << toString(error);
    ASSERT_EQ(participant->subscribe(1, kDoneGroup, kDoneEvent), ZelClientError::kNone);
    runCrashUpload(*client, client->requestStart("diagnostics", "crashUpload", false, 3000, kReply));
    ASSERT_TRUE(events.waitFor(1));

    daemon.reset();  // SIGKILL
    ASSERT_TRUE(eventually([&] { return !client->isConnected() && !participant->isConnected(); }));
    auto duringRestart = client->requestStartAsync("diagnostics", "crashUpload", false, 3000,
                                                   Millis(10000));
    daemon = std::make_unique<ZelDaemonProcess>(ZELD_PATH, root);
    ASSERT_TRUE(daemon->waitUntilServing());
    ASSERT_TRUE(eventually([&] { return participant->isConnected(); }));

    runCrashUpload(*client, duringRestart.get());
    ASSERT_TRUE(events.waitFor(2)) << "no event after the restart: not subscribed again";
    EXPECT_TRUE(client->isConnected());
}
