"""Class loaders with old class files, rewritten under the real agent and verified by the VM that runs them."""

import unittest

from harness import TOMCAT, JvmTest, jdks, wait_until

PREFIX = "com.kor.tessar.ruka.jvmpi."
PLAIN = "(Ljava/lang/String;[BII)Ljava/lang/Class;"
# loader -> called method, descriptor, slots
TARGETS = {
    "InheritedLoader": ("defineClass", PLAIN, "0,1,2,3,4"),
    "PrivateLoader": ("own", PLAIN, "0,1,2,3,4"),
    "FinalLoader": ("own", PLAIN, "0,1,2,3,4"),
    "StaticLoader": ("own", "(Ljava/lang/ClassLoader;Ljava/lang/String;[BII)Ljava/lang/Class;", "0,1,2,3,4"),
    "WideLoader": ("own", "(JLjava/lang/String;D[BIIF)Ljava/lang/Class;", "0,3,6,7,8"),
}


def target(loader):
    return " ".join(("Injected$" + loader, "Injected$" + loader) + TARGETS[loader])


class InjectorTest(JvmTest):
    def run_loaders(self, jdk, major, class_loader, proxy, switch="YES"):
        """The program's lines, by loader, with one of them configured in each list."""
        home = self.home(name=f"home{len(self.running)}")
        (home / "etc" / "instrumentation.properties").write_text(
            f"{PREFIX}instrumentDefineClass = {switch}\n{PREFIX}classLoader.1 = {target(class_loader)}\n"
            f"{PREFIX}proxy.1 = {target(proxy)}\n")
        program = self.java(jdk, "Injected", major, *TARGETS, home=home)
        self.assertTrue(wait_until(lambda: program.poll() is not None, 60), "the application hangs")
        self.assertEqual(0, program.returncode, program.err.read_text())
        self.assertNoJniWarning(program.out.read_text(), program.err.read_text())
        lines = [line.split(": ", 1) for line in program.out.read_text().splitlines()]
        return {line[0]: line[1] for line in lines if line[0] in TARGETS}

    def assertLoaders(self, lines, rewritten):
        for loader in TARGETS:
            expected = "woven, plain" if loader in rewritten else "plain unseen, plain unseen"
            self.assertEqual(expected, lines.get(loader), loader)

    def test_every_kind_of_target(self):
        for release, jdk in jdks():
            for major, pair in ((46, ("InheritedLoader", "PrivateLoader")), (47, ("FinalLoader", "StaticLoader")),
                                (48, ("WideLoader", "InheritedLoader"))):
                with self.subTest(jdk=release, major=major):
                    self.assertLoaders(self.run_loaders(jdk, major, *pair), pair)

    def test_newer_class_files_and_a_switched_off_injector_leave_loaders_alone(self):
        jdk = jdks()[-1][1]
        pair = ("InheritedLoader", "PrivateLoader")
        self.assertLoaders(self.run_loaders(jdk, 49, *pair), ())
        self.assertLoaders(self.run_loaders(jdk, 48, *pair, switch="NO"), ())

    def test_every_class_of_the_platform_and_the_container_passes_an_active_hook(self):
        jars = sorted(str(jar) for jar in (TOMCAT / "lib").glob("*.jar"))
        for release, jdk in jdks():
            with self.subTest(jdk=release):
                home = self.home(name=f"home{len(self.running)}")
                (home / "etc" / "instrumentation.properties").write_text(
                    f"{PREFIX}instrumentDefineClass = YES\n{PREFIX}classLoader.1 = {target('InheritedLoader')}\n"
                    f"{PREFIX}proxy.1 = {target('PrivateLoader')}\n")
                lines = []
                for agent in ("none", "path"):
                    program = self.java(jdk, "AllClasses", *jars, home=home, agent=agent, ps="127.0.0.1:1")
                    self.assertTrue(wait_until(lambda: program.poll() is not None, 120), "the application hangs")
                    self.assertEqual(0, program.returncode, program.err.read_text())
                    lines.append(next(line for line in program.out.read_text().splitlines() if line.startswith("loaded")))
                self.assertEqual(lines[0], lines[1])
                self.assertGreater(int(lines[0].split()[1]), 7000)


if __name__ == "__main__":
    unittest.main()
