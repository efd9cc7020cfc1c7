"""Requests on virtual threads: each has a record of its own, with its own nesting, times and CPU time."""

import subprocess
import unittest

from harness import JvmTest, jdks, wait_until

THREADS, SHORT = 300, 20000


class VirtualThreadsTest(JvmTest):
    def run_program(self, jdk, properties=None):
        ps = self.server()
        settings = {"internal.probe.publishing.frequency": "100", "networkagent.publish.frequency": "50"}
        program = self.java(jdk, "VirtualThreads", THREADS, SHORT, ps=ps.address, stdin=subprocess.PIPE,
                            home=self.home({**settings, **(properties or {})}))
        expected = 1 + 2 * THREADS + SHORT
        wait_until(lambda: "done" in program.out.read_text() or program.poll() is not None, 90)
        wait_until(lambda: len(ps.requests()) >= expected, 20)
        program.stdin.write(b"\n")
        program.stdin.close()
        self.assertEqual(0, program.wait(20), program.err.read_text())
        out = program.out.read_text()
        self.assertNoJniWarning(out, program.err.read_text())
        self.assertEqual([], [line for line in out.splitlines() if "wrong id" in line])
        requests = ps.requests()
        self.assertEqual(expected, len(requests), self.messages())
        self.assertEqual({"ok"}, {r["outcome"] for r in requests})
        by_url = {r["url"]: r for r in requests}
        lines = [line.split() for line in out.splitlines()]
        for number in range(THREADS):
            outer, inner = by_url[f"/outer/{number}"], by_url[f"/inner/{number}"]
            self.assertEqual((1, 2), (outer["depth"], inner["depth"]))
            self.assertEqual(outer["thread"], inner["thread"])
        for words in (w for w in lines if w[0] == "took"):
            outer = by_url[f"/outer/{words[1]}"]
            self.assertLess(abs(outer["wallMs"] - float(words[2])), 300, "wall time of " + outer["url"])
        self.assertEqual(THREADS, len({by_url[f"/outer/{n}"]["thread"] for n in range(THREADS)}), "all ran at once")
        memory = {w[0]: int(w[-1]) for w in lines if w[0] in ("before", "after")}
        return by_url, requests, memory

    def test_each_has_its_own_nesting_and_times(self):
        for major, jdk in jdks():
            if major >= 21:
                with self.subTest(jdk=major):
                    self.tearDown()
                    self.setUp()
                    by_url, requests, memory = self.run_program(jdk)
                    for number in range(THREADS):
                        outer, inner = by_url[f"/outer/{number}"], by_url[f"/inner/{number}"]
                        asked = number % 4 * 10  # ms, half of it within the inner request
                        self.assertLess(asked * 0.4, outer["cpuMs"] + 0.001, outer)
                        # A carrier's time would be seconds; what a first call loads and compiles is a thread's own.
                        self.assertLess(outer["cpuMs"], asked * 3 + 100, outer)
                        self.assertLess(inner["cpuMs"], asked * 1.5 + 100, inner)
                    ids = {r["thread"] for r in requests}
                    self.assertLess(len(ids), THREADS + 500, "ended threads leave their ids to others")
                    self.assertLess(memory["after"], memory["before"] + 20000, "records of ended threads are gone")

    def test_cpu_time_that_is_not_measured_is_nobody_elses(self):
        major, jdk = jdks()[-1]
        if major >= 21:
            by_url, _, _ = self.run_program(jdk, {"internal.virtualthread.cputime": "NO"})
            self.assertEqual({None}, {r["cpuMs"] for url, r in by_url.items() if url != "/platform"})
            self.assertIsNotNone(by_url["/platform"]["cpuMs"])


if __name__ == "__main__":
    unittest.main()
