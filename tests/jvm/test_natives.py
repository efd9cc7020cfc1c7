"""The natives of requests and locks, called oddly from Java in real VMs under -Xcheck:jni."""

import re
import unittest

from harness import JvmTest, jdks, wait_until

ANSWERS = {
    "stack.disabled": "null", "enabled": "true",
    "http.id": "true", "ejb.id": "true", "iiop.id": "true",
    "lock.0": "false", "lock.1": "true", "lock.2": "true", "lock.3": "true", "lock.4": "true", "lock.5": "true",
    "lock.6": "true", "lock.7": "false",
    "dump": "-1 null", "dump.null": "-1",
    "done": "yes",
}


class NativesTest(JvmTest):
    def test_all_natives(self):
        for major, jdk in jdks():
            with self.subTest(jdk=major):
                ps = self.server(name=f"ps-{major}")
                home = self.home(name=f"home-{major}")
                program = self.java(jdk, "Natives", home=home, ps=ps.address)
                self.assertTrue(wait_until(lambda: program.poll() is not None, 120), "the program hangs")
                out, err = program.out.read_text(), program.err.read_text()
                self.assertEqual(0, program.returncode, out + err)
                self.assertNoJniWarning(out, err)
                answers = dict(line.split("=", 1) for line in out.splitlines() if "=" in line)
                self.assertEqual(ANSWERS, {key: answers.get(key) for key in ANSWERS})
                self.check_records(ps)

    def check_records(self, ps):
        self.assertTrue(wait_until(lambda: sum(r["name"] == "many" for r in ps.requests()) == 1000, 15),
                        self.messages())
        requests = ps.requests()
        by_kind = {kind: [r for r in requests if r["kind"] == kind]
                   for kind in ("servlet", "ejb", "iiopClient")}
        self.assertEqual(1000, sum(r["name"] == "many" and r["outcome"] == "ok" for r in by_kind["servlet"]))
        wide = next(r for r in by_kind["servlet"] if r["name"].startswith("\u20ac"))
        self.assertEqual("error", wide["outcome"])
        self.assertTrue(re.fullmatch("(\u20ac\U0001F600)+\u20ac?", wide["name"]), "cut inside a character")
        self.assertLess(len(wide["name"].encode("utf-16-le")) // 2 * 3, 1000 + 3)
        self.assertEqual("Bean", by_kind["ejb"][0]["name"])
        self.assertEqual((3, "Class.method"), (by_kind["iiopClient"][0]["depth"], by_kind["iiopClient"][0]["name"]))
        self.assertEqual({"lockAcquisition", "lockContention", "lockRelease"},
                         {lock["kind"] for lock in ps.objects("lock")})
        self.assertEqual(1, len(ps.objects("trace")))


if __name__ == "__main__":
    unittest.main()
