// What libzelclient decides inside the caller's process, no daemon needed:
// the identifiers of its connections, and that a failed result cannot pass
// for a reply.
#include <unistd.h>

#include <gtest/gtest.h>

#include <set>

#include "ZelClientIds.h"
#include "ZelTestRoot.h"
#include "zel/client/ZelClient.h"
#include "zel/client/ZelEventClient.h"

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

// Distinct among the process's live connections, and from every other
// process's: the process id stays in the low 22 bits.
TEST(ZelClientIdsTest, EveryLiveConnectionHoldsItsOwnIdentifierUntilItIsGone) {
    ZelClientIdPool pool;
    const int32_t first = pool.acquire();
    EXPECT_EQ(first, kClientIdPidBase + getpid());
    std::set<int32_t> ids{first};
    for (size_t i = 1; i < ZelClientIdPool::kSize; ++i) {
        const int32_t id = pool.acquire();
        EXPECT_GT(id, kClientIdPidBase);
        EXPECT_EQ(id & ((1 << ZelClientIdPool::kPidBits) - 1), getpid());
        ids.insert(id);
    }
    EXPECT_EQ(ids.size(), ZelClientIdPool::kSize);
    EXPECT_EQ(pool.acquire(), 0);

    const int32_t gone = *std::next(ids.begin(), 100);
    pool.release(gone);
    EXPECT_EQ(pool.acquire(), gone);
    EXPECT_EQ(pool.acquire(), 0);
}

// Refused before any look-up: no daemon is needed to see it.
TEST(ZelClientIdsTest, AConnectionBeyondTheProcesssIdentifiersIsRefused) {
    const ZelTestRoot root;  // where a look-up would go
    for (ZelClientIdPool* pool : {&zelRequestClientIds(), &zelEventParticipantIds()}) {
        while (pool->acquire() != 0) {
        }
    }
    ZelClientError error = ZelClientError::kNone;
    ZelClientOptions options;
    options.connectTimeout = Millis(0);
    EXPECT_EQ(ZelClient::connect(options, &error), nullptr);
    EXPECT_EQ(error, ZelClientError::kTooManyConnections);
    error = ZelClientError::kNone;
    EXPECT_EQ(ZelEventClient::connect(options, nullptr, &error), nullptr);
    EXPECT_EQ(error, ZelClientError::kTooManyConnections);
}

}  // namespace
