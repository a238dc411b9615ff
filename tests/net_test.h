/* Ground for the tests of the socket library. Calls of the C library are stood in for: pauses are
 * counted instead of slept, calls can be made to fail or to come up short, and a peer can act in
 * the very moment the library waits, so that nothing here depends on timing. */
#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <initializer_list>
#include <netinet/in.h>
#include <string>
#include <vector>

// Besides failing with an errno, what a scripted call may do.
static constexpr int PASS = 0;          // reach the system
static constexpr int GIVE_NOTHING = -1; // return 0
static constexpr int SHORT = -2;        // reach the system with a size of 1

/** What happened since the start of the case, or since forget_calls. */
struct SEEN_T {
    int pauses;               // calls of usleep
    long paused_us;           // sum of their arguments
    unsigned slept_s;         // sum of the arguments of sleep
    std::vector<long> waits;  // time limit of each select in microseconds, -1 for none
    std::vector<size_t> sent; // size of each send
};
extern SEEN_T seen;

/** What a peer does at each pause, and at each wait (for reading or not); may be empty. */
extern std::function<void()> on_pause;
extern std::function<void(bool reading)> on_wait;

/** Forgets what was seen, and says what the next calls of socket, connect, listen, accept,
 * select, send, sendto, recv and recvfrom do, in order; then all pass. A failing select uses up
 * half its time. */
void script_calls(const std::vector<int> &outcomes);

/** How many of the scripted calls were not made. */
int scripted_calls_left();

/** Stands for a host that does not resolve: no label is that long, so nobody is asked. */
extern const std::string no_host;

/** 127.0.0.1 and a port. */
sockaddr_in loopback(int port);

/** Whether this process is alone in its namespaces, and may change hosts, routes and low ports. */
bool in_own_namespaces();

/** Lets the name "twofaces" stand for ::1 and 127.0.0.1, in this order. */
void name_two_faces();

/** Connects two sockets over 127.0.0.1, both non-blocking; kind as for vx_create_sock, 1 or 2. */
void connect_pair(int kind, int *ours, int *peer);
void close_all(std::initializer_list<int *> fds);

/** All that waits on a non-blocking socket. */
std::string received(int fd);

/** Every case must leave as many open descriptors as it found, and make all its scripted calls. */
class NetTest : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

private:
    long open_before = 0;
};
