#!/usr/bin/python3
"""Holds the documents against the sources and a running service: lists, numbers, examples, schema.
Usage: docs_test.py SERVICE_OVER_THE_SIMULATED_CHIP"""
import json
import os
import re
import socket
import struct
import subprocess
import sys
import time
import unittest
from fractions import Fraction
from pathlib import Path

import jsonschema

PROJECT = Path(__file__).resolve().parent.parent
LOG = Path("/tmp/docs_test.log")
STATUS = Path("/tmp/genlock.json")
PIPE = Path("/tmp/si5351")


def read(name):
    return (PROJECT / name).read_text()


def read_blocks(name, language):
    """The fenced blocks of a language, in order; "" for plain ones."""
    blocks = re.findall(r"^```(\w*)\n(.*?)^```$", read(name), re.M | re.S)
    return [text for found, text in blocks if found == language]


def read_rows(name, heading):
    """The cells of a table, found by the first cell of its heading."""
    table = read(name).split(f"\n| {heading} |", 1)[1].split("\n\n", 1)[0]
    return [[cell.strip() for cell in row.strip("|").split("|")]
            for row in table.strip().split("\n")[2:]]


def read_rates():
    """The table of rates: rate, mult, num, div, step."""
    rows = re.findall(r"^    \{ *(\d+), +(\d+), (\d+), +(\d), +(\d+)\},$", read("chip/rates.h"), re.M)
    return [[int(cell) for cell in row] for row in rows]


def run(command):
    return subprocess.run(["bash", "-c", command], check=True, capture_output=True, text=True,
                          cwd=PROJECT, timeout=20).stdout


class Lists(unittest.TestCase):
    """What is entered in a source must be entered in the documents too."""

    def test_every_console_keyword_stands_in_the_documents(self):
        rows = re.findall(r'^    \{"(\w+)", +(?:"(\w+)"|nullptr),', read("console/console.cpp"), re.M)
        self.assertGreater(len(rows), 7)
        keywords = {word for row in rows for word in row if word}
        cells = " ".join(row[0] for row in read_rows("docs/console.md", "Text"))
        self.assertEqual(keywords - set(re.findall(r"`([a-z]+)", cells)), set())

    def test_every_command_code_stands_in_the_documents(self):
        codes = re.findall(r"= (0x\d+),", read("trim/commands.h"))
        self.assertGreater(len(codes), 5)
        self.assertEqual([row[0] for row in read_rows("README.md", "Code")], codes)
        self.assertEqual(read_rows("docs/protocol.md", "Offset")[0][2:], codes)

    def test_every_rate_stands_in_the_documents_with_its_frequencies(self):
        rates = read_rates()
        clocks = read_rows("docs/bring-up.md", "Rate")
        dividers = read_rows("docs/status-file.md", "Rate")
        self.assertGreater(len(rates), 5)
        for rows in (rates, clocks, dividers):
            self.assertEqual([int(row[0]) for row in rows], [row[0] for row in rates])
        for (rate, mult, num, div, step), clock, divider in zip(rates, clocks, dividers):
            def output(steps):
                ratio = Fraction(mult * 1048575 + num + steps * step, 1048575)
                return 900000000 / ratio / 2**div
            shown = [f"{float(hz):.2f}" for hz in (output(0), output(-24), output(24))]
            self.assertEqual([clock[1], clock[4], clock[5]], shown)
            off = float(output(0) / (128 * rate) - 1) * 1e6
            moved = float(output(-1) / output(0) - 1) * 1e6
            self.assertAlmostEqual(float(clock[2].split()[0]), off, delta=0.006)
            self.assertAlmostEqual(float(clock[3].split()[0]), moved, delta=0.006)
            self.assertEqual(divider[1:], [str(num), f"{mult} × 1048575 + {num}", str(step)])

    def test_address_and_crystal_are_the_same_everywhere(self):
        address = re.search(r"CHIP_ADDRESS = (0x\w+);", read("chip/i2c_access.h"))[1]
        for name in ("sim/i2c_bus_sim.cpp", "ctl/chip.cpp", "README.md"):
            self.assertTrue(address in read(name), name)
        self.assertTrue(address[2:] in read("docs/bring-up.md"), address)
        crystal = re.search(r"CRYSTAL_HZ = (\d+)000000;", read("chip/outputs.h"))[1]
        self.assertTrue(f"CRYSTAL_HZ = {crystal}000000;" in read("decode/output_clock.cpp"), crystal)
        for name in ("README.md", "docs/bring-up.md"):
            self.assertTrue(f"{crystal} MHz crystal" in read(name), name)

    def test_every_error_line_is_explained(self):
        """Every literal part of a message of the service must stand in the list."""
        explained = read("docs/bring-up.md")
        inner = {"filepath is null", "setReg invalid ch:%d ", "invalid freq:0 for ch:%d",
                 "invalid denom:0 for registers from %u"}  # for programs that call the engine
        found = set()
        for folder in ("entry", "service", "console", "trim", "chip"):
            for source in (PROJECT / folder).glob("*.cpp"):
                text = re.sub(r'"\s*\n\s*"', "", source.read_text())
                found |= set(re.findall(r'LOG_ERROR\(\s*"([^"]*)"', text))
        self.assertGreater(len(found - inner), 10)
        for message in found - inner:
            for part in re.split(r"%\w+|\\n|[<>\[\]]", message):
                self.assertIn(part.strip(), explained, message)


