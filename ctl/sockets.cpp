/* Reaching the service, or telling why not. */
#include "ctl/sockets.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "net/vx_net_api.h"
#include "service/protocol.h"

static int sock = -1; // written once

int client_socket()
{
    if (sock > 0) return sock;
    sock = vx_create_sock(VX_SOCK_DATAGRAM);
    if (sock < 1)
        (void)fail(NOT_SO, "no socket: %s; is memory or a limit of this user used up?",
                   strerror(errno));
    return sock;
}

unsigned long find_service_socket()
{
    FILE *sockets = fopen("/proc/net/udp", "re");
    if (sockets == nullptr) return 0;
    char line[256];
    unsigned long inode = 0;
    while (inode == 0 && fgets(line, sizeof(line), sockets) != nullptr) {
        unsigned address = 0;
        unsigned port = 0;
        unsigned long found = 0;
        const int items = sscanf(line, "%*d: %x:%x %*x:%*x %*x %*x:%*x %*x:%*x %*x %*d %*d %lu",
                                 &address, &port, &found);
        const bool is_local = address == htonl(INADDR_LOOPBACK) || address == htonl(INADDR_ANY);
        if (items == 3 && is_local && port == SERVICE_PORT) inode = found;
    }
    (void)fclose(sockets); // only read from
    return inode;
}

RESULT_E fail_no_service()
{
    if (find_service_socket() == 0) {
        return fail(NO_SERVICE, "no service at %s:%d; start it: systemctl start si5351_app",
                    SERVICE_IP, SERVICE_PORT);
    }
    return fail(NO_SERVICE,
                "port %d is in use, but the program that uses it does not answer like the service; "
                "ss -ulpn tells what it is, systemctl restart si5351_app starts the service anew",
                SERVICE_PORT);
}
