/* Local sockets: paths short and long, stale files, servers that are not there. */
#include <cerrno>
#include <filesystem>
#include <fstream>

#include "net/vx_net_api.h"
#include "tests/net_test.h"

using NetLocal = NetTest;

TEST_F(NetLocal, PathsReachTheLatestServer)
{
    for (const size_t len : {40, 107, 120}) {
        const std::string path = "/tmp/" + std::string(len - 5, static_cast<char>('a' + len % 26));
        const std::string file = path.substr(0, 107);
        std::ofstream(file) << "a plain file in the way";
        int first = vx_create_local_tcp_server(path.c_str());
        int second = vx_create_local_tcp_server(path.c_str());
        EXPECT_TRUE(std::filesystem::is_socket(file)) << "cut elsewhere than after 107";
        int client = vx_local_tcp_connect(path.c_str());
        ASSERT_EQ(vx_set_sock_noblock(first) + vx_set_sock_noblock(second), 0);
        EXPECT_EQ(accept(first, nullptr, nullptr), -1);
        int accepted = accept(second, nullptr, nullptr);
        EXPECT_GT(accepted, 0);

        int server = vx_create_local_udp_server(path.c_str());
        int sender = vx_create_sock(4);
        char buf[16];
        EXPECT_EQ(vx_local_udp_send(sender, path.c_str(), "abcde", 5), 5);
        EXPECT_EQ(vx_local_udp_recv(server, buf, 3), 3);
        script_calls({SHORT});
        EXPECT_EQ(vx_local_udp_send(sender, path.c_str(), "abcde", 5), -1) << "sent in part";
        vx_close_socket(&server);
        EXPECT_EQ(vx_local_udp_send(sender, path.c_str(), "abcde", 5), -1) << "nobody there";
        close_all({&client, &first, &second, &accepted, &sender});
    }
}

TEST_F(NetLocal, FailuresLeaveNothingOpen)
{
    for (const char *path : {static_cast<const char *>(nullptr), "/tmp/none/of/this"}) {
        EXPECT_EQ(vx_create_local_tcp_server(path) + vx_create_local_udp_server(path), -2);
        EXPECT_EQ(vx_local_tcp_connect(path) + vx_local_udp_send(1, path, "a", 1), -2);
    }
    CaptureStdout();
    int next = vx_create_sock(-3); // tells the descriptor that comes next
    const std::string printed = "dbg line " + std::to_string(next) + " 1024\n";
    vx_close_socket(&next);
    script_calls({EMFILE, EMFILE, PASS, EOPNOTSUPP});
    EXPECT_EQ(vx_create_local_tcp_server("/tmp/a") + vx_local_tcp_connect("/tmp/a"), -2);
    EXPECT_EQ(vx_create_local_tcp_server("/tmp/a"), -1);
    EXPECT_EQ(GetCapturedStdout(), printed);
}
