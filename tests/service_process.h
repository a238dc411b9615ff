/* Shared by the tests that talk to a running service: the process, its log and its command port. */
#pragma once

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <sys/types.h>
#include <vector>

#include "sim/i2c_bus_sim.h"
#include "tests/engine_model.h"
#include "tests/texts.h"

struct SERVICE_PROCESS_T {
    pid_t pid;
    std::string output; // path of what it prints and logs, both streams
};

/* Starts a program with its output going to a file of its own in a folder. */
SERVICE_PROCESS_T start_service(const std::string &program, const std::string &folder = "/tmp",
                                const std::vector<std::string> &arguments = {});

/* Kills the process; fails the test when it had ended before by itself. */
void stop_service(const SERVICE_PROCESS_T &service);

/* All it has printed and logged. */
std::string read_output(const SERVICE_PROCESS_T &service);

/* Waits until a text has appeared so many times, at most 20 s; fails the test when it does not. */
void await_output(const SERVICE_PROCESS_T &service, const std::string &text, int times = 1);

/* Waits until the command port is bound, at most 20 s; fails the test when it is not. */
void await_port();

/* A client socket; its port is any free one. */
int open_client();

/* Sends bytes, or words in the machine's byte order, to the command port. */
void send_bytes(int client, const std::string &bytes);
void send_words(int client, const std::vector<uint32_t> &words);

/* The next reply, at most wait_ms later; empty when none comes. */
std::string receive_reply(int client, int wait_ms = 20000);

/* The text of the dump reply. */
std::string fetch_dump(int client);

/* Writes into the console's pipe and waits until it is read; what it does may still be under way.
 */
void type_text(const std::string &text);

/* Datagrams that found the buffer of the command socket full; -1 while it is not bound. */
long count_drops();

/* The simulated chip and its switches for faults, shared with the service; null on failure. */
SIM_FILE_T *map_chip_file();

/* The 24 registers of its output dividers, as "FF FF 10". */
std::string chip_registers();

/* CPU time that a process has used, in ticks of 10 ms. */
long cpu_ticks(pid_t pid);

/* A fixture: the service over the simulated chip, a client, and what the service must make of the
 * client's commands. */
struct RUNNING_SERVICE_T : testing::Test {
    void SetUp() override;
    void TearDown() override;

    /* Sends a command, applies it to the model and takes the echo of a set-param. */
    void command(uint32_t cmd, int32_t ch, int32_t arg0 = 0, int32_t arg1 = 0);

    /* Compares records and registers with the model. */
    void expect_agreement() const;

    SERVICE_PROCESS_T process = {};
    int client = open_client();
    MODEL_T model;
};
