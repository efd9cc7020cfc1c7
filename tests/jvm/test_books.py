"""Exact books: whatever happens, produced = delivered + counted in drop records + counted in log lines."""

import os
import re
import signal
import time
import unittest

from harness import CuttingProxy, JvmTest, PublishServer, jdks, wait_until


# No collector, no collections: their events would be produced, and lost, uncounted by the program.
NO_GC = ("-XX:+UnlockExperimentalVMOptions", "-XX:+UseEpsilonGC")
QUICK = {"internal.probe.publishing.frequency": 100, "networkagent.publish.frequency": 20,
         "networkagent.buffer.limit": 2}
# How long the server stands still and after how many seconds it is left. The documented default takes a minute and a
# half: VELORA_STALL=60,-1 python3 -m unittest test_books.BooksTest.test_a_server_that_stands_still_is_left
STALL_SECONDS, TIME_OUT = map(int, os.environ.get("VELORA_STALL", "5,2").split(","))


class BooksTest(JvmTest):
    def test_every_event_is_accounted_for(self):
        self.on_every_jdk(self.run_books)

    def run_books(self, jdk):
        servers = [self.server()]
        program = self.load(jdk, servers[0].address, 60000, {
            "internal.probe.event.queue.size.limit": 300, "internal.memory.limit": 5,
            "internal.memory.accept.threshold": 0})
        self.assertTrue(wait_until(servers[0].requests))
        for _ in range(2):  # down and up again, under load
            time.sleep(0.7)
            servers[-1].stop()
            time.sleep(1.0)
            servers.append(PublishServer(self, servers[0].port, f"ps{len(servers)}"))
        _, dropped, _ = self.settle(program, servers)
        self.assertGreater(dropped, 0, "the load was too light to overflow a queue")

    def test_connections_reset_inside_packets(self):
        server = self.server()
        proxy = CuttingProxy(server.port, [100000 + 70001 * i for i in range(6)])
        self.addCleanup(proxy.close)
        program = self.load(jdks()[0][1], proxy.address, 40000)
        _, _, lost = self.settle(program, [server])
        self.assertEqual(6, proxy.done)
        self.assertGreater(lost, 0)
        cut = [a for a in server.objects("agent") if "in the middle of a packet" in str(a.get("reason"))]
        self.assertTrue(cut, "no cut hit the inside of a packet")

    def test_resets_of_our_own_lose_nothing(self):
        for resettime in (1000, 3000):
            with self.subTest(resettime=resettime):
                self.tearDown()
                self.setUp()
                server = self.server()
                program = self.load(jdks()[0][1], server.address, 8000, {
                    "networkagent.socket.resettime": resettime, "internal.probe.publishing.frequency": 2000,
                    "networkagent.publish.frequency": 500, "networkagent.buffer.limit": 10,
                    "internal.probe.event.queue.size.limit": 100000}, rate=1000)
                self.assertEqual((0, 0), self.settle(program, [server])[1:])
                self.assertGreater(len([a for a in server.objects("agent") if a["event"] == "connected"]), 2)

    def test_a_server_that_stands_still_is_left(self):
        first, second = self.server(), self.server(name="second")
        program = self.load(jdks()[0][1], f"{first.address},{second.address}", 9000 * (STALL_SECONDS + 3),
                            {"networkagent.socket.timeout": TIME_OUT}, threads=2, rate=9000)
        self.assertTrue(wait_until(first.requests))
        first.process.send_signal(signal.SIGSTOP)
        try:
            self.assertTrue(wait_until(second.requests, 90), "the second server got nothing")
            time.sleep(max(0, STALL_SECONDS - 3 if TIME_OUT > 0 else 0))
        finally:
            first.process.send_signal(signal.SIGCONT)
        self.settle(program, [first, second])

    def load(self, jdk, ps, pairs, properties=None, threads=4, rate=9000):
        home = self.home({**QUICK, **(properties or {})})
        return self.java(jdk, "Load", threads, pairs, rate, 60, home=home, ps=ps, flags=NO_GC)

    def settle(self, program, servers):
        """Waits for the program's end and adds up: (delivered, in drop records, lost by the log)."""
        wait_until(lambda: "longest pause" in program.out.read_text(), 200)
        time.sleep(1.5)  # several periods: everything queued is on its way or counted
        produced = int(re.search(r"produced (\d+) events", program.out.read_text()).group(1))
        program.terminate()
        wait_until(lambda: program.poll() is not None, 20)
        for server in servers:
            if server.process.poll() is None:
                server.stop()
            self.assertEqual([], server.objects("garbage"), server.log.read_text())

        delivered = sum(s["recordsByType"].get("SERVLET_REQUEST_START", 0) + s["recordsByType"].get("SERVLET_REQUEST_END", 0)
                        for server in servers for s in server.objects("summary"))
        dropped = sum(s["droppedEvents"] for server in servers for s in server.objects("summary"))
        logged, gated = self.logged_losses()
        self.assertEqual(produced, delivered + dropped + logged + gated,
                         f"delivered {delivered}, in drop records {dropped}, lost by the log {logged}, gated {gated}")
        return delivered, dropped, logged + gated

    def logged_losses(self):
        text = self.messages()
        lost = sum(int(n) for n in re.findall(r"Records lost: (\d+) \(", text))
        gated = sum(int(n) for n in re.findall(r"Capture was stopped by the memory limit: (\d+) calls", text))
        return lost, gated


if __name__ == "__main__":
    unittest.main()
