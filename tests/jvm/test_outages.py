"""The Publish Server absent, dying, silent or rude: the application goes on, memory stays bounded, the stream resumes."""

import re
import socket
import time
import unittest

from harness import JvmTest, PublishServer, RudeServer, jdks, wait_until


def resident_bytes(process):
    with open(f"/proc/{process.pid}/status") as status:
        return int(re.search(r"VmRSS:\s+(\d+) kB", status.read()).group(1)) * 1024


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as probe:
        return probe.getsockname()[1]


FAST = {"internal.probe.publishing.frequency": 200, "networkagent.publish.frequency": 50}


class OutageTest(JvmTest):
    def setUp(self):
        super().setUp()
        self.jdk = jdks()[0][1]

    def finished(self, process, seconds=90):
        wait_until(lambda: process.poll() is not None, seconds)
        text = process.out.read_text()
        self.assertEqual(0, process.poll(), text + process.err.read_text()[-2000:])
        self.assertNoJniWarning(text, process.err.read_text())
        return text

    def test_absent_at_start_then_there(self):
        port = free_port()
        program = self.java(self.jdk, "Load", 2, 4000, 1000, 8, "nowait", home=self.home(FAST), ps=f"127.0.0.1:{port}")
        time.sleep(3)
        self.assertIsNone(program.poll(), program.err.read_text())
        ps = self.server(port)
        self.assertTrue(wait_until(ps.requests), "nothing arrived after the server came up")
        self.finished(program)

    def test_killed_under_load_and_back(self):
        ps = self.server()
        program = self.java(self.jdk, "Load", 2, 12000, 1500, 2, home=self.home(FAST), ps=ps.address)
        self.assertTrue(wait_until(ps.requests))
        ps.kill()
        time.sleep(1.5)
        self.assertIsNone(program.poll(), program.err.read_text())
        again = PublishServer(self, ps.port, "again")
        self.assertTrue(wait_until(again.requests), "the stream did not go on")
        first = again.objects()[0]
        self.assertEqual("agent", first["type"], "the initial records come first")
        self.finished(program)
        self.assertEqual([], again.objects("garbage"))

    def test_a_second_server_takes_over(self):
        first, second = self.server(), self.server(name="second")
        program = self.java(self.jdk, "Load", 1, 8000, 1000, 1, home=self.home(FAST),
                            ps=f"{first.address},{second.address}")
        self.assertTrue(wait_until(first.requests))
        first.kill()
        self.assertTrue(wait_until(second.requests), "the second server did not take over")
        self.finished(program)

    def test_hanging_without_reading(self):
        rude = RudeServer("hang")
        self.addCleanup(rude.close)
        home = self.home({**FAST, "internal.memory.limit": 12, "internal.memory.accept.threshold": 2})
        program = self.java(self.jdk, "Load", 2, 300000, 40000, 3, home=home, ps=rude.address)
        self.assertTrue(wait_until(lambda: "enabled" in program.out.read_text()))
        before = resident_bytes(program)
        text = self.finished_watching(program, lambda: resident_bytes(program) - before, 120 << 20)
        self.assertLess(int(re.search(r"longest pause (\d+) ms", text).group(1)), 1000, "a request was held up")

    def test_closing_at_once(self):
        rude = RudeServer("close")
        self.addCleanup(rude.close)
        program = self.java(self.jdk, "Load", 2, 4000, 2000, 2, home=self.home(FAST), ps=rude.address)
        text = self.finished(program)
        self.assertIn("produced 16000 events", text)
        self.assertLess(rude.connections, 400, "it must not hammer the server")

    def test_the_exit_is_not_held_up_by_a_server_that_does_not_read(self):
        rude = RudeServer("hang")
        self.addCleanup(rude.close)
        program = self.java(self.jdk, "Load", 2, 50000, 0, 1, home=self.home(), ps=rude.address)
        self.assertTrue(wait_until(lambda: "done" in program.out.read_text(), 60))
        start = time.monotonic()
        self.finished(program, 20)
        self.assertLess(time.monotonic() - start, 2.5)

    def test_what_is_queued_at_exit_still_leaves(self):
        ps = self.server()
        # Half a second of load: the connection is up by then, the first packet is not due yet.
        program = self.java(self.jdk, "Load", 1, 500, 1000, 0, home=self.home(), ps=ps.address)
        self.finished(program)
        self.assertTrue(wait_until(lambda: len(ps.requests()) == 500, 5),
                        f"{len(ps.requests())} of 500 requests arrived")

    def finished_watching(self, program, grown, most):
        worst = 0
        while program.poll() is None:
            try:
                worst = max(worst, grown())
            except (OSError, AttributeError):
                break
            time.sleep(0.1)
        self.assertLess(worst, most, "the process grew")
        return self.finished(program)


if __name__ == "__main__":
    unittest.main()
