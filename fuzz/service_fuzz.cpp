/* Datagrams to the command service, over a real socket, and what the engine must make of them.
 * An input is a row of datagrams, each a byte with its length (0 to 95; 64 are the most that the
 * service takes) and its bytes. */
#include <arpa/inet.h>
#include <cstring>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

#include "fuzz/engine_fuzz.h"
#include "net/vx_net_api.h"
#include "service/command_service.h"
#include "tests/engine_model.h"
#include "trim/record_text.h"

static constexpr size_t LENGTH_LIMIT = 95;
static constexpr size_t DATAGRAM_LIMIT = 64; // in one input

static SERVICE_T service;
static int client = -1;

static void open_sockets()
{
    if (client >= 0) return;
    (void)freopen("/dev/null", "w", stdout); // the refusals of datagrams too large
    service.sock = udp_socket_create("127.0.0.1", 0);
    sockaddr_in own = {};
    socklen_t size = sizeof(own);
    require(getsockname(service.sock, reinterpret_cast<sockaddr *>(&own), &size) == 0, "own port");
    client = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    require(connect(client, reinterpret_cast<sockaddr *>(&own), sizeof(own)) == 0, "client");
}

static std::string take_reply()
{
    char reply[512];
    const ssize_t length = recv(client, reply, sizeof(reply), MSG_DONTWAIT);
    return {reply, static_cast<size_t>(length > 0 ? length : 0)};
}

static std::string take_dump()
{
    std::string dump;
    for (int datagram = 0; datagram < 4; datagram++)
        dump += take_reply();
    return dump;
}

static void apply(MODEL_T *model, const SI5351_MSG_T &message)
{
    apply_command(model, message.cmd, message.ch, message.arg[0], message.arg[1]);
}

static void serve(std::string_view bytes, MODEL_T *model, SI5351_MSG_T *held)
{
    const size_t length = bytes.size();
    require(send(client, bytes.data(), length, 0) == static_cast<ssize_t>(length), "sent");
    serve_datagram(&service);
    if (length > 0 && length <= sizeof(*held)) {
        memcpy(held, bytes.data(), length);
        apply(model, *held);
        if (held->cmd == VX_SI5351_SET_PARAM)
            require_same(take_reply(), {reinterpret_cast<const char *>(held), sizeof(*held)},
                         "echo");
        if (held->cmd == VX_SI5351_DUMP) require_same(take_dump(), model_dump(*model), "dump");
    }
    require_same(take_reply(), "", "unasked reply");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    open_sockets();
    reset_engine();
    const int sock = service.sock;
    service = {};
    service.sock = sock;
    MODEL_T model;
    SI5351_MSG_T held = {};
    std::string_view rest(reinterpret_cast<const char *>(data), size);
    for (size_t sent = 0; !rest.empty() && sent < DATAGRAM_LIMIT; sent++) {
        const auto length = static_cast<uint8_t>(rest[0]) % (LENGTH_LIMIT + 1);
        serve(rest.substr(1, length), &model, &held);
        rest.remove_prefix(std::min(rest.size(), length + 1));
    }
    std::string records = "5351 info\n";
    for (int32_t ch = 1; ch <= CHANNEL_COUNT; ch++) {
        char line[RECORD_LINE_SIZE];
        const size_t length =
            format_record(line, copy_state().records[static_cast<size_t>(ch - 1)]);
        records.append(line, length);
    }
    require_same(records, model_dump(model), "records");
    require_same(chip_registers(), model_registers(model), "registers");
    return 0;
}
