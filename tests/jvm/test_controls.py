"""Level, lists, rates, tokens, workers, stop and start: every control that Java has, turned in real VMs."""

import unittest

from harness import JvmTest, jdks, wait_until

ANSWERS = {
    "enabled": "true", "level.3": "false 1003", "level.1": "true 1001", "level.9": "false 1001", "level.0": "false 1001",
    "level.-1": "false 1001", "level.1002": "true 1002", "level.2": "false 1002",
    "rates.set": "[10, 20, 30, 40]", "rates.kept": "[10, 20, 30, 40]",
    "jvmpi": "true true", "cpus": "true", "pid": "true", "names": "node server ", "mod": "true",
    "declare": "true", "method": "true true", "withdraw": "true", "token": "4 5",
    "stopped": "true false", "started": "true", "started.id": "true", "service": "true", "again": "true", "done": "yes",
}
REQUESTS = ["level3", "level1", "level9", "level0", "level-1", "level1002", "level2", "lists", "workers", "started", "again"]


class ControlsTest(JvmTest):
    def test_every_control(self):
        def run(jdk):
            ps = self.server()
            home = self.home({"internal.probe.publishing.frequency": 100, "networkagent.publish.frequency": 50})
            program = self.java(jdk, "Controls", home=home, ps=ps.address)
            self.assertTrue(wait_until(lambda: program.poll() is not None, 120), "the program hangs")
            out, err = program.out.read_text(), program.err.read_text()
            self.assertEqual(0, program.returncode, out + err)
            self.assertNoJniWarning(out, err)
            answers = dict(line.split("=", 1) for line in out.splitlines() if "=" in line)
            self.assertEqual(ANSWERS, {key: answers.get(key) for key in ANSWERS})
            ps.stop()
            self.assertEqual([], ps.objects("garbage"), ps.log.read_text())
            names = [request["name"] for request in ps.requests()]
            for name in REQUESTS:
                self.assertIn(name, names)
                self.assertIn(name + ".inner", names)
            self.assertNotIn("stopped", names)
        self.on_every_jdk(run)


if __name__ == "__main__":
    unittest.main()
