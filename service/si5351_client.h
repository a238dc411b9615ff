/* The client calls: commands to the clock service from another program on the same board.
 *
 * Every call sends one datagram to 127.0.0.1 port 11000 through a socket that the caller made and
 * keeps: a datagram socket for IPv4, as vx_create_sock(2) gives, not connected. One socket serves
 * any number of calls; threads that call at once take one each. Nothing is kept between calls and
 * no argument is checked: the service judges channel, rate and FIFO numbers. What it refuses shows
 * in its own log, and a refused rate in its listing as well.
 *
 * Failures are logged at ERROR to the log4cpp category "CATEGORY"; the caller sets log4cpp up.
 */
#pragma once

#ifndef __cplusplus
#error "C++ only: a C program sends the datagrams that docs/protocol.md describes"
#endif

#include <cstdint>

/**
 * Sets a channel's sample rate, which also puts its trim back to the centre, and waits until the
 * service answers. The first datagram that arrives counts as the answer; its content is not looked
 * at. Without a service the call waits forever: it sends again every 2 seconds, each time after
 * logging "get 5351 set param response timeout".
 * Late answers of the service, to an earlier call that had to send again, are dropped first. An
 * answer of more than 64 bytes is dropped too, after a message of vx_udp_recv on standard output.
 * @param sock     the caller's socket, a descriptor of 1 to 1023
 * @param ch       channel: 1 hdmi, 2 analog, 3 earc/spdif
 * @param rate_hz  44100, 48000, 88200, 96000, 176400 or 192000 Hz
 * @return 0 answered: the service has received the command, but the clock need not run at the rate
 *         yet, nor has the rate been accepted;
 *         -1 a send failed, or an answer on this descriptor could not be waited for; logged as
 *         "send VX_SI5351_SET_PARAM to<127.0.0.1:11000> fd:%d error:%s" with the descriptor and the
 *         text of errno
 */
int send_set_param(int sock, int ch, int rate_hz);

/**
 * Trims a channel's clock one step faster, for a FIFO that runs full. A step is 4 to 17 ppm by the
 * rate, 15.6 ppm at 48000 Hz, and the range ends 24 steps off the centre. Does not wait.
 * @param sock  the caller's socket
 * @param ch    channel, 1 to 3
 * @return 0 sent, -1 not sent, logged as for send_set_param with VX_SI5351_SET_INC
 */
int set_increase(int sock, int ch);

/** Trims one step slower, for a FIFO that runs empty; the log names VX_SI5351_SET_DEC. Otherwise as
 * set_increase. */
int set_decrease(int sock, int ch);

/** Trims one step towards the centre, from either side; at the centre nothing happens. The log
 * names VX_SI5351_SET_RESET. Otherwise as set_increase. */
int set_reset(int sock, int ch);

/**
 * Reports a channel's FIFO to the status file /tmp/genlock.json, and has it rewritten. Does not
 * wait.
 * @param sock       the caller's socket
 * @param ch         channel, 1 to 3
 * @param fifo_size  what the FIFO holds at most, in a unit of the caller's choice
 * @param fifo_fill  what it holds now, in the same unit
 * @return 0 sent, -1 not sent, logged as for send_set_param with VX_FIFO_REPORT
 */
int set_fifo_status(int sock, int ch, int fifo_size, int fifo_fill);

/* The calls below never wait longer than they are told to. The time limit counts for the whole
 * call; the caller's socket is a descriptor of 1 to 1023; a service that is not busy takes 40 ms
 * for a listing. Only datagrams from the service's address and port are looked at, those of others
 * are dropped. */

/* A channel as the service lists it. */
struct SI5351_LISTED_T {
    int32_t rate_hz; // sample rate; a refused one stays here until a supported one is set
    int32_t value; // fraction numerator of the divider, larger for a slower clock; 0: rate refused
    char status[16]; // word of the last command to it: "set param", "increase", "decrease", "reset"
};
inline constexpr int SI5351_LISTED_COUNT = 3;

/**
 * Asks the service for its three channels. All three lines of one answer must come.
 * @param sock      the caller's socket
 * @param listed    room for SI5351_LISTED_COUNT records, filled with channels 1, 2 and 3 in this
 *                  order; unchanged on failure
 * @param limit_ms  wait at most so long, in milliseconds
 * @return 0 listed; -1 a null listed (not logged), not sent, logged as for send_set_param with
 * VX_SI5351_DUMP, or no whole answer in time, logged as "get 5351 dump response timeout"
 */
int list_channels(int sock, SI5351_LISTED_T *listed, int limit_ms);

/**
 * Sets a channel's sample rate as send_set_param, but sends once, and asks for a listing afterwards
 * to see what became of it.
 * Refused means: the rate or the channel is not supported, or the console has switched chip writes
 * off and the channel does not stand at the centre of this rate anyway.
 * @param sock      the caller's socket
 * @param ch        channel, 1 to 3
 * @param rate_hz   sample rate in Hz
 * @param limit_ms  wait at most so long, in milliseconds
 * @return 0 set;
 *         1 refused, logged as "set 5351 param refused ch:%d rate:%d";
 *         -1 not sent, logged as for send_set_param, or no answer in time, logged as "get 5351 set
 *         param response timeout" or "get 5351 dump response timeout": it may still be set later
 */
int set_param_within(int sock, int ch, int rate_hz, int limit_ms);
