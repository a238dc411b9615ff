/* Receiving the datagrams of the command protocol. */
#include "service/message.h"

#include <sys/ioctl.h>

#include "net/vx_net_api.h"

static constexpr int MESSAGE_SIZE = sizeof(SI5351_MSG_T);

/* vx_udp_recv refuses a datagram larger than a message and leaves it first in the queue. */
static void drop_oversized(int sock)
{
    int size = 0;
    if (ioctl(sock, FIONREAD, &size) != 0 || size <= MESSAGE_SIZE) return;
    char byte = 0;
    (void)vx_udp_recv2(sock, &byte, sizeof(byte), 0, nullptr, nullptr); // the rest is cut off
}

int receive_message(int sock, SI5351_MSG_T *message, sockaddr_in *sender)
{
    sender->sin_family = AF_UNSPEC;
    socklen_t sender_size = sizeof(*sender);
    const int length = vx_udp_recv(sock, message, MESSAGE_SIZE, 0, sender, &sender_size);
    if (length > 0) return length;
    // With a sender it was an empty datagram, taken already. Without one, nothing was taken.
    if (sender->sin_family == AF_UNSPEC) drop_oversized(sock);
    return length;
}
