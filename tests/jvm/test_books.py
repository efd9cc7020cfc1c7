"""Exact books: whatever happens, produced = delivered + counted in drop records + counted in log lines."""

import re
import time
import unittest

from harness import JvmTest, PublishServer, jdks, wait_until


class BooksTest(JvmTest):
    def test_every_event_is_accounted_for(self):
        for major, jdk in jdks():
            with self.subTest(jdk=major):
                self.tearDown()
                self.setUp()
                self.run_books(jdk)

    def run_books(self, jdk):
        home = self.home({
            "internal.probe.event.queue.size.limit": 300, "internal.memory.limit": 5,
            "internal.memory.accept.threshold": 0, "internal.probe.publishing.frequency": 100,
            "networkagent.publish.frequency": 20, "networkagent.buffer.limit": 2})
        servers = [self.server()]
        # No collector, no collections: their events would be produced, and lost, uncounted by the program.
        no_gc = ("-XX:+UnlockExperimentalVMOptions", "-XX:+UseEpsilonGC")
        program = self.java(jdk, "Load", 4, 60000, 9000, 60, home=home, ps=servers[0].address, flags=no_gc)
        self.assertTrue(wait_until(servers[0].requests))
        for _ in range(2):  # down and up again, under load
            time.sleep(0.7)
            servers[-1].stop()
            time.sleep(1.0)
            servers.append(PublishServer(self, servers[0].port, f"ps{len(servers)}"))
        wait_until(lambda: "longest pause" in program.out.read_text(), 120)
        time.sleep(1.5)  # several periods: everything queued is on its way or counted
        produced = int(re.search(r"produced (\d+) events", program.out.read_text()).group(1))
        program.terminate()
        wait_until(lambda: program.poll() is not None, 20)
        servers[-1].stop()
        for server in servers:
            self.assertEqual([], server.objects("garbage"), server.log.read_text())

        delivered = sum(s["recordsByType"].get("SERVLET_REQUEST_START", 0) + s["recordsByType"].get("SERVLET_REQUEST_END", 0)
                        for server in servers for s in server.objects("summary"))
        dropped = sum(s["droppedEvents"] for server in servers for s in server.objects("summary"))
        logged, gated = self.logged_losses()
        self.assertEqual(produced, delivered + dropped + logged + gated,
                         f"delivered {delivered}, in drop records {dropped}, lost by the log {logged}, gated {gated}")
        self.assertGreater(dropped, 0, "the load was too light to overflow a queue")

    def logged_losses(self):
        text = self.messages()
        lost = sum(int(n) for n in re.findall(r"Records lost: (\d+) \(", text))
        gated = sum(int(n) for n in re.findall(r"Capture was stopped by the memory limit: (\d+) calls", text))
        return lost, gated


if __name__ == "__main__":
    unittest.main()
