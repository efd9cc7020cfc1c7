"""Diagnostics in real VMs: stacks and states of threads, heap summaries, lock steps, calls and traced methods."""

import re
import subprocess
import unittest

from harness import HOME, JvmTest, PublishServer, jdks, wait_until

# Native memory may grow by this much, in KB, over thousands of rounds: caches and fragmentation, not a leak per round.
GROWTH_LIMIT = 24 * 1024
# A heap whose pages are all there from the beginning, so that resident memory tells of the native side.
FIXED_HEAP = ("-Xms64m", "-Xmx64m", "-XX:+AlwaysPreTouch", "-XX:+UseSerialGC")


class DiagnosticsTest(JvmTest):
    def run_program(self, jdk, program, *args, ps, **how):
        """The program's lines, without those of others; it has ended well and the VM had nothing to say about JNI."""
        process = self.java(jdk, program, *args, ps=ps.address, **how)
        code = process.wait(120)
        out, err = process.out.read_text(errors="replace"), process.err.read_text(errors="replace")
        self.assertEqual(0, code, out[-3000:] + err[-3000:])
        self.assertNoJniWarning(out, err)
        self.assertNotIn("Exception", err)
        return out.splitlines()

    # ---- stacks and states ---------------------------------------------------------------------------------------

    STATES = {  # thread: status, frames that must stand in its stack in this order, callee first
        "blocked": (2, ["Stacks block (Ljava/lang/String;I)V"]),
        "waiting": (3, ["java/lang/Object wait ()V", "Stacks await ()V"]),
        "sleeping": (3, ["java/lang/Thread sleep (J)V", "Stacks doze ([IJ)V"]),
        "parked": (3, ["jdk/internal/misc/Unsafe park (ZJ)V", "java/util/concurrent/locks/LockSupport park ()V",
                       "Stacks park ()V"]),
        "spinning": (1, ["Stacks spin (ID[[Ljava/lang/String;)J"]),
    }

    def test_stacks_and_states(self):
        self.on_every_jdk(lambda jdk: self.check_stacks(jdk, "path"))

    def test_stacks_and_states_as_java_agent(self):
        self.on_every_jdk(lambda jdk: self.check_stacks(jdk, "jar"))

    def check_stacks(self, jdk, agent):
        lines = self.run_program(jdk, "Stacks", 10_000, ps=self.server(), agent=agent, flags=FIXED_HEAP)
        status = dict(line.split()[1:] for line in lines if line.startswith("status "))
        frames = {}
        for line in lines:
            if line.startswith("frame "):
                _, thread, index, frame = line.split(" ", 3)
                frames.setdefault(thread, []).append(frame)
                self.assertEqual(len(frames[thread]) - 1, int(index), line)
        for thread, (word, expected) in self.STATES.items():
            self.assertEqual(word, int(status[thread]), thread)
            places = [frames[thread].index(frame) if frame in frames[thread] else -1 for frame in expected]
            self.assertEqual(sorted(places), places, f"{thread}: {frames[thread]}")
            self.assertNotIn(-1, places, f"{thread}: {frames[thread]}")
            self.assertEqual("java/lang/Thread run ()V", frames[thread][-1])
        self.check_depths(lines, len(frames["blocked"]))
        self.check_changes(lines, status)
        self.assertIn("repeated 10000 different 0", lines)
        grown = next(int(line.split()[1]) for line in lines if line.startswith("grown "))
        self.assertLess(grown, GROWTH_LIMIT)
        for line in ("dump -1 null 0", "dump of null -1", "dump of a string -1"):
            self.assertIn(line, lines)
        self.assertIn("Failed to construct ThreadDumpInfo object", self.messages())

    def check_depths(self, lines, frames):
        got = {line.split()[2]: line.split()[3:] for line in lines if line.startswith("lengths ")}
        self.assertEqual({"1": ["3", "3"], "2": ["6", "6"], "1000": ["3000", str(frames * 3)],
                          "1000000": [str(32768 * 3), str(frames * 3)], "0": ["null", "0"], "-1": ["null", "0"],
                          "-2147483648": ["null", "0"]}, got)
        for line in ("own group only 0", "unknown name 0", "no name 0", "unknown id -1 null"):
            self.assertIn(line, lines)

    def check_changes(self, lines, status):
        self.assertEqual(0x8000 | 1, int(status["after32768"]))
        self.assertEqual(0x8000 | 1, int(status["after1"]), "an unknown change must change nothing")
        self.assertEqual(1, int(status["after8192"]))
        self.assertEqual(0x4000 | 1, int(status["interrupted"]))
        self.assertEqual(4, int(status["cancelled"]), "cancelling ends the suspension, too")
        self.assertIn("stack cancelled null", lines)
        for thread in self.STATES:  # until its last events have been collected an ended thread is still known
            self.assertIn(int(status["ended-" + thread]), (4, -1))
            self.assertIn(f"stack ended-{thread} null", lines)
        self.assertEqual(-1, int(status["gone"]))
        self.assertIn("stack gone null", lines)

    # ---- heap summaries ------------------------------------------------------------------------------------------

    KNOWN = {  # class: instances, bytes of fields of one instance
        "Snapshot$KnownNode": (12345, 8 + 8 + 4 + 2 + 1 + 1 + 2 + 8 + 4 + 8),
        "Snapshot$KnownLeaf": (777, 8 + 8 + 4 + 2 + 1 + 1 + 2 + 8 + 4 + 8 + 4),
        "Snapshot$KnownEmpty": (55, 0),
    }

    def test_heap_summary_with_every_collector(self):
        collectors = [("-XX:+UseG1GC",), ("-XX:+UseSerialGC",), ("-XX:+UseParallelGC",), ("-XX:+UseZGC",),
                      ("-Xshare:off",)]
        for flags in collectors:
            with self.subTest(flags=flags):
                self.on_every_jdk(lambda jdk: self.check_snapshots(jdk, 2, "quiet", flags))

    def test_heap_summary_while_classes_are_loaded(self):
        self.on_every_jdk(lambda jdk: self.check_snapshots(jdk, 4, "loading", ()))

    def check_snapshots(self, jdk, rounds, how, flags):
        # Of the totals: what the VM maps from its archive it counts whether anything refers to it or not, and what
        # other threads drop between the two counts is in one of them only.
        tolerance = 0.02 if "-Xshare:off" in flags else 0.15
        lines = self.run_program(jdk, "Snapshot", rounds, how, ps=self.server(), flags=flags)
        starts = [i for i, line in enumerate(lines) if line.startswith("round ")] + [len(lines)]
        self.assertEqual(rounds, len(starts) - 1)
        for begin, end in zip(starts, starts[1:]):
            self.check_snapshot(lines[begin:end], tolerance)
        self.assertIn("no buffer 3", lines)

    def check_snapshot(self, lines, tolerance):
        self.assertIn("test 0", lines)
        self.assertIn("result 0", lines)
        histogram = {}
        for line in lines:
            if line.startswith("histogram "):
                _, count, _, name = line.split()
                histogram[name] = histogram.get(name, 0) + int(count)
        summary = [line[len("summary "):].split(",") for line in lines if line.startswith("summary ")]
        total_bytes, total_objects = map(int, summary[0])
        classes = {name: (int(count), int(size)) for name, size, _, count, _ in summary[1:]}
        sizes = [int(row[1]) for row in summary[1:-2]]
        self.assertEqual(sorted(sizes), sizes)
        self.assertEqual(["primitive[]", "object[]"], [row[0] for row in summary[-2:]])
        self.assertEqual(total_objects, sum(count for count, _ in classes.values()))
        self.assertEqual(total_bytes, sum(size for _, size in classes.values()))
        for name, (count, size) in self.KNOWN.items():
            self.assertEqual(count, histogram[name], name)
            self.assertEqual((count, count * size), classes[name], name)
        self.check_against_histogram(histogram, classes, tolerance)

    def check_against_histogram(self, histogram, classes, tolerance):
        """The VM counts a moment earlier and counts classes, which are no instances in the summary, and what is dead
        since its last collection."""
        primitive = sum(count for name, count in histogram.items() if re.fullmatch(r"\[[ZBCSIJFD]", name))
        arrays = sum(count for name, count in histogram.items() if name.startswith("[")) - primitive
        instances = sum(count for name, count in histogram.items() if name[0] != "[" and name != "java.lang.Class")
        counted = sum(count for name, (count, _) in classes.items() if not name.endswith("[]"))
        for what, theirs, ours in (("primitive arrays", primitive, classes["primitive[]"][0]),
                                   ("object arrays", arrays, classes["object[]"][0]),
                                   ("instances", instances, counted)):
            self.assertLess(abs(theirs - ours), tolerance * theirs + 200, f"{what}: {theirs} for the VM, {ours} here")

    def test_no_heap_summary_without_memory_for_it(self):
        for major, jdk in jdks()[:1]:
            home = self.home({"internal.max.heapdump.size": 4194304})
            lines = self.run_program(jdk, "Snapshot", 1, ps=self.server(), home=home)
            self.assertIn("test 1", lines)
            self.assertIn("result 1", lines)
            self.assertEqual(["summary "], [line for line in lines if line.startswith("summary")])

    # ---- lock steps ----------------------------------------------------------------------------------------------

    def test_lock_steps(self):
        self.on_every_jdk(self.check_lock_steps)

    def check_lock_steps(self, jdk):
        ps = self.server()
        lines = self.run_program(jdk, "LockSteps", ps=ps)
        for line in ("acquired true true", "waited true true", "released true true",
                     "unknown false false false false", "nameless true true"):
            self.assertIn(line, lines)
        self.assertTrue(wait_until(ps.requests))
        ps.stop()
        self.assertEqual([], ps.objects("garbage"))
        locks = ps.objects("lock")
        self.assertEqual(["lockAcquisition", "lockContention", "lockRelease", "lockContention"],
                         [lock["kind"] for lock in locks])
        for lock in locks[:3]:
            self.assertEqual(("shop/Stock", "shop.Cache.get", "checkout", "/shop", "ok"),
                             (lock["name"], lock["method"], lock["requestName"], lock["requestApplication"],
                              lock["outcome"]))
        waited = locks[1]
        self.assertEqual((4, "report", "/statistics", "shop.Cache.rebuild"),
                         (waited["ownerType"], waited["ownerName"], waited["ownerApplication"], waited["ownerMethod"]))
        self.assertGreaterEqual(waited["wallMs"], 20)
        shown = subprocess.run([HOME / "bin" / "velora-ps", "--show", ps.json], capture_output=True, text=True,
                               check=True).stdout
        self.check_sentences(shown)

    def test_lock_steps_as_text(self):
        ps = self.server(format="table")
        self.run_program(jdks()[-1][1], "LockSteps", ps=ps)
        wait_until(lambda: "released" in ps.json.read_text())
        ps.stop()
        self.check_sentences(ps.json.read_text())

    def check_sentences(self, text):
        for pattern in (r'thread \d+ in "checkout" acquired shop/Stock in shop\.Cache\.get after [\d.]+ ms',
                        r'thread \d+ in "checkout" waited \d+\.\d+ ms for shop/Stock in shop\.Cache\.get, '
                        r'held by "report" of "/statistics" in shop\.Cache\.rebuild',
                        r'thread \d+ in "checkout" released shop/Stock in shop\.Cache\.get after [\d.]+ ms'):
            self.assertRegex(text, pattern)

    # ---- other requests, calls and traced methods ----------------------------------------------------------------

    def test_other_requests(self):
        self.on_every_jdk(self.check_other_requests)

    def check_other_requests(self, jdk):
        first = self.server()
        process = self.java(jdk, "OtherRequests", ps=first.address, stdin=subprocess.PIPE)
        self.assertTrue(wait_until(lambda: first.objects("agent"), 60), process.err.read_text())
        process.stdin.write(b"\n")
        process.stdin.flush()
        self.assertTrue(wait_until(lambda: "first part done" in process.out.read_text(), 60), process.err.read_text())
        first.stop()
        self.check_calls(first, process.out.read_text().splitlines())
        second = PublishServer(self, first.port, "ps2")
        self.assertTrue(wait_until(lambda: second.objects("classLoad")), "the classes must be announced again")
        process.stdin.write(b"\n")
        process.stdin.flush()
        self.assertTrue(wait_until(lambda: second.objects("method")))
        process.stdin.close()
        self.assertEqual(0, process.wait(60))
        second.stop()
        self.assertNoJniWarning(process.out.read_text(), process.err.read_text())
        self.check_second(second)

    def check_calls(self, ps, lines):
        self.assertEqual([], ps.objects("garbage"))
        facts = dict(line.rsplit(" ", 1) for line in lines if line.startswith(("token ", "thread ")))
        self.assertGreater(int(facts["thread"]), 0)
        self.assertEqual([f"iiop {facts['thread']}"] * 2, [line for line in lines if line.startswith("iiop")])
        self.check_tokens(facts)
        requests = [(r["kind"], r["name"], r["application"], r["url"], r["depth"], r["outcome"])
                    for r in ps.requests()]
        self.assertEqual([
            ("ejb", "bank.AccountBean", "debit", "(I)V", 3, "ok"),
            ("iiopClient", "bank.Remote.pay", "", "", 2, "ok"),
            ("iiopServer", "shop.Remote.order", "", "", 1, "ok"),
            ("iiopServer", "", "", "", 1, "ok"),
            ("gpsInvoke", facts["token first"], "", "", 1, "ok"),
            ("gpsInvoke", facts["token second"], "", "", 1, "ok"),
            ("gpsReceive", "01020304", "", "", 1, "ok")], requests)
        self.assertEqual({int(facts["thread"])}, {r["thread"] for r in ps.requests()})
        heap = ps.objects("heap")
        self.assertEqual([("shop/Order", 77, 22, 3)], [(h["name"], h["line"], h["methodId"], h["depth"]) for h in heap])
        self.assertEqual(["system_trace"], [trace["name"] for trace in ps.objects("trace")])
        self.check_methods(ps, lines)

    def check_tokens(self, facts):
        self.assertEqual("00000000", facts["token before"])
        first, second = (int(facts[f"token {which}"], 16) for which in ("first", "second"))
        self.assertEqual(0b101, first >> 29, "the region's bits")
        self.assertEqual(1, second - first)
        self.assertEqual("00000000", facts["token again"], "a token is handed out once")
        self.assertEqual("01020304", facts["token received"])

    def check_methods(self, ps, lines):
        for line in ("announced true", "announced again true", "no methods true", "unequal false", "no name false",
                     "methods [true, true, true, true]", "withdrawn true false false"):
            self.assertIn(line, lines)
        loads = {load["class"]: load for load in ps.objects("classLoad")}
        self.assertEqual({"shop/Order": 2, "shop/Empty": 0, "shop/Gone": 1, "shop/Module": 1},
                         {name: load["methodCount"] for name, load in loads.items()})
        unloads = [(u["sequence"], u["classId"], u["methodCount"]) for u in ps.objects("classUnload")]
        self.assertEqual([(loads["shop/Gone"]["sequence"], 3, 1), (loads["shop/Module"]["sequence"], 8, 1)], unloads)
        self.assertEqual(["shop.Order.total", "shop.Order.<init>", "shop.Gone.old", "shop.Module.run", "method 99"],
                         [m["name"] for m in ps.objects("method")])

    def check_second(self, ps):
        self.assertEqual([], ps.objects("garbage"))
        again = {load["class"] for load in ps.objects("classLoad")}
        self.assertEqual({"shop/Order", "shop/Empty"}, again, "withdrawn classes stay withdrawn")
        self.assertEqual(["shop.Order.<init>", "method 31"], [m["name"] for m in ps.objects("method")])

    # ---- class tables --------------------------------------------------------------------------------------------

    def test_classes_that_come_and_go(self):
        self.on_every_jdk(self.check_load_unload)

    def check_load_unload(self, jdk):
        ps = self.server()
        home = self.home({"method.hash.cleanupinterval": 1, "internal.probe.event.queue.size.limit": 50000,
                          "internal.probe.publishing.frequency": 100, "networkagent.publish.frequency": 20})
        lines = self.run_program(jdk, "LoadUnload", 10_000, ps=ps, home=home, flags=FIXED_HEAP)
        facts = {key: int(value) for key, value in (line.rsplit(" ", 1) for line in lines
                                                    if line.startswith(("resident", "refused", "unloaded")))}
        self.assertEqual(0, facts["refused"])
        self.assertGreater(facts["unloaded"], 9000, "the program must really let go of its classes")
        self.assertLess(facts["resident late"] - facts["resident early"], GROWTH_LIMIT)
        ps.stop()
        counts = {}
        for summary in ps.objects("summary"):
            counts = summary["recordsByType"]
        self.assertEqual((10_000, 10_000), (counts["CLASS_LOAD"], counts["CLASS_UNLOAD"]))


if __name__ == "__main__":
    unittest.main()
