// What libzelclient decides inside the caller's process, no daemon needed:
// a failed result cannot pass for a reply.
#include <gtest/gtest.h>

#include "zel/client/ZelClient.h"

using namespace zel::client;

namespace {

TEST(ZelResultTest, AFailedResultEndsTheProcessWhenItsReplyIsRead) {
    const ZelResult<ZelReply> answered = ZelReply{7, true, 0};
    ASSERT_TRUE(answered);
    EXPECT_EQ(answered->token, 7);

    const ZelResult<ZelReply> failed = ZelClientError::kTimedOut;
    EXPECT_FALSE(failed);
    EXPECT_EQ(failed.error(), ZelClientError::kTimedOut);
    EXPECT_DEATH((void)failed->status, "value of a failed ZelResult was read \\(error: timed out\\)");
    EXPECT_DEATH((void)failed.value(), "timed out");
}

}  // namespace
