"""Bad configuration: a clear message, a documented fallback, and the application runs."""

import os
import re
import shutil
import unittest

from harness import HOME, JvmTest, jdks, wait_until

GARBAGE = {
    "zero": {key: 0 for key in (
        "internal.probe.publishing.frequency", "networkagent.publish.frequency", "internal.probe.event.packet.size",
        "internal.probe.event.queue.size.limit", "eventagent.pool.size", "networkagent.pool.size",
        "networkagent.buffer.limit", "internal.counter.resettime", "internal.url.limit", "internal.memory.limit")},
    "negative": {key: -5 for key in (
        "internal.probe.publishing.frequency", "networkagent.publish.frequency", "internal.probe.event.packet.size",
        "internal.probe.event.queue.size.limit", "eventagent.pool.size", "networkagent.pool.size",
        "networkagent.buffer.limit", "networkagent.socket.timeout", "networkagent.socket.resettime",
        "internal.url.limit", "internal.memory.limit", "internal.memory.accept.threshold")},
    "text": {key: "lots" for key in (
        "internal.probe.publishing.frequency", "networkagent.publish.frequency", "internal.probe.event.packet.size",
        "internal.probe.event.queue.size.limit", "eventagent.pool.size", "networkagent.pool.size")},
    "absurd": {"eventagent.pool.size": 1000, "networkagent.pool.size": 1000,
               "internal.probe.event.packet.size": 99999999, "internal.memory.limit": 999999999},
}


class ConfigurationTest(JvmTest):
    def setUp(self):
        super().setUp()
        self.jdk = jdks()[0][1]

    def run_quiet(self, **kwargs):
        program = self.java(self.jdk, "Quiet", **kwargs)
        self.assertTrue(wait_until(lambda: program.poll() is not None, 60), "the application hangs")
        self.assertEqual(0, program.returncode, program.err.read_text())
        self.assertIn("application output", program.out.read_text())
        self.assertIn("application error", program.err.read_text())
        self.assertNoJniWarning(program.out.read_text(), program.err.read_text())
        return program

    def test_garbage_in_the_properties(self):
        for name, properties in GARBAGE.items():
            with self.subTest(name):
                ps = self.server(name=f"ps-{name}")
                home = self.home(properties, name=f"home-{name}")
                program = self.java(self.jdk, "Load", 1, 200, 0, 3, home=home, ps=ps.address)
                self.assertTrue(wait_until(lambda: program.poll() is not None, 60))
                self.assertEqual(0, program.returncode, program.err.read_text())
                self.assertIn("enabled true", program.out.read_text())
                self.assertTrue(wait_until(lambda: ps.requests() or ps.objects("drop"), 5), self.messages())
                self.assertRegex(self.messages(), r'Setting \S+ has the unusable value "[^"]+"; using')

    def test_cpu_is_not_burnt_by_bad_periods(self):
        program = self.java(self.jdk, "Quiet", 3000, home=self.home(GARBAGE["zero"]), ps=self.server().address)
        wait_until(lambda: program.poll() is not None, 30)
        usage = os.times()
        self.assertEqual(0, program.returncode)
        self.assertLess(usage.children_user, 60)

    def test_homes_that_cannot_be_used(self):
        file = self.dir / "file"
        file.write_text("no folder")
        for name, home in (("missing", self.dir / "nowhere"), ("file", file)):
            with self.subTest(name):
                self.run_quiet(home=HOME, flags=(f"-Dam.home={home}",))

    def test_missing_etc_files(self):
        for missing in ("", "datacollector.properties", "vel-qlog.properties", "LogMessages", "am.mod"):
            with self.subTest(missing or "everything"):
                home = self.home(name="home-" + (missing or "none"))
                if missing:
                    (home / "etc" / missing).unlink()
                else:
                    shutil.rmtree(home / "etc")
                self.run_quiet(home=home)

    def test_binary_garbage_in_every_etc_file(self):
        home = self.home()
        for file in (home / "etc").iterdir():
            if file.name != "instrumentation.properties":
                file.write_bytes(bytes(range(256)) * 64)
        self.run_quiet(home=home)

    def test_unusable_publish_servers_and_options(self):
        for ps in ("nonsense", "host:99999999", "[::1]:1", ":", "no.such.host.invalid:1"):
            with self.subTest(ps):
                self.tearDown()
                self.setUp()
                self.run_quiet(ps=ps)

    def test_malformed_command_line(self):
        self.run_quiet(flags=("-Dam.nodename=" + "n" * 3000, "-Dam.appserver=a/b/../%s%n", "-Dam.profilename=" + "p" * 300))

    def test_without_any_agent_files_but_the_libraries(self):
        bare = self.dir / "bare"
        (bare / "lib").mkdir(parents=True)
        for library in (HOME / "lib").glob("*.so"):
            shutil.copy(library, bare / "lib")
        self.run_quiet(home=bare)

    def test_only_the_documented_lines_are_printed(self):
        program = self.run_quiet(home=self.home(), ps="127.0.0.1:1")
        self.assertEqual("application output\n", program.out.read_text())
        allowed = [r"application error", r"\[AM\]: Using log file: .*", r"## Tracer Mode: Default State: false ?",
                   r"NLSPATH=.*", r"INFO: Catalog file is velprobeMessages", r"set log file to .*",
                   r"ffdc base dir is .*"]
        for line in program.err.read_text().splitlines():
            self.assertTrue(not line.strip() or any(re.fullmatch(a + r"\s*", line) for a in allowed), line)


if __name__ == "__main__":
    unittest.main()
