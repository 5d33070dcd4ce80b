// libzelclient against the real zeld on the example device: the services'
// dumps (with a reader that stops reading, by callers of other uids), the
// text form's fields, and a connected client and event participant following
// a daemon restart. Dumps taken under load are the soak's.

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <thread>

#include "ZelDaemonDump.h"
#include "ZelDaemonProcess.h"
#include "ZelDumpAccess.h"
#include "ZelMemoryReporter.h"
#include "ZelctlDumpReader.h"
#include "zel/client/ZelClient.h"
#include "zel/client/ZelEventClient.h"

using namespace zel::client;

namespace {

constexpr Millis kReply{5000};

class ZelClientDaemonTest : public ::testing::Test {
protected:
    void SetUp() override {
        mRoot.writeFile("/system/etc/zel_policy.json", readZelTestFile(ZELD_EXAMPLE_POLICY));
        mDaemon = std::make_unique<ZelDaemonProcess>(ZELD_PATH, mRoot);
        ASSERT_TRUE(mDaemon->waitUntilServing());
        mMonitor.report({});
        mService = android::defaultServiceManager()->checkService(
                android::String16("com.ostrel.zeld.service.IZelBinderIPC"));
        ASSERT_NE(mService, nullptr);
    }
    std::string dumpText() {
        std::string text;
        EXPECT_EQ(zelctlReadDump(mService, false, &text), android::OK);
        return text;
    }
    // One client's started and completed reports of `task`, after `grant`
    // (a purge between them may answer 5: only the calls are checked).
    static void finish(ZelClient& client, const char* comp, const char* task, const ZelResult<ZelReply>& grant) {
        ASSERT_TRUE(grant.ok()) << toString(grant.error());
        ASSERT_TRUE(client.reportStarted(comp, task, grant->token, 3000, kReply).ok());
        ASSERT_TRUE(client.reportCompleted(comp, task, grant->token, kReply).ok());
    }
    static void cycle(ZelClient& client, const char* comp, const char* task) {
        finish(client, comp, task, client.requestStart(comp, task, false, 3000, kReply));
    }

    ZelTestRoot mRoot;
    std::unique_ptr<ZelDaemonProcess> mDaemon;
    ZelMemoryReporter mMonitor;
    android::sp<android::IBinder> mService;
};

}  // namespace

TEST_F(ZelClientDaemonTest, AReaderThatStopsReadingStallsNoRequest) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
    fcntl(ends[1], F_SETPIPE_SZ, 4096);
    while (write(ends[1], "x", 1) == 1) {
    }  // full: the daemon's first write waits
    std::atomic<bool> returned{false};
    std::thread stuck([&] {
        mService->dump(ends[1], {});
        returned = true;
    });
    const auto client = ZelClient::connect({}, nullptr);
    ASSERT_NE(client, nullptr);
    // A request held up behind the stuck dump would never be answered, and
    // the cycle's request would time out.
    for (int i = 0; i < 10; ++i) cycle(*client, "diagnostics", "crashUpload");
    EXPECT_FALSE(returned);  // the dump was still stuck all along
    close(ends[0]);          // the reader goes away: the dump ends at once
    stuck.join();
    close(ends[1]);
    EXPECT_NE(dumpText().find("mTaskList: "), std::string::npos);
}

// Another uid meets the daemon's private binder directory first: zelctl says
// so once, before the binder runtime could report each socket it cannot
// make. With the directory open, the device's rule holds on a root with no
// "permission" service: system and shell dump at once, any other uid is
// refused by the daemon and gets nothing. (Root and the daemon's own uid
// dump in the tests above.)
TEST_F(ZelClientDaemonTest, OnlyRootSystemShellAndTheDaemonsUidMayDump) {
    if (getuid() != 0) GTEST_SKIP() << "needs root to run a peer as another uid";
    const auto dumpAs = [](const std::string& uid) {
        return runZelProgram("/usr/bin/setpriv", {"--reuid=" + uid, "--regid=" + uid, "--clear-groups",
                                                  ZELCTL_PATH, "--json", "dump"});
    };
    std::filesystem::permissions(mRoot.path(), std::filesystem::perms::all);
    const ZelProgramRun privateRoot = dumpAs("65534");
    EXPECT_EQ(privateRoot.status, 1);
    EXPECT_EQ(privateRoot.out.rfind("{\"error\":\"permission_denied\",\"message\":\"this user (uid 65534) may not reach", 0),
              0u)
            << privateRoot.out << privateRoot.err;
    EXPECT_EQ(std::count(privateRoot.err.begin(), privateRoot.err.end(), '\n'), 1) << privateRoot.err;

    ASSERT_EQ(android::defaultServiceManager()->checkService(android::String16("permission")), nullptr);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(mRoot.path())) {
        std::filesystem::permissions(entry.path(), std::filesystem::perms::all);
    }
    for (const auto& [uid, allowed] : {std::pair{"1000", true}, {"2000", true}, {"65534", false}}) {
        SCOPED_TRACE(uid);
        const ZelProgramRun run = dumpAs(uid);
        EXPECT_EQ(run.status, allowed ? 0 : 1) << run.out << run.err;
        EXPECT_EQ(run.out.rfind(allowed ? "{\"now\":"
                                        : "{\"error\":\"permission_denied\",\"message\":\"the daemon refused the dump",
                                0),
                  0u)
                << run.out;
    }
}

