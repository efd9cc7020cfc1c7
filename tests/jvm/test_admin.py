"""The admin port: what an operator can ask a monitored server with velora-ps, and callers who behave badly."""

import pathlib
import re
import socket
import subprocess
import threading
import time
import unittest

from harness import HOME, JvmTest, PublishServer, jdks, wait_until


class AdminTest(JvmTest):
    def start(self, jdk, *flags, agent="path", home=None, args=()):
        """The running program and the port that its records tell of."""
        ps = self.server()
        process = self.java(jdk, "Asked", *args, ps=ps.address, agent=agent, home=home, flags=flags,
                            stdin=subprocess.PIPE)
        self.assertTrue(wait_until(lambda: "ready" in process.out.read_text(), 60), process.err.read_text())
        self.assertTrue(wait_until(lambda: ps.objects("agent"), 60), process.err.read_text())
        return process, ps.objects("agent")[0]["adminPort"]

    def end(self, process):
        process.stdin.close()
        self.assertEqual(0, process.wait(60))
        out, err = process.out.read_text(errors="replace"), process.err.read_text(errors="replace")
        self.assertNoJniWarning(out, err)
        self.assertNotIn("Exception", err)

    def ask(self, port, *command, expected=0):
        """What velora-ps prints, on standard error when the status is 1."""
        asked = subprocess.run([HOME / "bin" / "velora-ps", "--ask", f"127.0.0.1:{port}", *command],
                               capture_output=True, text=True, timeout=120)
        self.assertEqual(expected, asked.returncode, asked.stderr)
        self.assertEqual("", asked.stderr if expected == 0 else asked.stdout)
        return asked.stdout if expected == 0 else asked.stderr

    def log(self, home):
        return "".join(file.read_text(errors="replace") for file in (home / "logs").glob("*.log"))

    # ---- questions -----------------------------------------------------------------------------------------------

    def test_questions(self):
        self.on_every_jdk(lambda jdk: self.check_questions(jdk, "path", "-Dvelora.admin=0"))

    def test_questions_with_the_agent_option(self):
        def run(jdk):
            home = self.home()
            self.check_questions(jdk, "none", f"-agentpath:{home}/lib/libvelora_agent.so=server=server,admin=0",
                                 f"-Dam.home={home}", "-Dam.nodename=node", home=home)
        self.on_every_jdk(run)

    def test_questions_as_java_agent(self):
        self.on_every_jdk(lambda jdk: self.check_questions(jdk, "jar", "-Dvelora.admin=0"))

    def check_questions(self, jdk, agent, *flags, home=None):
        process, port = self.start(jdk, *flags, agent=agent, home=home)
        self.assertIn(f"The admin port is 127.0.0.1:{port}", self.log(process.home))
        self.assertEqual({"7F000001"}, self.listening_addresses(port))
        self.check_status(self.ask(port, "status"), process.pid)
        threads = self.threads(self.ask(port, "threads"))
        self.assertEqual(("waiting", "shop"), threads["odd?name?\u00f6"][1:])
        number, status, group = threads["till 1"]
        self.assertEqual(("blocked", "shop"), (status, group))
        self.assertEqual(f"thread {number}: blocked\n    at Asked.pay(java.lang.String, int[])\n",
                         "".join(self.ask(port, "stack", number).splitlines(True)[:2]))
        self.check_heap(self.ask(port, "heap"))
        self.assertIn("there is no monitored thread 4294967295", self.ask(port, "stack", "4294967295", expected=1))
        for command in ("stack", "stack x", "stack 1 2", "heap now", "halt"):
            self.assertIn("expected: stack ID" if "stack" in command else "the commands are heap, threads, stack ID",
                          self.ask(port, *command.split(), expected=1))
        self.end(process)

    @staticmethod
    def threads(text):
        """{name: (number, status, group)}; the columns line up under their names."""
        lines = text.splitlines()
        starts = [lines[0].index(word) for word in ("THREAD", "STATUS", "GROUP", "NAME")]
        fields = [[line[a:b].strip() for a, b in zip(starts, starts[1:] + [None])] for line in lines[1:]]
        return {name: (number, status, group) for number, status, group, name in fields}

    def check_status(self, text, pid):
        facts = dict(re.split(r"  +", line, maxsplit=1) for line in text.splitlines())
        self.assertEqual(("node", "server", str(pid), "enabled", "1002"),
                         tuple(facts[what] for what in ("node", "server", "process", "probe", "monitoring level")))
        self.assertGreater(int(facts["native memory (bytes)"]), 0)

    def check_heap(self, text):
        lines = [line.split(None, 5) for line in text.splitlines()]
        self.assertEqual(["BYTES", "%", "OBJECTS", "%", "BYTES/OBJECT", "CLASS"], lines[0])
        rows, total = lines[1:-1], lines[-1]
        sizes = [int(row[0]) for row in rows]
        self.assertEqual(sorted(sizes, reverse=True), sizes)
        objects = [int(row[2]) for row in rows]
        self.assertEqual(["total", str(sum(sizes)), str(sum(objects))], [total[5], total[0], total[2]])
        found = {row[5]: (int(row[0]), int(row[2]), row[4]) for row in rows}
        self.assertEqual((4321 * (8 + 4), 4321, "12.0"), found["Asked$KnownOrder"])
        self.assertEqual((1234 * (8 + 2), 1234, "10.0"), found["Asked$KnownItem"])
        self.assertLessEqual({"primitive[]", "object[]", "java.lang.String"}, set(found))

    @staticmethod
    def listening_addresses(port):
        """The IPv4 addresses, as eight hexadecimal digits, on which somebody of this host listens at the port."""
        found = set()
        for table in ("tcp", "tcp6"):
            for line in pathlib.Path(f"/proc/net/{table}").read_text().splitlines()[1:]:
                address, number = line.split()[1].split(":")
                if int(number, 16) == port and line.split()[3] == "0A":
                    word = bytes.fromhex(address[-8:])  # in the host's order
                    found.add(int.from_bytes(word, "little").to_bytes(4, "big").hex().upper())
        return found

    def test_a_request_under_way(self):
        self.on_every_jdk(self.check_container)

    def check_container(self, jdk):
        ps = self.server()
        tomcat = self.tomcat(jdk, ps=ps.address, flags=["-Dvelora.admin=0"])
        self.assertTrue(wait_until(lambda: ps.objects("agent")), tomcat.text())
        port = ps.objects("agent")[0]["adminPort"]
        slow = threading.Thread(target=tomcat.get, args=["/slow?ms=6000"])
        slow.start()
        number = wait_until(lambda: self.thread_in(port, "Slow.doGet("))
        slow.join()
        self.assertTrue(wait_until(ps.requests))
        self.assertEqual(str(ps.requests()[0]["thread"]), number, "the THREAD of the request's row")
        ps.stop()  # on the next connection the container is known by name, and the port is still told
        again = PublishServer(self, ps.port, "again")
        self.assertTrue(wait_until(lambda: again.objects("agent")), tomcat.text())
        agent = again.objects("agent")[0]
        self.assertEqual(("Apache Tomcat", port), (agent["componentId"], agent["adminPort"]))
        tomcat.stop()
        self.assertNoJniWarning(tomcat.text())

    def thread_in(self, port, method):
        """The number of a thread in whose stack the method stands."""
        for number, _, _ in self.threads(self.ask(port, "threads")).values():
            asked = subprocess.run([HOME / "bin" / "velora-ps", "--ask", f"127.0.0.1:{port}", "stack", number],
                                   capture_output=True, text=True, timeout=60)  # it may have ended meanwhile
            if method in asked.stdout:
                return number
        return None

    # ---- callers who behave badly --------------------------------------------------------------------------------

    def test_rude_callers(self):
        self.on_every_jdk(self.check_rude_callers)

    def check_rude_callers(self, jdk):
        process, port = self.start(jdk, "-Dvelora.admin=0")
        known = "the commands are heap, threads, stack ID and status"
        browser = b"GET /heap HTTP/1.1\r\nHost: x\r\nAccept: */*\r\n\r\n"
        for sent in (browser, b"\n", b"\x00\xff\xfe\n", b"heap\xc3\xa9\n"):
            self.assertEqual(f"error: unknown command; {known}\n", self.talk(port, sent), sent)
        late = "error: expected one line of at most 256 bytes, begun within 500 ms and whole within 5 s: " + known + "\n"
        begin = time.monotonic()
        self.assertEqual(late, self.talk(port, b"x" * 5000))
        self.assertLess(time.monotonic() - begin, 4, "more than a line can hold is no reason to wait")
        self.assertEqual(late, self.talk(port, b"hea", hang_up=True))
        self.assertTrue(self.talk(port, b"status\r\nheap\n").startswith("node\t"))
        with socket.create_connection(("127.0.0.1", port)) as slow:
            slow.sendall(b"thr")  # says no more, and stays
            begin = time.monotonic()
            self.ask(port, "status")
            self.assertLess(time.monotonic() - begin, 4)
            self.assertEqual(late.encode(), slow.recv(1000))
        idle = [socket.create_connection(("127.0.0.1", port)) for _ in range(8)]
        begin = time.monotonic()
        self.ask(port, "status")
        self.assertLess(time.monotonic() - begin, 4, "they say nothing, and keep nobody out")
        self.assertEqual([late.encode()] * 8, [each.recv(1000) for each in idle])
        for each in idle:
            each.close()
        self.assertIn("\nobject[],", self.talk(port, b"heap\n"))
        self.assertIn("the next can be taken in", self.talk(port, b"heap\n"))
        for _ in range(30):
            with socket.create_connection(("127.0.0.1", port)) as gone:
                gone.sendall(b"threads\n")
        self.ask(port, "status")
        self.end(process)

    def talk(self, port, sent, hang_up=False):
        with socket.create_connection(("127.0.0.1", port), timeout=20) as caller:
            caller.sendall(sent)
            if hang_up:
                caller.shutdown(socket.SHUT_WR)
            received = b""
            while chunk := caller.recv(65536):
                received += chunk
            return received.decode()

    def test_caller_who_does_not_take_the_answer(self):
        process, port = self.start(jdks()[-1][1], "-Dvelora.admin=0", args=[20_000_000])
        with socket.socket() as caller:
            caller.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            caller.connect(("127.0.0.1", port))
            caller.sendall(b"threads\n")
            begin = time.monotonic()
            self.ask(port, "status")
            self.assertLess(time.monotonic() - begin, 8)
            time.sleep(12)
            with self.assertRaises(ConnectionResetError, msg="a cut answer must not end like a whole one"):
                while caller.recv(65536):
                    continue
        self.end(process)

    # ---- no answer -----------------------------------------------------------------------------------------------

    def test_disabled_probe(self):
        process, port = self.start(jdks()[-1][1], "-Dvelora.admin=0", args=["stopped"])
        self.assertRegex(self.ask(port, "status"), r"probe +disabled")
        for command in (["heap"], ["stack", "1"]):
            self.assertIn("the probe is disabled", self.ask(port, *command, expected=1))
        self.end(process)

    # ---- no port -------------------------------------------------------------------------------------------------

    def test_port_in_use(self):
        with socket.create_server(("127.0.0.1", 0)) as taken:
            port = taken.getsockname()[1]
            process, none = self.start(jdks()[-1][1], f"-Dvelora.admin={port}")
            self.assertEqual(0, none)
            self.assertIn(f"There is no admin port: cannot listen on 127.0.0.1:{port}", self.log(process.home))
            self.end(process)

    def test_no_port_unless_it_is_asked_for(self):
        jdk = jdks()[-1][1]
        for flags, words in (((), ""), (("-Dvelora.admin=here",), "admin=here is no port of 0 to 65535")):
            self.tearDown()
            self.setUp()
            process, port = self.start(jdk, *flags)
            self.assertEqual(0, port)
            names = {task.read_text().strip() for task in pathlib.Path(f"/proc/{process.pid}/task").glob("*/comm")}
            self.assertIn("Velora-event-0", names)
            self.assertEqual(set(), {name for name in names if name.startswith("Velora-admin")})
            self.assertIn(words, self.log(process.home))
            self.end(process)


if __name__ == "__main__":
    unittest.main()
