"""What the tests in real VMs share: JDKs, agent homes, Publish Servers, Java programs, containers and their logs.

Everything listens on loopback and free ports, lives in a temporary folder and is stopped by process id.
"""

import glob
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import threading
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("VELORA_BUILD", ROOT / "build" / "dev"))
HOME = BUILD / "home"
CLASSES = BUILD / "tests" / "jvm" / "programs"
TOMCAT = pathlib.Path("/usr/share/tomcat10")


def jdks():
    """Every JDK from 17 on below the usual folder, once each, oldest first: [(major, folder)]."""
    found = {}
    for release in glob.glob("/usr/lib/jvm/*/release"):
        folder = pathlib.Path(release).parent.resolve()
        match = re.search(r'JAVA_VERSION="(\d+)', pathlib.Path(release).read_text(errors="replace"))
        if match and int(match.group(1)) >= 17 and (folder / "bin" / "java").exists():
            found[folder] = int(match.group(1))
    return sorted((major, folder) for folder, major in found.items())


def wait_until(condition, seconds=20.0, step=0.02):
    """The condition's first true value, or its last false one when time is up."""
    end = time.monotonic() + seconds
    while True:
        value = condition()
        if value or time.monotonic() > end:
            return value
        time.sleep(step)


class JvmTest(unittest.TestCase):
    """A test with a folder of its own; processes started through it are ended with it."""

    def setUp(self):
        self.dir = pathlib.Path(tempfile.mkdtemp(prefix="velora-test-"))
        self.running = []

    def tearDown(self):
        for process in reversed(self.running):
            stop(process)
        outcome = getattr(self, "_outcome", None)
        failed = outcome is not None and any(error for _, error in getattr(outcome, "errors", []) or [])
        if failed and os.environ.get("VELORA_KEEP"):
            print("kept", self.dir)
        else:
            shutil.rmtree(self.dir, ignore_errors=True)

    def on_every_jdk(self, run):
        for major, jdk in jdks():
            with self.subTest(jdk=major):
                self.tearDown()
                self.setUp()
                run(jdk)

    def home(self, properties=None, name="home"):
        """An agent home with its own etc/ and logs/; libraries and messages are those of the build."""
        home = self.dir / name
        home.mkdir()
        for folder in ("lib", "msg", "codeset", "bin"):
            (home / folder).symlink_to(HOME / folder)
        shutil.copytree(HOME / "etc", home / "etc")
        (home / "logs").mkdir()
        if properties:
            lines = "".join(f"{key}={value}\n" for key, value in properties.items())
            with open(home / "etc" / "datacollector.properties", "a") as file:
                file.write("\n" + lines)
        return home

    def server(self, port=0, name="ps", format="json"):
        return PublishServer(self, port, name, format)

    def java(self, jdk, program, *args, home=None, ps=None, agent="path", flags=(), env=None, cwd=None,
             stdin=subprocess.DEVNULL):
        """Starts a program of tests/jvm/programs under the agent; agent is path, jar or none."""
        home = home or self.home()
        out, err = self.dir / f"{program}.out", self.dir / f"{program}.err"
        command = [str(jdk / "bin" / "java"), "-Xcheck:jni", "-Xmx256m"]
        if agent == "path":
            command += [f"-agentpath:{home}/lib/libvelora_agent.so", f"-Dam.home={home}"]
        elif agent == "jar":
            command += [f"-javaagent:{home}/lib/velora.jar", f"-Dam.home={home}"]
        if agent != "none":
            command += ["-Dam.nodename=node", "-Dam.appserver=server"]
        if ps:
            command.append(f"-Dvelora.ps={ps}")
        command += [*flags, "-cp", str(CLASSES), program, *map(str, args)]
        environment = {**os.environ, "QLOG_COMMON_DIR": str(self.dir / "qlog"), **(env or {})}
        with open(out, "wb") as o, open(err, "wb") as e:
            process = subprocess.Popen(command, stdout=o, stderr=e, stdin=stdin, env=environment,
                                       cwd=cwd or self.dir)
        process.out, process.err, process.home = out, err, home
        self.running.append(process)
        return process

    def tomcat(self, jdk, home=None, ps=None, flags=(), agent="path"):
        return Container(self, jdk, home or self.home(), ps, flags, agent)

    def messages(self):
        """The operator messages, from every rotated file, oldest first."""
        files = sorted((self.dir / "qlog").glob("VEL/logs/dc-message*"), key=lambda f: f.stat().st_mtime)
        return "".join(file.read_text(errors="replace") for file in files)

    def assertNoJniWarning(self, *texts):
        for text in texts:
            for line in text.splitlines():
                self.assertNotIn("WARNING in native method", line)
                self.assertNotIn("WARNING: JNI local refs", line)
                self.assertNotIn("FATAL ERROR in native method", line)


