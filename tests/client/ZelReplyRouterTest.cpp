// How a client tells its replies apart: the answer to the request in flight,
// a deferred approval it waits for (arriving before or after), and the
// daemon's death.
#include <thread>

#include <gtest/gtest.h>

#include "ZelReplyRouter.h"

using namespace zel::client;

namespace {

using Clock = ZelReplyRouter::Clock;
const auto kSoon = std::chrono::milliseconds(50);

bool same(const ZelReply& a, const ZelReply& b) {
    return a.token == b.token && a.canStart == b.canStart && a.status == b.status;
}

TEST(ZelReplyRouterTest, ApprovalsExpectedByTokenNeverAnswerTheRequestInFlight) {
    ZelReplyRouter router;
    std::vector<ZelReply> heard;
    router.setApprovalListener([&](const ZelReply& reply) { heard.push_back(reply); });

    router.beginRequest();  // a start with notify, refused for now
    router.onReply({7, false, 0});
    ZelResult<ZelReply> reply = router.awaitReply(Clock::now() + kSoon);
    ASSERT_TRUE(reply.ok());
    EXPECT_TRUE(same(reply.value(), {7, false, 0}));
    router.expectApproval(7);

    router.beginRequest();  // a completion of another task: its approval comes first
    router.onReply({7, true, 0});
    router.onReply({9, true, 5});
    reply = router.awaitReply(Clock::now() + kSoon);
    ASSERT_TRUE(reply.ok());
    EXPECT_TRUE(same(reply.value(), {9, true, 5}));
    ASSERT_EQ(heard.size(), 1u);
    EXPECT_TRUE(same(heard[0], {7, true, 0}));
    ZelResult<ZelReply> approval = router.awaitApproval(7, Clock::now() + kSoon);
    ASSERT_TRUE(approval.ok());
    EXPECT_TRUE(same(approval.value(), {7, true, 0}));
    EXPECT_EQ(router.awaitApproval(7, Clock::now() + kSoon).error(), ZelClientError::kTimedOut)
            << "an approval is taken once";

    // An approval that overtakes the start reply naming its token is kept.
    router.onReply({11, true, 0});
    router.expectApproval(11);
    EXPECT_TRUE(router.awaitApproval(11, Clock::now() + kSoon).ok());
    // Nothing in flight and not an approval (granted but with a status): dropped.
    router.onReply({12, false, 3});
    router.onReply({13, true, 5});
    EXPECT_EQ(router.awaitApproval(13, Clock::now() + kSoon).error(), ZelClientError::kTimedOut);
    router.beginRequest();
    EXPECT_EQ(router.awaitReply(Clock::now() + kSoon).error(), ZelClientError::kTimedOut);
}

TEST(ZelReplyRouterTest, TheDaemonsDeathEndsEveryWaitAndForgetsWhatItOwed) {
    ZelReplyRouter router;
    router.expectApproval(3);
    router.beginRequest();
    std::thread death([&] {
        std::this_thread::sleep_for(kSoon);
        router.onDaemonDied();
    });
    EXPECT_EQ(router.awaitReply(Clock::now() + std::chrono::seconds(10)).error(), ZelClientError::kDied);
    death.join();
    router.beginRequest();  // the restarted daemon answers with the same token
    router.onReply({3, true, 0});
    EXPECT_TRUE(router.awaitReply(Clock::now() + kSoon).ok()) << "3 is no longer expected";
}

}  // namespace
