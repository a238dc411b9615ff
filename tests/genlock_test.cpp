/* The follower where its calls are the matter: refusals, and what it keeps of a stream that was
 * interrupted. How well it follows is measured by the rig. */
#include <cmath>
#include <gtest/gtest.h>

#include "genlock/genlock.h"

TEST(Genlock, RefusesWhatItCannotFollow)
{
    GENLOCK_T lock = {};
    EXPECT_EQ(genlock_init(nullptr, 48000, 4096, 0), -1);
    EXPECT_EQ(genlock_init(&lock, 32000, 4096, 0), -1);
    EXPECT_EQ(genlock_init(&lock, 48000, 0, 0), -1);
    EXPECT_EQ(lock.rate, nullptr) << "touched by a refusal";
    ASSERT_EQ(genlock_init(&lock, 48000, 1, 0), 0);
    lock.position = 3;
    EXPECT_EQ(genlock_set_rate(&lock, 47999), -1);
    EXPECT_EQ(lock.position, 3) << "touched by a refused rate";
}

/* At 48000 Hz the centre is 253600, 4.58 ppm above nominal, and a step 1200, 15.63 ppm. */
TEST(Genlock, TakesOverTheNumeratorOfTheService)
{
    // clang-format off
    static const struct { const char *fault; int position, learned, step, value, want; double ppm; } rows[] = {
        {"sign turned round",                  0,    0, 1200, 251200,   2,   35.83},
        {"slow end refused",                   0,    0, 1200, 282400, -24, -370.28},
        {"beyond the end taken",               3,    0, 1200, 282412,   3,   51.46},
        {"a refused rate's 0 taken",           3,    0, 1200,      0,   3,   51.46},
        {"learned centre taken for a step",    3,    0, 1200, 253612,   0,    4.42},
        {"learned centre forgotten",           0,   36, 1200, 253600,   0,    4.58},
        {"centre at a step taken for it",      0, 1200, 1200, 254800,   0,  -11.05},
        {"step of the console not used",       0,    0,  600, 253000,   1,   12.39},
        {"divided by a step of 0",             0,    0,    0, 253600,   0,    4.58},
    };
    // clang-format on
    for (const auto &row : rows) {
        GENLOCK_T lock = {};
        ASSERT_EQ(genlock_init(&lock, 48000, 4096, 0), 0);
        lock.position = row.position;
        lock.learned = row.learned;
        lock.step = row.step;
        genlock_set_value(&lock, row.value);
        EXPECT_EQ(lock.position, row.want) << row.fault;
        EXPECT_NEAR(genlock_clock_ppm(&lock), row.ppm, 0.01) << row.fault;
    }
}

/* A stream whose clock is where the follower put it. */
struct STREAM_T {
    GENLOCK_T lock;
    double rate_hz, ppm, level, now;
    int steps;
};

static void flow(STREAM_T *stream, double seconds)
{
    for (auto ticks = std::lround(seconds * 100); ticks > 0; ticks--) {
        stream->now += 0.01;
        const double off_ppm = stream->ppm - genlock_clock_ppm(&stream->lock);
        stream->level += stream->rate_hz * 1e-6 * off_ppm * 0.01;
        const auto fill = static_cast<int32_t>(std::lround(stream->level));
        stream->steps += std::abs(genlock_update(&stream->lock, fill, stream->now));
    }
}

/* The clock stands, whatever is wanted: the FIFO stays as it is. */
static void stand_still(STREAM_T *stream, int32_t fill, double seconds)
{
    for (auto ticks = std::lround(seconds * 100); ticks > 0; ticks--) {
        stream->now += 0.01;
        stream->steps += std::abs(genlock_update(&stream->lock, fill, stream->now));
    }
}

TEST(Genlock, KeepsWhatIsStillTrue)
{
    using DISTURB = void (*)(STREAM_T * stream);
    // The source 40 ppm fast; its error after 2 s, the steps by then, and locked again after so
    // long.
    // clang-format off
    static const struct { const char *fault; DISTURB disturb; double ppm; int steps; double lock_s; } rows[] = {
        {"silence taken for a fill that stands",
         [](STREAM_T *s) { s->now += 10; s->level += 400; }, 5, 30, 60},
        {"time that runs back taken for a silence without end",
         [](STREAM_T *s) { s->now -= 1000; }, 5, 1, 10},
        {"a time that is no number kept for ever",
         [](STREAM_T *s) { (void)genlock_update(&s->lock, 2048, NAN); }, 5, 1, 10},
        {"told slip taken for another source",
         [](STREAM_T *s) { s->level += 400; genlock_slipped(&s->lock); }, 5, 30, 60},
        {"jump never believed",
         [](STREAM_T *s) { s->level += 400; }, 60, 30, 60},
        {"empty FIFO followed",
         [](STREAM_T *s) { stand_still(s, 0, 60); }, 5, 1, 10},
        {"full FIFO followed",
         [](STREAM_T *s) { stand_still(s, 4096, 60); }, 5, 1, 10},
        {"source forgotten with the rate",
         [](STREAM_T *s) { s->rate_hz = 96000; (void)genlock_set_rate(&s->lock, 96000); }, 5, 8, 15},
        {"new target taken for a jump",
         [](STREAM_T *s) { s->lock.target += 100; }, 5, 30, 60},
    };
    // clang-format on
    for (const auto &row : rows) {
        STREAM_T stream = {{}, 48000, 40, 2048, 1000, 0};
        ASSERT_EQ(genlock_init(&stream.lock, 48000, 4096, 0), 0);
        flow(&stream, 60);
        ASSERT_TRUE(stream.lock.locked) << row.fault;
        stream.steps = 0;
        row.disturb(&stream);
        EXPECT_EQ(stream.steps, 0) << row.fault;
        flow(&stream, 2);
        EXPECT_NEAR(stream.lock.source_ppm, 40, row.ppm) << row.fault;
        EXPECT_LE(stream.steps, row.steps) << row.fault;
        flow(&stream, row.lock_s - 2);
        EXPECT_TRUE(stream.lock.locked) << row.fault;
        EXPECT_LT(std::fabs(stream.lock.fill_off), 4 * stream.lock.band) << row.fault;
    }
}

TEST(Genlock, RemembersForTwoMinutesHowFarItWasOff)
{
    STREAM_T stream = {{}, 48000, 40, 2348, 0, 0};
    ASSERT_EQ(genlock_init(&stream.lock, 48000, 4096, 0), 0);
    flow(&stream, 70);
    EXPECT_GT(stream.lock.wander, 250) << "gone with its minute";
    flow(&stream, 170);
    EXPECT_LT(stream.lock.wander, 80) << "never forgotten";
}
