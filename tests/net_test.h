/* Ground for the tests of the socket library. Calls of the C library are stood in for: pauses are
 * counted instead of slept, calls can be made to fail or to come up short, and a peer can act in
 * the very moment the library waits, so that nothing here depends on timing. */
#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <string>
#include <vector>

#include "net/vx_net_api.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

// Besides failing with an errno, what a scripted call may do.
static constexpr int PASS = 0;          // reach the system
static constexpr int GIVE_NOTHING = -1; // return 0
static constexpr int SHORT = -2;        // reach the system with a size of 1

/** What happened since the last script_calls. */
struct SEEN_T {
    long paused_us;          // sum of the arguments of usleep
    unsigned slept_s;        // the same of sleep
    std::vector<long> waits; // time limit of each select in microseconds, -1 for none
};
extern SEEN_T seen;

/** What a peer does at each wait (for reading or not); may be empty. */
extern std::function<void(bool reading)> on_wait;

/** Says what the next calls of socket, connect, listen, accept, select, poll, send, sendto, recv
 * and recvfrom do, in order; then all pass. A failing select uses up half its time. Calls of the
 * script before that were not made fail the test. */
void script_calls(const std::vector<int> &outcomes);

/** Stands for a host that does not resolve: no label is that long, so nobody is asked. */
extern const std::string no_host;

/** Whether this process is alone in its namespaces, and may set routes and use low ports. Then the
 * host name "twofaces" stands for ::1 and 127.0.0.1, in this order. */
bool in_own_namespaces();

sockaddr_in loopback(int port);

/** Connects two local sockets, where what one sends is at the other at once; neither blocks.
 * @param kind  VX_SOCK_STREAM or VX_SOCK_DATAGRAM */
void connect_pair(int kind, int *ours, int *peer);
template <typename... FDS> void close_all(FDS... fds)
{
    (vx_close_socket(fds), ...);
}

/** The datagram, or the bytes of a stream, that wait on a non-blocking socket. */
std::string received(int fd);

/** Every case must leave as many open descriptors as it found, and make all its scripted calls. */
struct NetTest : testing::Test {
    void SetUp() override;
    void TearDown() override;
};