// A daemon run under another uid (a developer's own on the host) lets that
// uid dump; a fourth uid it does not.
TEST(ZelDumpAccessTest, TheDaemonsOwnUidMayDumpNoOtherBesideRootSystemShell) {
    EXPECT_TRUE(zelUidMayDump(1234, 1234));
    EXPECT_FALSE(zelUidMayDump(1234, 4321));
    EXPECT_FALSE(zelUidMayDump(1001, 4321));
}

// The text form's fields: the token in the log's hexadecimal, a run time
// only for a running record, each timing bucket named by its floor.
TEST(ZelDaemonDumpTest, TextFormShowsTokensRunTimesAndBucketsAsDocumented) {
    ZelTask::Fields task{"c", "t", TASK_STATE_COMPLETED, 0xabcdef, 1, 5000, 0, 100};
    EXPECT_EQ(ZelDaemonDump::taskLine(task, 130),
              "c/t state=COMPLETED token=abcdef notify=1 duration=5000ms ensureRunTime=0 startTime=100s runTime=0s");
    task.state = TASK_STATE_RUNNING;
    EXPECT_NE(ZelDaemonDump::taskLine(task, 130).find(" runTime=30s"), std::string::npos);
    ZelDaemonState state;
    state.clients = {7, 9};
    state.metrics.push_back({"M", "WorkTime", true, 3, 9, {0, 1, 0, 2}});
    const std::string text = ZelDaemonDump::text(state);
    EXPECT_NE(text.find("\n  7 9\n"), std::string::npos) << text;
    EXPECT_NE(text.find("\n  M/WorkTime count=3 sum=9ms buckets 1ms:1 4ms:2\n"), std::string::npos) << text;
}

// The example policy publishes diagnostics/crashUpload's completion as
// diagnosticEvents/crashUploadDone (group 6, event 1): the event after the
// restart shows the completion went through. A request made while no daemon
// serves waits for the next one.
TEST_F(ZelClientDaemonTest, ClientAndParticipantFollowADaemonRestart) {
    ZelClientError error = ZelClientError::kNone;
    const auto client = ZelClient::connect({}, &error);
    ASSERT_NE(client, nullptr) << toString(error);
    Inbox<int32_t> events;
    const auto participant = ZelEventClient::connect(
            {}, [&](int32_t, int32_t, int32_t eventId, const std::vector<uint8_t>&) { events.put(eventId); },
            &error);
    ASSERT_NE(participant, nullptr) << toString(error);
    ASSERT_EQ(participant->subscribe(1, 6, 1), ZelClientError::kNone);
    cycle(*client, "diagnostics", "crashUpload");
    ASSERT_TRUE(events.waitFor(1));

    mDaemon.reset();  // SIGKILL
    ASSERT_TRUE(eventually([&] { return !client->isConnected() && !participant->isConnected(); }));
    auto duringRestart = client->requestStartAsync("diagnostics", "crashUpload", false, 3000,
                                                   Millis(10000));
    mDaemon = std::make_unique<ZelDaemonProcess>(ZELD_PATH, mRoot);
    ASSERT_TRUE(mDaemon->waitUntilServing());
    ASSERT_TRUE(eventually([&] { return participant->isConnected(); }));

    finish(*client, "diagnostics", "crashUpload", duringRestart.get());
    ASSERT_TRUE(events.waitFor(2)) << "no event after the restart: not subscribed again";
    EXPECT_TRUE(client->isConnected());
}

