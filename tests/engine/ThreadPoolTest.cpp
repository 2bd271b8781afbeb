#include "ground/ThreadPool.h"

#include "ground/Parallel.h"
#include "support/BlockedPool.h"

#include <atomic>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// A pool whose one worker is busy until the test releases it.
class OneWorker : public testing::Test {
protected:
    // A job that leaves its name in `ran`.
    void add(char name, unsigned long long id = 0) {
        pool.AddJob([this, name] { ran += name; }, id);
    }

    std::string ran;
    ThreadPool pool{1};
    BlockedPool blocked{pool};
};

} // namespace

TEST_F(OneWorker, RunsTheLatestJobOfAKeyAheadOfPlainOnes) {
    add('1');
    add('2');
    add('a', 7);
    add('b', 7);
    EXPECT_EQ(4, pool.outstandingJobs());
    blocked.finish();
    EXPECT_EQ("b12", ran);
    EXPECT_EQ(0, pool.outstandingJobs());
}

TEST_F(OneWorker, ForgetsWhatIsWithdrawnClearedOrComesWhileClosed) {
    add('1');
    add('a', 7);
    pool.DeleteJob(8); // unknown: nothing changes
    EXPECT_EQ(3, pool.outstandingJobs());
    pool.DeleteJob(7);
    EXPECT_EQ(2, pool.outstandingJobs());
    add('b', 7);
    pool.ClearAll();
    EXPECT_EQ(1, pool.outstandingJobs()) << "the one that runs";
    pool.accepting = false;
    add('2');
    pool.accepting = true;
    add('3');
    blocked.finish();
    EXPECT_EQ("3", ran);
}

TEST_F(OneWorker, RunsWhatWaitsWhenJoinedForGoodOnlyIfAsked) {
    ThreadPool none(0);
    none.AddJob([this] { ran += 'n'; });
    EXPECT_EQ(1, none.outstandingJobs());
    none.JoinAll(false);
    add('a');
    blocked.release();
    pool.JoinAll(true);
    EXPECT_EQ("a", ran);
    add('b');
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
