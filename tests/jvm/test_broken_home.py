"""Every broken form of velora.jar and of the home: the application runs, its exit code and its standard output are its
own, and at most one line is on standard error."""

import os
import re
import shutil
import subprocess
import unittest
import zipfile

from harness import CLASSES, HOME, JvmTest, jdks


def cut(jar, length):
    jar.write_bytes(jar.read_bytes()[:length])


def flip(jar, at):
    data = bytearray(jar.read_bytes())
    data[at] ^= 0xFF
    jar.write_bytes(data)


def repack(jar, change, compression=zipfile.ZIP_STORED):
    """change(name, content) gives the new content, or None to leave the entry out."""
    with zipfile.ZipFile(jar) as old:
        entries = [(name, change(name, old.read(name))) for name in old.namelist()]
    with zipfile.ZipFile(jar, "w", compression) as new:
        for name, content in entries:
            if content is not None:
                new.writestr(name, content)


def without(*names):
    return lambda jar: repack(jar, lambda name, content: None if name in names else content)


def replaced_by(make):
    def change(path):
        path.unlink()
        make(path)
    return change


PREMAIN = "com/velora/agent/Premain.class"
JARS = {
    "cutOff": lambda jar: cut(jar, 120000),
    "cutInTheDirectory": lambda jar: cut(jar, jar.stat().st_size - 100),
    "empty": lambda jar: cut(jar, 0),
    "garbage": lambda jar: jar.write_bytes(os.urandom(100000)),
    "damagedClass": lambda jar: flip(jar, jar.read_bytes().index(b"agent/Premain") + 200),
    "noManifest": without("META-INF/MANIFEST.MF"),
    "manifestWithoutPremain": lambda jar: repack(
        jar, lambda name, content: content.replace(b"Premain-Class", b"Fremain-Class")),
    "withoutPremain": without(PREMAIN),
    "premainIsNoClass": lambda jar: repack(jar, lambda name, content: b"no class" if name == PREMAIN else content,
                                           zipfile.ZIP_DEFLATED),
    "withoutTheLog": without("com/velora/agent/AgentLog.class"),
    "withoutTheCollector": without("com/velora/agent/Collector.class"),
    "withoutTheHelper": without("com/velora/bcm/bootstrap/BcmBootstrapDefineHelper.class"),
    "withoutTheNativesClasses": without("com/velora/probe/ProbeController.class", "com/velora/probe/ThreadManager.class"),
    "missing": lambda jar: jar.unlink(),
    "folder": replaced_by(lambda jar: jar.mkdir()),
    "fifo": replaced_by(lambda jar: os.mkfifo(jar)),
    "unreadable": replaced_by(lambda jar: jar.symlink_to("/proc/self/mem")),
}
# What a start prints to standard error whatever it finds (docs/LOGGING.md).
ANNOUNCED = re.compile(r"## Tracer Mode: Default State: false ?|\[AM\]: Using log file: .*|NLSPATH=.*|"
                       r"INFO: Catalog file is velprobeMessages|set log file to .*|ffdc base dir is .*")
FILES = ("etc/datacollector.properties", "etc/vel-qlog.properties", "etc/LogMessages", "etc/am.mod",
         "etc/instrumentation.properties", "msg/velprobeMessages.cat", "codeset/velprobeMessages.codeset")


class BrokenHomeTest(JvmTest):
    def copied_home(self, name):
        home = self.dir / name
        shutil.copytree(HOME, home, symlinks=True, ignore=shutil.ignore_patterns("logs"))
        (home / "logs").mkdir()
        return home

    def run_under(self, jdk, home, *flags):
        command = [str(jdk / "bin" / "java"), f"-agentpath:{home}/lib/libvelora_agent.so=ps=127.0.0.1:1", *flags]
        if "-m" not in flags:
            command += ["-cp", str(CLASSES), "Quiet", "300", "3"]
        return subprocess.run(command, capture_output=True, text=True, timeout=60, cwd=self.dir,
                              env={**os.environ, "QLOG_COMMON_DIR": str(self.dir / "qlog")})

    def check(self, result, said=None):
        self.assertEqual((3, "application output\n"), (result.returncode, result.stdout), result.stderr)
        lines = result.stderr.splitlines()
        self.assertEqual(1, lines.count("application error"), result.stderr)
        ours = [line for line in lines if line != "application error" and not ANNOUNCED.fullmatch(line)]
        self.assertLessEqual(len(ours), 1, result.stderr)
        if said:
            self.assertIn(said, "".join(ours))

    def test_every_broken_jar(self):
        for major, jdk in jdks():
            for name, spoil in JARS.items():
                with self.subTest(jdk=major, jar=name):
                    home = self.copied_home(f"{major}-{name}")
                    spoil(home / "lib" / "velora.jar")
                    result = self.run_under(jdk, home)
                    self.check(result)
                    shutil.rmtree(home)

    def test_every_file_of_the_home_as_a_pipe_or_a_folder(self):
        for major, jdk in jdks():
            for file in FILES:
                for kind, make in (("pipe", os.mkfifo), ("folder", os.mkdir)):
                    with self.subTest(jdk=major, file=file, kind=kind):
                        home = self.copied_home(f"{major}-{kind}-{file.replace('/', '-')}")
                        path = home / file
                        path.unlink(missing_ok=True)
                        make(path)
                        self.check(self.run_under(jdk, home))
                        shutil.rmtree(home)

    def test_modules_without_the_instrument_library(self):
        for major, jdk in jdks():
            for flags in (["--limit-modules", "java.base"], ["--limit-modules=java.base,java.logging"]):
                with self.subTest(jdk=major, flags=flags):
                    self.check(self.run_under(jdk, HOME, *flags), "--add-modules java.instrument")


if __name__ == "__main__":
    unittest.main()
