/* The command service under more than it can take at once. */
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/engine_model.h"
#include "tests/service_process.h"

using Load = RUNNING_SERVICE_T;

/* The numbers of the set-params in the log, which a refused channel and any rate make possible. */
static std::vector<uint32_t> handled_numbers(const SERVICE_PROCESS_T &process)
{
    static const std::string start = "] set param ch:9 rate:";
    const std::string log = read_output(process);
    std::vector<uint32_t> numbers;
    for (size_t at = 0; (at = log.find(start, at)) != std::string::npos; at += start.size())
        numbers.push_back(static_cast<uint32_t>(std::stoul(log.substr(at + start.size(), 10))));
    return numbers;
}

TEST_F(Load, ABurstLosesOnlyWhatTheKernelDropped)
{
    static constexpr uint32_t BURST = 5000; // some 280 fit the buffer
    send_words(client, {0x1239});           // keeps the service busy for 30 ms
    for (uint32_t number = 1; number <= BURST; number++)
        send_words(client, {0x1234, 9, number, 0});
    std::vector<uint32_t> handled;
    for (int poll = 0; poll < 400; poll++) {
        handled = handled_numbers(process);
        if (handled.size() + static_cast<size_t>(count_drops()) >= BURST) break;
        usleep(50000);
    }
    EXPECT_EQ(handled.size() + static_cast<size_t>(count_drops()), BURST);
    EXPECT_GT(count_drops(), 0) << "no burst for this buffer";
    EXPECT_GT(handled.size(), 100U);
    for (size_t i = 1; i < handled.size(); i++)
        ASSERT_LT(handled[i - 1], handled[i]) << "twice or out of order";
}

/* So a set-param waits 30 ms for each dump before it, and for none behind it. */
TEST_F(Load, ASetParamWaitsForTheDumpsBeforeItOnly)
{
    for (const uint32_t cmd : {0x1239U, 0x1239U, 0x1239U, 0x1234U, 0x1239U, 0x1239U})
        send_words(client, {cmd, 2, 44100, 0});
    std::string replies;
    for (int reply = 0; reply < 12; reply++)
        replies += receive_reply(client);
    EXPECT_EQ(replies, model_dump(model) + model_dump(model) + model_dump(model));
    EXPECT_EQ(receive_reply(client).size(), 64U);
    apply_command(&model, 0x1234, 2, 44100, 0);
    replies.clear();
    for (int reply = 0; reply < 8; reply++)
        replies += receive_reply(client);
    EXPECT_EQ(replies, model_dump(model) + model_dump(model));
}
