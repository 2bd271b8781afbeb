#include "ground/ThreadPool.h"

#include "ground/Parallel.h"
#include "support/BlockedPool.h"

#include <atomic>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <vector>

TEST(ThreadPool, RunsOnlyTheLatestOfJobsWithTheSameId) {
    ThreadPool pool(1);
    std::string ran;
    BlockedPool blocked(pool);
    pool.AddJob([&] { ran += 'a'; }, 7);
    EXPECT_EQ(2, pool.outstandingJobs());
    pool.AddJob([&] { ran += 'b'; }, 7);
    EXPECT_EQ(2, pool.outstandingJobs());
    blocked.finish();
    EXPECT_EQ("b", ran);
    EXPECT_EQ(0, pool.outstandingJobs());
}

TEST(ThreadPool, RunsKeyedJobsAheadOfPlainOnes) {
    ThreadPool pool(1);
    std::string ran;
    BlockedPool blocked(pool);
    pool.AddJob([&] { ran += '1'; });
    pool.AddJob([&] { ran += '2'; });
    pool.AddJob([&] { ran += 'k'; }, 7);
    blocked.finish();
    EXPECT_EQ("k12", ran);
}

TEST(ThreadPool, WithdrawsWaitingKeyedJob) {
    ThreadPool pool(1);
    bool ran = false;
    BlockedPool blocked(pool);
    pool.AddJob([&] { ran = true; }, 7);
    pool.DeleteJob(8); // unknown: nothing changes
    EXPECT_EQ(2, pool.outstandingJobs());
    pool.DeleteJob(7);
    EXPECT_EQ(1, pool.outstandingJobs());
    blocked.finish();
    EXPECT_FALSE(ran);
}

TEST(ThreadPool, DropsJobsWhileClosed) {
    ThreadPool pool(1);
    std::string ran;
    pool.accepting = false;
    pool.AddJob([&] { ran += 'a'; });
    pool.accepting = true;
    pool.AddJob([&] { ran += 'b'; });
    pool.WaitAll();
    EXPECT_EQ("b", ran);
}

TEST(ThreadPool, ClearAllDiscardsWhatWaitsAndCountsWhatRuns) {
    ThreadPool pool(1);
    bool ran = false;
    BlockedPool blocked(pool);
    pool.AddJob([&] { ran = true; });
    pool.AddJob([&] { ran = true; }, 7);
    pool.ClearAll();
    EXPECT_EQ(1, pool.outstandingJobs());
    blocked.finish();
    EXPECT_FALSE(ran);
    EXPECT_EQ(0, pool.outstandingJobs());
}

TEST(ThreadPool, WithoutThreadsQueuesAndNeverRuns) {
    ThreadPool pool(0);
    bool ran = false;
    pool.AddJob([&] { ran = true; });
    pool.AddJob([&] { ran = true; }, 7);
    EXPECT_EQ(2, pool.outstandingJobs());
    pool.JoinAll(false);
    EXPECT_FALSE(ran);
}

TEST(ThreadPool, JoiningForGoodRunsWhatWaitsOnlyIfAsked) {
    ThreadPool pool(1);
    std::string ran;
    BlockedPool blocked(pool);
    pool.AddJob([&] { ran += 'a'; });
    blocked.release();
    pool.JoinAll(true);
    EXPECT_EQ("a", ran);
    pool.AddJob([&] { ran += 'b'; });
    pool.JoinAll(true); // returns at once, although a job waits
    EXPECT_EQ("a", ran);
}

TEST(ThreadPool, SpreadsJobsOverItsThreads) {
    ThreadPool pool(2);
    // Each of the two waits for the other, so that one thread alone would never get through.
    std::promise<void> first;
    std::promise<void> second;
    pool.AddJob([&] {
        first.set_value();
        second.get_future().wait();
    });
    pool.AddJob([&] {
        second.set_value();
        first.get_future().wait();
    });
    pool.WaitAll();
    EXPECT_EQ(0, pool.outstandingJobs());
}

TEST(Parallel, DoesAllOfItWhateverThePoolDoes) {
    std::vector<int> calls(10000);
    const auto work = [&](ThreadPool& pool) { forEachInParallel(pool, calls.size(), [&](size_t i) { ++calls[i]; }); };
    ThreadPool pool(1);
    work(pool);
    {
        BlockedPool blocked(pool);
        work(pool);
        blocked.finish(); // helpers that come too late add nothing
    }
    pool.AddJob([&] { work(pool); });
    pool.WaitAll();
    pool.accepting = false;
    work(pool);
    EXPECT_EQ(std::vector<int>(calls.size(), 4), calls);
}

TEST(Parallel, EndsEarlyAtAFailure) {
    ThreadPool pool(2);
    std::atomic<int> calls{0};
    const auto failAt = [&](int call, bool isThrown) {
        calls = 0;
        forEachInParallel(pool, 1000000, [&](size_t) {
            if (++calls == call && isThrown) throw std::runtime_error("enough");
            return calls < call;
        });
    };
    failAt(1000, false);
    EXPECT_LE(1000, calls);
    EXPECT_GT(2000, calls);
    EXPECT_THROW(failAt(1000, true), std::runtime_error);
    EXPECT_GT(2000, calls);
}