class Examples(unittest.TestCase):
    """Pasted beside a service that has just started."""

    def setUp(self):
        for path in (STATUS, PIPE, Path("/tmp/si5351.txt")):
            path.unlink(missing_ok=True)
        with LOG.open("w") as log:
            self.service = subprocess.Popen([PROGRAM], stdout=log, stderr=log)
        self.sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.sock.settimeout(20)
        deadline = time.monotonic() + 20
        while " 0100007F:2AF8 " not in Path("/proc/net/udp").read_text() or not PIPE.is_fifo():
            self.assertLess(time.monotonic(), deadline, LOG.read_text())
            time.sleep(0.01)

    def tearDown(self):
        self.assertIsNone(self.service.poll(), "the service ended by itself")
        self.service.kill()
        self.service.wait()
        self.sock.close()

    def send(self, *words):
        self.sock.sendto(struct.pack(f"={len(words)}i", *words), ("127.0.0.1", 11000))

    def fetch_listing(self):
        """All commands before it are done by then."""
        self.send(0x1239)
        return "".join(self.sock.recv(256).decode() for _ in range(4))

    def test_readme(self):
        commands, status, console = [block for block in read_blocks("README.md", "sh")
                                     if re.search("/dev/udp|genlock.json|> /tmp/si5351", block)]
        self.assertIn("\nch:2 rate:44100 value:753786 status:reset\n", run(commands + "true"))
        self.assertTrue(run(status).startswith(status.split("\n# ")[1].split("...")[0]))
        self.assertRegex(run(console), "ch:2 .* count:-1 .*\nch:3 rate:96000 .*\n5351 step conf\n")
        code = read_blocks("README.md", "cpp")[0].split("\n\n")
        function = f"int follow(int fifo_size, int fifo_fill) {{ {code[1]} return 0; }}"
        Path("/tmp/readme.cpp").write_text(code[0] + "\nint follow(int, int);\n" + function)
        run("c++ -std=c++17 -Wall -Werror -fsyntax-only -I. /tmp/readme.cpp")

    def test_protocol(self):
        start, expected = read_blocks("docs/protocol.md", "")
        self.assertEqual(self.fetch_listing(), start)
        Path("/tmp/example.c").write_text(read_blocks("docs/protocol.md", "c")[0])
        Path("/tmp/example.py").write_text(read_blocks("docs/protocol.md", "python")[0])
        run("cc -std=c11 -D_DEFAULT_SOURCE -Wall -Wextra -Werror -o /tmp/example /tmp/example.c")
        for example in ("/tmp/example", "python3 /tmp/example.py"):
            self.assertEqual(run(example), expected, example)

    def test_console(self):
        """The dump right after the start."""
        text = run("echo dump > /tmp/si5351; sleep 0.2; cat /tmp/si5351.txt")
        self.assertEqual([text], read_blocks("docs/console.md", ""))

    def test_status_file_and_schema(self):
        schema = json.loads(read("docs/genlock.schema.json"))
        jsonschema.Draft7Validator.check_schema(schema)
        validator = jsonschema.Draft7Validator(schema)
        self.send(0x1238, 1, 4096, 1024)
        self.fetch_listing()
        example = read_blocks("docs/status-file.md", "json")[0]
        self.assertEqual(STATUS.read_text(), example.replace("\n", ""))
        self.send(0x1234, 2, 32000)
        self.send(0x1238, 3, 2**31 - 1, -2**31)
        self.fetch_listing()
        validator.validate(json.loads(STATUS.read_text()))

        for fault, old, new in (("a channel missing", '"analog"', '"digital"'),
                                ("a member missing", '"fifoUsed":0', '"fifoFree":0'),
                                ("a member too many", '"fifoUsed":0', '"fifoUsed":0,"more":0'),
                                ("another limit", ":300", ":299"),
                                ("a fraction", ":1024", ":10.24"),
                                ("beyond 32 bits", ":4096", ":2147483648")):
            self.assertFalse(validator.is_valid(json.loads(example.replace(old, new))), fault)


if __name__ == "__main__":
    PROGRAM = os.path.abspath(sys.argv.pop(1))
    unittest.main()