def stop(process, seconds=20):
    if process.poll() is None:
        process.send_signal(signal.SIGTERM)
        try:
            process.wait(seconds)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
    return process.returncode


class PublishServer:
    """A velora-ps that writes JSON lines, or its table, to the file json."""

    def __init__(self, test, port, name, format="json"):
        self.test, self.name = test, name
        self.json = test.dir / f"{name}.jsonl"
        self.log = test.dir / f"{name}.log"
        self.process = None
        self.port = port
        self.format = format
        self.start()

    def start(self):
        port_file = self.test.dir / f"{self.name}.port"
        port_file.unlink(missing_ok=True)
        with open(self.json, "ab") as out, open(self.log, "ab") as err:
            self.process = subprocess.Popen(
                [str(HOME / "bin" / "velora-ps"), "--listen", f"127.0.0.1:{self.port}", "--port-file",
                 str(port_file), "--format", self.format], stdout=out, stderr=err, stdin=subprocess.DEVNULL)
        self.test.running.append(self.process)
        if not wait_until(lambda: port_file.exists() and port_file.read_text().strip(), 15):
            raise AssertionError("velora-ps did not start: " + self.log.read_text())
        self.port = int(port_file.read_text())

    def stop(self):
        return stop(self.process)

    def kill(self):
        self.process.kill()
        self.process.wait()

    @property
    def address(self):
        return f"127.0.0.1:{self.port}"

    def objects(self, kind=None):
        result = []
        for line in self.json.read_text(errors="replace").splitlines():
            try:
                entry = json.loads(line)
            except ValueError:
                continue  # the last line may be half written
            if kind is None or entry.get("type") == kind:
                result.append(entry)
        return result

    def requests(self):
        return self.objects("request")


class Container:
    """A Tomcat with the demo application, its own base folder and a free port."""

    def __init__(self, test, jdk, home, ps, flags, agent):
        self.base = test.dir / "tomcat"
        for folder in ("logs", "temp", "webapps", "work"):
            (self.base / folder).mkdir(parents=True)
        shutil.copytree(ROOT / "demo" / "container" / "conf", self.base / "conf")
        self.log = test.dir / "tomcat.log"
        command = [str(jdk / "bin" / "java"), "-Xcheck:jni", "-Xmx256m"]
        if agent == "path":
            command.append(f"-agentpath:{home}/lib/libvelora_agent.so")
        elif agent == "jar":
            command.append(f"-javaagent:{home}/lib/velora.jar")
        if ps:
            command.append(f"-Dvelora.ps={ps}")
        command += [f"-Dam.home={home}", "-Dam.nodename=node", "-Dam.appserver=tomcat", *flags,
                    f"-Dcatalina.home={TOMCAT}", f"-Dcatalina.base={self.base}",
                    f"-Djava.io.tmpdir={self.base}/temp", "-Ddemo.port=0",
                    f"-Ddemo.webapp={BUILD}/demo/webapp", "-cp",
                    f"{TOMCAT}/bin/bootstrap.jar:{TOMCAT}/bin/tomcat-juli.jar",
                    "org.apache.catalina.startup.Bootstrap", "start"]
        environment = {**os.environ, "QLOG_COMMON_DIR": str(test.dir / "qlog")}
        with open(self.log, "wb") as out:
            self.process = subprocess.Popen(command, stdout=out, stderr=subprocess.STDOUT,
                                            stdin=subprocess.DEVNULL, env=environment, cwd=test.dir)
        test.running.append(self.process)
        if not wait_until(lambda: "Server startup in" in self.text() or self.process.poll() is not None, 90):
            raise AssertionError("Tomcat did not start:\n" + self.text())
        match = re.search(r'"http-nio-127\.0\.0\.1-auto-\d+-(\d+)"', self.text())
        if not match:
            raise AssertionError("Tomcat did not start:\n" + self.text())
        self.port = int(match.group(1))

    def text(self):
        return self.log.read_text(errors="replace")

    def get(self, path, user=None):
        """The status of one GET below /demo."""
        import base64
        import http.client
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=30)
        headers = {}
        if user:
            headers["Authorization"] = "Basic " + base64.b64encode(f"{user}:{user}".encode()).decode()
        connection.request("GET", "/demo" + path, headers=headers)
        response = connection.getresponse()
        response.read()
        connection.close()
        return response.status

    def stop(self):
        return stop(self.process)


