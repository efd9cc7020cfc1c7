"""What hostile peers cannot do: keep an honest agent's records from being shown within a second, take more memory than
was allowed, or keep the server from stopping within a second."""

import multiprocessing
import os
import pathlib
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest

from wire import class_load, connect, init, method_exit, packet, request, text, timed

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("VELORA_BUILD", ROOT / "build" / "dev"))
SERVER = BUILD / "home" / "bin" / "velora-ps"
ATTACKERS = 40
MEMORY = 64  # MB, of all connections together
SECOND = 1.0


class Hostile(unittest.TestCase):
    def setUp(self):
        self.dir = pathlib.Path(tempfile.mkdtemp(prefix="velora-hostile-"))
        self.attackers = self.server = self.reader = None
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        resource.setrlimit(resource.RLIMIT_NOFILE, (min(4096, hard), hard))

    def tearDown(self):
        if self.attackers:
            self.attackers.kill()
            self.attackers.join()
        self.server.stdout.close()
        for process in filter(None, (self.server, self.reader)):
            process.kill()
            process.wait()
        self.said.close()
        self.seen.close()
        shutil.rmtree(self.dir)

    def start(self, read=True):
        """The server; what it prints of the honest agent goes to the file seen, or stays unread."""
        port_file = self.dir / "port"
        self.said = open(self.dir / "said", "w+b")
        self.server = subprocess.Popen([SERVER, "--listen", "127.0.0.1:0", "--port-file", port_file, "--format", "json",
                                        "--memory", str(MEMORY)], stdout=subprocess.PIPE, stderr=self.said)
        self.seen = open(self.dir / "seen", "w+b")
        if read:
            self.reader = subprocess.Popen(["grep", "-a", "--line-buffered", '"node":"honest"'],
                                           stdin=self.server.stdout, stdout=self.seen)
            self.server.stdout.close()
        while not port_file.exists():
            self.assertIsNone(self.server.poll(), "it must start")
            time.sleep(0.01)
        self.port = int(port_file.read_text())

    def attack(self, opening, repeated):
        """Sends both from many connections of four addresses, the second again and again, until the test ends."""
        def run(source):
            while True:
                try:
                    with connect(self.port, source) as peer:
                        peer.sendall(opening)
                        while True:
                            peer.sendall(repeated) if repeated else peer.recv(1)
                except OSError:
                    time.sleep(0.01)

        def run_all():
            for i in range(ATTACKERS):
                threading.Thread(target=run, args=[f"127.0.0.{2 + i % 4}"]).start()

        # A process of its own, so that the measuring is not held up.
        self.attackers = multiprocessing.get_context("fork").Process(target=run_all)
        self.attackers.start()

    def slowest(self, seconds=3.0):
        """The longest that a request of an honest agent took to be shown, from before its connection on."""
        longest, end, i = 0.0, time.monotonic() + seconds, 0
        begin = time.monotonic()
        with open(self.dir / "seen", "rb") as shown, connect(self.port) as agent:
            agent.sendall(init(b"honest"))
            while time.monotonic() < end:
                url = b"/%d/" % i
                agent.sendall(packet(*request(7, url)))
                lines = b""
                while url not in lines:
                    lines += shown.read()
                    self.assertLess(time.monotonic() - begin, 20, "it must be shown at all")
                    time.sleep(0.002)
                longest = max(longest, time.monotonic() - begin)
                time.sleep(0.02)
                begin, i = time.monotonic(), i + 1
        return longest

    def memory(self):
        """The most that the server ever took, MB."""
        status = pathlib.Path(f"/proc/{self.server.pid}/status").read_text()
        return int(status.split("VmHWM:")[1].split()[0]) // 1024

    def stop(self, expected=(0, 1)):  # 1: not all that the attackers have caused could be written in that time
        begin = time.monotonic()
        self.server.send_signal(signal.SIGTERM)
        self.assertIn(self.server.wait(20), expected)
        self.assertLess(time.monotonic() - begin, SECOND)

    def check(self):
        slowest = self.slowest()
        memory = self.memory()
        print(f"slowest {slowest:.3f} s, {memory} MB", file=sys.stderr)
        self.assertLess(slowest, SECOND)
        self.assertLess(memory, MEMORY + 36)
        self.stop()

    # Few bytes that become many: control characters, each of which is written as six, in texts of every line.
    def test_names_that_are_repeated(self):
        self.start()
        long = b"\1" * 65535
        self.attack(init(long, long) + packet(class_load(long, {9: long})), packet(*[method_exit(1, 9)] * 4000))
        self.check()

    def test_work_that_is_given_up(self):
        self.start()
        starts = [timed(9, thread, fields=b"\2" + text(b"") + text(b"s"))[:-3] + b"\x7f\x7f" for thread in range(9000)]
        self.attack(init(b"\1" * 255, b"\1" * 255), packet(*starts))
        self.check()

    def test_connections_that_say_nothing(self):
        self.start()
        silent = [connect(self.port, f"127.0.0.{1 + i % 9}") for i in range(1100)]
        self.check()
        for each in silent:
            each.close()

    def test_records_without_an_end(self):
        self.start()
        loading = b"\1" + bytes(4) + text(b"C") + (1 << 20).to_bytes(4, "big") + bytes(8 * ((1 << 20) - 4096))
        self.attack(init() + packet(b"")[:7] + loading, b"")
        self.check()

    def test_output_that_nobody_reads(self):
        self.start(read=False)
        self.attack(init(), packet(*[timed(5)] * 4000))
        time.sleep(1)
        self.stop(expected=(1,))
        self.said.seek(0)
        self.assertRegex(self.said.read().decode(), r"nobody has read the output: \d+ lines are lost")


if __name__ == "__main__":
    unittest.main()
