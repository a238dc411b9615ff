#!/usr/bin/python3
"""Holds the documents against a running service: their examples, texts, numbers and the schema.
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
from pathlib import Path

import jsonschema

PROJECT = Path(__file__).resolve().parent.parent
DOCS = PROJECT / "docs"
LOG = Path("/tmp/docs_test.log")
STATUS = Path("/tmp/genlock.json")
SERVICE = ("127.0.0.1", 11000)


def read_doc(name):
    return (DOCS / name).read_text()


def read_blocks(name, language):
    """The fenced blocks of a language, in order; "" for plain ones."""
    blocks = re.findall(r"^```(\w*)\n(.*?)^```$", read_doc(name), re.M | re.S)
    return [text for found, text in blocks if found == language]


def read_rows(name, heading):
    """The cells of a table, found by the first cell of its heading."""
    table = read_doc(name).split(f"\n| {heading} |", 1)[1].split("\n\n", 1)[0]
    return [[cell.strip() for cell in row.strip("|").split("|")]
            for row in table.strip().split("\n")[2:]]


def await_true(what, reached):
    deadline = time.monotonic() + 20
    while not reached():
        if time.monotonic() > deadline:
            raise AssertionError(f"{what} did not come: {LOG.read_text()[-1000:]}")
        time.sleep(0.01)


class Documents(unittest.TestCase):
    def setUp(self):
        for path in (STATUS, Path("/tmp/si5351"), Path("/tmp/si5351.txt")):
            path.unlink(missing_ok=True)
        with LOG.open("w") as log:
            self.service = subprocess.Popen([PROGRAM], stdout=log, stderr=log)
        self.sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.sock.settimeout(20)
        await_true("the port", lambda: " 0100007F:2AF8 " in Path("/proc/net/udp").read_text())
        await_true("the pipe", lambda: Path("/tmp/si5351").is_fifo())

    def tearDown(self):
        self.assertIsNone(self.service.poll(), "the service ended by itself")
        self.service.kill()
        self.service.wait()
        self.sock.close()

    def send(self, *words):
        self.sock.sendto(struct.pack(f"={len(words)}i", *words), SERVICE)

    def settle(self):
        """Fetches the listing: all commands before it are done by then."""
        self.send(0x1239)
        while not self.sock.recv(256).startswith(b"ch:3 "):
            pass

    def type(self, text, logged):
        seen = LOG.read_text().count(logged)
        Path("/tmp/si5351").write_text(text + "\n")
        await_true(logged, lambda: LOG.read_text().count(logged) > seen)

    def read_clock(self):
        return re.findall(r"CLK0 runs at (\S+) Hz, (\S+) ppm", LOG.read_text())[-1]

    def test_examples_of_the_protocol(self):
        start, expected = read_blocks("protocol.md", "")
        self.send(0x1239)
        self.assertEqual("".join(self.sock.recv(256).decode() for _ in range(4)), start)

        Path("/tmp/example.c").write_text(read_blocks("protocol.md", "c")[0])
        Path("/tmp/example.py").write_text(read_blocks("protocol.md", "python")[0])
        subprocess.run("cc -std=c11 -D_DEFAULT_SOURCE -Wall -Wextra -Werror -o /tmp/example "
                       "/tmp/example.c", shell=True, check=True)
        for example in (["/tmp/example"], [sys.executable, "/tmp/example.py"]):
            with self.subTest(example=example):
                printed = subprocess.run(example, check=True, capture_output=True, timeout=20)
                self.assertEqual(printed.stdout.decode(), expected)

    def test_texts_of_the_console(self):
        self.type("dump", "dump si5351 param")
        self.assertEqual([Path("/tmp/si5351.txt").read_text()], read_blocks("console.md", ""))
        for text, logged in (("inc 2", "ch:2 increase"), ("Increase", "ch:1 increase"),
                             ("inc2", "ch:1 increase"), ("dec", "ch:1 decrease"),
                             ("rst", "ch:1 reset"), ("init 3 96000", "ch:3 rate:96000 init"),
                             ("init", "ch:1 rate:48000 init"), ("no", "disable si5351"),
                             ("yes", "enable si5351"), ("step 44100", "rate:44100 step:100")):
            self.type(text, logged)
        keywords = read_rows("console.md", "Text")
        self.assertEqual([re.match(r"`(\w+)", row[0])[1] for row in keywords],
                         ["inc", "dec", "rst", "init", "step", "n", "y", "dump"])

    def test_frequencies_of_the_bring_up(self):
        rows = read_rows("bring-up.md", "Rate")
        self.assertEqual(len(rows), 6)
        for rate, centre, off, step, fastest, slowest in rows:
            with self.subTest(rate=rate):
                for command, count, expected in ((0x1235, 24, fastest), (0x1236, 24, slowest)):
                    self.send(0x1234, 1, int(rate))
                    self.settle()
                    self.assertEqual(self.read_clock(), (centre, off.split()[0]))
                    self.send(command, 1, 0)
                    self.settle()
                    moved = abs(float(self.read_clock()[0]) / float(centre) - 1) * 1e6
                    self.assertAlmostEqual(moved, float(step.split()[0]), delta=0.011)
                    for _ in range(count - 1):
                        self.send(command, 1, 0)
                    self.settle()
                    self.assertEqual(self.read_clock()[0], expected)

    def test_dividers_of_the_status_file(self):
        for rate, nominal, divider, step in read_rows("status-file.md", "Rate"):
            with self.subTest(rate=rate):
                self.send(0x1234, 1, int(rate))
                self.settle()
                self.type("dump", "dump si5351 param")
                line = Path("/tmp/si5351.txt").read_text().split("\n")[1]
                mult, num = re.fullmatch(r"(\d+) × 1048575 \+ (\d+)", divider).groups()
                self.assertIn(f" step:{step} ", line)
                self.assertIn(f" defVal:{nominal} ", line)
                self.assertIn(f" mult:{mult} num:{num} denom:1048575 ", line)

    def test_status_file_and_schema(self):
        schema = json.loads(read_doc("genlock.schema.json"))
        jsonschema.Draft7Validator.check_schema(schema)
        validator = jsonschema.Draft7Validator(schema)
        self.send(0x1238, 1, 4096, 1024)
        self.settle()
        example = read_blocks("status-file.md", "json")[0]
        self.assertEqual(STATUS.read_text(), example.replace("\n", ""))

        for command in ((0x1238, 2, -1, -5), (0x1238, 3, 2**31 - 1, -2**31), (0x1238, 7, 1, 1),
                        (0x1234, 2, 32000), (0x1235, 1, 0), (0x1234, 3, 192000)):
            self.send(*command)
            self.send(0x1238, 1, 4096, 1024)
            self.settle()
            validator.validate(json.loads(STATUS.read_text()))
        self.assertIn('"analog":{"fifoTotal":-1,"fifoUsed":-5,"ppmAdjusted":0,', STATUS.read_text())

        for fault, old, new in (("a channel missing", '"analog"', '"digital"'),
                                ("a member missing", '"fifoUsed":0', '"fifoFree":0'),
                                ("a member too many", '"fifoUsed":0', '"fifoUsed":0,"more":0'),
                                ("another limit", ":300", ":299"),
                                ("a text for a number", ":1024", ':"1024"'),
                                ("a fraction", ":1024", ":10.24"),
                                ("beyond 32 bits", ":4096", ":2147483648"),
                                ("another root", '"genlock"', '"clock"')):
            self.assertFalse(validator.is_valid(json.loads(example.replace(old, new))), fault)

    def test_every_error_line_is_explained(self):
        """Every literal part of a message of the service must stand in the list."""
        explained = read_doc("bring-up.md")
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


if __name__ == "__main__":
    PROGRAM = os.path.abspath(sys.argv.pop(1))
    unittest.main()