class RudeServer:
    """A server that takes connections and misbehaves: mode is hang (never reads), close (at once) or slurp (reads
    everything into received)."""

    def __init__(self, mode, port=0):
        self.mode = mode
        self.socket = socket.create_server(("127.0.0.1", port))
        self.port = self.socket.getsockname()[1]
        self.connections = 0
        self.received = {}
        self.held = []
        self.open = True
        self.thread = threading.Thread(target=self._serve, daemon=True)
        self.thread.start()

    @property
    def address(self):
        return f"127.0.0.1:{self.port}"

    def _serve(self):
        while self.open:
            try:
                connection, _ = self.socket.accept()
            except OSError:
                return
            self.connections += 1
            if self.mode == "close":
                connection.close()
                continue
            self.held.append(connection)
            if self.mode == "slurp":
                threading.Thread(target=self._slurp, args=(connection, self.connections), daemon=True).start()

    def _slurp(self, connection, number):
        self.received[number] = b""
        while True:
            try:
                data = connection.recv(65536)
            except OSError:
                return
            if not data:
                return
            self.received[number] += data

    def close(self):
        self.open = False
        self.socket.close()
        for connection in self.held:
            connection.close()


class CuttingProxy:
    """Forwards connections to a Publish Server and resets them: each one once it has carried the next number of cuts
    (bytes). Everything that the proxy's system has acknowledged still arrives: before the reset the sender has filled
    the receive buffer, which is then looked at without making room in it."""

    def __init__(self, target_port, cuts):
        self.target_port, self.cuts = target_port, list(cuts)
        self.done = 0  # connections that were cut
        self.socket = socket.socket()
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8192)  # inherited by what is accepted
        self.socket.bind(("127.0.0.1", 0))
        self.socket.listen()
        self.address = f"127.0.0.1:{self.socket.getsockname()[1]}"
        threading.Thread(target=self._serve, daemon=True).start()

    def _serve(self):
        while True:
            try:
                connection, _ = self.socket.accept()
            except OSError:
                return
            with connection, socket.create_connection(("127.0.0.1", self.target_port)) as target:
                self._forward(connection, target, self.cuts.pop(0) if self.cuts else None)

    def _forward(self, connection, target, most):
        carried = 0
        while most is None or carried < most:
            data = connection.recv(4096)
            if not data:
                return
            target.sendall(data)
            carried += len(data)
        last, held = None, b""
        while last != held:
            last = held
            time.sleep(0.3)
            try:
                held = connection.recv(1 << 20, socket.MSG_PEEK | socket.MSG_DONTWAIT)
            except BlockingIOError:
                held = b""
        target.sendall(held)
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.done += 1

    def close(self):
        self.socket.close()
