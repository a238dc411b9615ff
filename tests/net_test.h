/* Ground for the tests of the socket library: pauses are counted instead of slept, calls can be
 * made to fail, and every case must leave as many open descriptors as it found. */
#pragma once

#include <cstdint>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <vector>

// Besides an errno, what a scripted call may do.
static constexpr int PASS = 0;          // reach the system
static constexpr int GIVE_NOTHING = -1; // return 0

// Since the start of the case: calls of usleep and sleep, and the sums of their arguments.
struct PAUSES_T {
    int short_ones;
    long short_us;
    int long_ones;
    unsigned long_s;
};
extern PAUSES_T pauses;

/** Says what the next calls of send, sendto, recv and recvfrom do, in order; then all pass. */
void script_calls(const std::vector<int> &outcomes);
/** The same for so many calls with one outcome. */
void script_calls(int count, int outcome);
/** How many of the scripted calls were not made. */
int scripted_calls_left();

/** 127.0.0.1 and a port. */
sockaddr_in loopback(int port);

/** An IPv4 datagram socket on a free port of 127.0.0.1, non-blocking; the port goes to *port. */
int bound_datagram_socket(int *port);

class NetTest : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

private:
    int open_before = 0;
};
