"""Allocations of our libraries fail, one in 100, 20 and 5: the application goes on and ends, and the books balance."""

import re
import unittest

from harness import BUILD, JvmTest, jdks, wait_until

ONE_IN = (100, 20, 5)


class MemoryTest(JvmTest):
    def failing(self, one_in, seed=1, sign=None):
        self.count = self.dir / "count"
        return {"LD_PRELOAD": str(BUILD / "tests" / "jvm" / "libfailing_malloc.so"), "FAILING_MALLOC": str(one_in),
                "FAILING_MALLOC_SEED": str(seed), "FAILING_MALLOC_COUNT": str(self.count),
                **({"FAILING_MALLOC_WHILE": str(sign)} if sign else {})}

    def ended(self, program):
        self.assertTrue(wait_until(lambda: program.poll() is not None, 90), "the application hangs")
        self.assertNoJniWarning(program.out.read_text(), program.err.read_text())
        return program.returncode

    def test_while_threads_come_and_go(self):
        for major, jdk in jdks():
            for one_in in ONE_IN:
                with self.subTest(jdk=major, one_in=one_in):
                    self.tearDown()
                    self.setUp()
                    ps = self.server()
                    home = self.home({"internal.probe.publishing.frequency": 50, "networkagent.publish.frequency": 20})
                    no_gc = ("-XX:+UnlockExperimentalVMOptions", "-XX:+UseEpsilonGC")
                    sign = self.dir / "sign"
                    program = self.java(jdk, "Churn", sign, 100, 8, 20, home=home, ps=ps.address, flags=no_gc,
                                        env=self.failing(one_in, sign=sign))
                    self.assertEqual(0, self.ended(program), program.err.read_text())
                    self.assertGreater(int(self.count.read_text()), 100, "hardly an allocation failed")
                    ps.stop()
                    self.check_books(program, ps)

    def check_books(self, program, ps):
        self.assertIn("enabled true", program.out.read_text())
        produced = int(re.search(r"produced (\d+) events", program.out.read_text()).group(1))
        self.assertEqual([], ps.objects("garbage"), ps.log.read_text())
        summaries = ps.objects("summary")
        delivered = sum(s["recordsByType"].get(kind, 0) for s in summaries
                        for kind in ("SERVLET_REQUEST_START", "SERVLET_REQUEST_END"))
        dropped = sum(s["droppedEvents"] for s in summaries)
        logged = sum(int(n) for n in re.findall(r"Records lost: (\d+) \(", self.messages()))
        self.assertEqual(produced, delivered + dropped + logged,
                         f"delivered {delivered}, in drop records {dropped}, in the log {logged}")

    def test_from_the_first_allocation_on(self):
        for major, jdk in jdks():
            for one_in in ONE_IN:
                for seed in range(1, 9):
                    with self.subTest(jdk=major, one_in=one_in, seed=seed):
                        self.tearDown()
                        self.setUp()
                        program = self.java(jdk, "Quiet", 200, 3, env=self.failing(one_in, seed))
                        self.assertEqual(3, self.ended(program), program.err.read_text())
                        self.assertEqual("application output\n", program.out.read_text())


if __name__ == "__main__":
    unittest.main()
