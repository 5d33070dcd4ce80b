// The daemon's event side across processes: this process registers the event
// service and the dispatcher as the daemon does; participants are peer
// processes built from the generated proxies only.
#include <fstream>
#include <sstream>

#include <binder/ProcessState.h>
#include <gtest/gtest.h>

#include "ZelBinderIpcServer.h"
#include "ZelTestProcess.h"
#include "ZelTestRoot.h"
#include "ZelTestWait.h"

namespace {

std::string readAll(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class ZelEventsAcrossProcessesTest : public ::testing::Test {
protected:
    void SetUp() override {
        mDispatcher = ZelBinderIpcServer::createEventDispatcherInterface("COM_OSTREL_ZELD");
        ASSERT_NE(mDispatcher, nullptr);
        android::ProcessState::self()->startThreadPool();
    }
    // A participant that registers as `id` and subscribes to the daemon's
    // (group 3, `event`), or only registers when `event` is 0; returns once it
    // is ready.
    std::unique_ptr<ZelPeerProcess> participant(const std::string& file, int id, int event) {
        std::vector<std::string> args{event == 0 ? "register" : "subscribe", mRoot.at(file), std::to_string(id)};
        if (event != 0) args.insert(args.end(), {"1", "3", std::to_string(event)});
        auto peer = std::make_unique<ZelPeerProcess>(ZELD_EVENT_PEER, args);
        EXPECT_TRUE(eventually([&] { return readAll(mRoot.at(file)).find("ready") != std::string::npos; }));
        return peer;
    }
    std::string deliveries(const std::string& file) {
        const std::string text = readAll(mRoot.at(file));
        return text.substr(std::min(text.size(), text.find('\n') + 1));
    }

    ZelTestRoot mRoot;
    std::shared_ptr<ZelEventDispatcherInterface> mDispatcher;
};

TEST_F(ZelEventsAcrossProcessesTest, ASubscriberProcessReceivesTheDaemonsEventWithItsPayload) {
    auto subscriber = participant("a", 9, 11);
    EXPECT_TRUE(mDispatcher->publishEvents({{3, 11}}, 1, 5000));
    // ZelEventParamsParcelable (1, 5000): two little-endian int32.
    EXPECT_TRUE(eventually([&] { return deliveries("a") == "1 3 11 0100000088130000\n"; }))
            << deliveries("a");
}

TEST_F(ZelEventsAcrossProcessesTest, AMemoryReportOfParticipantFiveReachesTheSubscribedFunction) {
    std::mutex lock;
    std::vector<ResourceStatusRecord> records;
    mDispatcher->subscribeEvent(1, 1, [&](const void* data) {
        std::lock_guard<std::mutex> guard(lock);
        records.push_back(*static_cast<const ResourceStatusRecord*>(data));
    });
    ZelPeerProcess monitor(ZELD_EVENT_PEER, {"memory", "1", "4", "900", "1000"});
    EXPECT_EQ(monitor.wait(), 0);
    std::lock_guard<std::mutex> guard(lock);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].resourceType, 1);
    EXPECT_EQ(records[0].status, 4);
    EXPECT_EQ(records[0].value, 900u);
    EXPECT_EQ(records[0].criticalThreshold, 1000u);
}

TEST_F(ZelEventsAcrossProcessesTest, DeadSubscribersAreSkippedAndTheLastRegistrationWins) {
    {
        auto dead = participant("dead", 10, 12);
        dead->kill(SIGKILL);
        dead->wait();
    }
    EXPECT_TRUE(mDispatcher->publishEvents({{3, 12}}, 1, 5000)) << "the publisher is told OK";

    auto replaced = participant("first", 11, 13);
    auto replacing = participant("second", 11, 0);
    EXPECT_TRUE(mDispatcher->publishEvents({{3, 13}}, 1, 5000));
    EXPECT_TRUE(eventually([&] { return !deliveries("second").empty(); }));
    EXPECT_EQ(deliveries("first"), "");
}

}  // namespace
