"""A real servlet container under the agent: what it served is what the Publish Server shows."""

import unittest

from harness import JvmTest, jdks, wait_until


class ContainerTest(JvmTest):
    def test_every_request_arrives_with_its_traits(self):
        for major, jdk in jdks():
            for agent in ("path", "jar"):
                with self.subTest(jdk=major, agent=agent):
                    self.tearDown()
                    self.setUp()
                    self.serve_and_check(jdk, agent)

    def serve_and_check(self, jdk, agent):
        ps = self.server()
        tomcat = self.tomcat(jdk, ps=ps.address, agent=agent)
        self.assertTrue(wait_until(lambda: ps.objects("agent")), "the agent did not connect:\n" + tomcat.text())
        self.assertEqual(200, tomcat.get("/hello;jsessionid=" + "0A" * 16))
        self.assertEqual(401, tomcat.get("/private/hello"))
        self.assertEqual(200, tomcat.get("/private/hello", user="demo"))
        self.assertEqual(200, tomcat.get("/slow?ms=120"))
        self.assertEqual(200, tomcat.get("/burn?rounds=6000"))
        self.assertEqual(200, tomcat.get("/nested"))
        self.assertEqual(500, tomcat.get("/fail"))
        wait_until(lambda: any(r["url"] == "/demo/fail" for r in ps.requests()))
        by_url = {}
        for request in ps.requests():
            by_url.setdefault(request["url"], []).append(request)

        hello = by_url["/demo/hello"][0]
        self.assertEqual(("Hello", "/demo", "", 1), self.traits(hello))
        private = [r for r in by_url["/demo/private/hello"] if r["user"] == "demo"]
        self.assertEqual(1, len(by_url["/demo/private/hello"]), "the refused request never reached a servlet")
        self.assertEqual(("Hello", "/demo", "demo", 1), self.traits(private[0]))

        slow = next(r for r in by_url["/demo/slow"] if r["depth"] == 1)
        self.assertGreaterEqual(slow["wallMs"], 119)
        self.assertLess(slow["cpuMs"], slow["wallMs"] / 2, "sleeping is not computing")
        burn = by_url["/demo/burn"][0]
        self.assertGreater(burn["cpuMs"], 5)
        self.assertLessEqual(burn["cpuMs"], burn["wallMs"] + 1)

        nested = by_url["/demo/nested"][0]
        included = next(r for r in by_url["/demo/slow"] if r["depth"] == 2)
        forwarded = next(r for r in by_url["/demo/hello"] if r["depth"] == 2)
        self.assertEqual(1, nested["depth"])
        self.assertEqual({nested["thread"]}, {included["thread"], forwarded["thread"]})
        self.assertGreaterEqual(nested["wallMs"] + 0.01, included["wallMs"] + forwarded["wallMs"])

        fail = by_url["/demo/fail"][0]
        self.assertEqual("error", fail["outcome"])
        self.assertEqual({"tomcat"}, {r["server"] for r in ps.requests()})
        tomcat.stop()
        self.assertNoJniWarning(tomcat.text())

    @staticmethod
    def traits(request):
        return request["name"], request["application"], request["user"], request["depth"]


if __name__ == "__main__":
    unittest.main()
