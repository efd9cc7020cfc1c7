"""The ways in: whichever flag names the agent, it comes up once, knows who it is and leaves no trace in the environment."""

import os
import shutil
import unittest

from harness import HOME, JvmTest, jdks, wait_until


class LaunchTest(JvmTest):
    def run_program(self, jdk, *args, home=HOME, **kwargs):
        program = self.java(jdk, "Started", *args, home=home, agent="none", **kwargs)
        self.assertTrue(wait_until(lambda: program.poll() is not None, 60), "the application hangs")
        out, err = program.out.read_text(), program.err.read_text()
        self.assertEqual(0, program.returncode, err)
        self.assertNoJniWarning(out, err)
        self.assertNotIn("no longer supported", out + err)
        return out, err

    def logs(self, home):
        return sorted(log.name for log in (home / "logs").glob("*.datacollector.log"))

    def test_each_way_and_all_together_start_it_once(self):
        for major, jdk in jdks():
            for name, agents in (("path", ["path"]), ("jar", ["jar"]), ("both", ["path", "jar"])):
                with self.subTest(jdk=major, way=name):
                    home = self.home(name=f"home-{major}-{name}")
                    flags = []
                    if "path" in agents:
                        flags.append(f"-agentpath:{home}/lib/libvelora_agent.so=node=n,server={name},ps=127.0.0.1:1")
                    if "jar" in agents:
                        flags.append(f"-javaagent:{home}/lib/velora.jar=node=n,server={name},ps=127.0.0.1:1")
                    flags.append(f"-Dam.home={home}")
                    out, err = self.run_program(jdk, "expected", home=home, flags=flags)
                    self.assertIn("workers 1\n", out)
                    self.assertIn("own null\ninherited 0\n", out)
                    self.assertNotIn("Velora:", err)
                    logs = self.logs(home)
                    self.assertEqual(1, len(logs), logs)
                    self.assertIn(f".{name}.", logs[0])

    def test_home_and_names_are_derived(self):
        home = self.dir / "copied"
        (home / "logs").mkdir(parents=True)
        shutil.copytree(HOME / "lib", home / "lib")
        shutil.copytree(HOME / "etc", home / "etc")
        flag = f"-agentpath:{home}/lib/libvelora_agent.so=ps=127.0.0.1:1"
        self.run_program(jdks()[0][1], flags=[flag])
        self.assertEqual(1, len(self.logs(home)), "the home is not where the library lies")
        self.assertIn(".Started.", self.logs(home)[0])

    def test_options_beat_the_environment_and_properties_beat_both(self):
        home = self.home()
        library = f"-agentpath:{home}/lib/libvelora_agent.so=server=option,ps=127.0.0.1:1"
        environment = {"am.home": str(home), "am.appserver": "environment"}
        jdk = jdks()[0][1]
        out, _ = self.run_program(jdk, flags=[library], env=environment)
        self.assertIn(f"own {home}\ninherited 2\n", out)  # as it was before us
        self.assertIn(".option.", self.logs(home)[0])
        shutil.rmtree(home / "logs")
        (home / "logs").mkdir()
        flags = [library]
        self.run_program(jdk, flags=flags,
                         env={**environment, "JAVA_TOOL_OPTIONS": "-Dam.appserver=property"})
        self.assertIn(".property.", self.logs(home)[0])

    def test_what_is_wrong_is_said_once_and_the_application_runs(self):
        jdk = jdks()[0][1]
        home = self.home()
        library = f"-agentpath:{home}/lib/libvelora_agent.so"
        _, err = self.run_program(jdk, flags=[f"{library}=sever=x,ps=127.0.0.1:1"])
        self.assertEqual(1, err.count("Velora:"), err)
        self.assertRegex(err, r'unknown agent option "sever=x" ignored; known: .*\badmin\b')
        out, err = self.run_program(jdk, flags=[f"{library}=home=/no/such/folder"])
        self.assertIn("workers 0", out)
        self.assertEqual(1, err.count("Velora:"), err)
        self.assertIn('the agent home "/no/such/folder" is no readable folder', err)
        bare = self.dir / "bare"
        (bare / "lib").mkdir(parents=True)
        for file in (HOME / "lib").glob("*.so"):
            shutil.copy(file, bare / "lib")
        out, err = self.run_program(jdk, flags=[f"-agentpath:{bare}/lib/libvelora_agent.so"])
        self.assertIn("workers 0", out)
        self.assertIn("the Java side does not run: cannot read", err)

    def test_switched_off(self):
        home = self.home()
        out, err = self.run_program(jdks()[0][1],
                                    flags=[f"-agentpath:{home}/lib/libvelora_agent.so=probe=off"])
        self.assertIn("workers 0", out)
        self.assertNotIn("Velora:", err)


    def test_an_application_of_named_modules_runs_and_is_told_how_to_be_monitored(self):
        import subprocess
        add = ["--add-modules", "java.instrument"]
        for major, jdk in jdks():
            for extra, variable, monitored in (([], "", False), (add, "", True), ([], " ".join(add), True)):
                with self.subTest(jdk=major, extra=extra, variable=variable):
                    home = self.home(name=f"home-{major}-{len(extra)}-{len(variable)}")
                    result = subprocess.run(
                        [str(jdk / "bin" / "java"), f"-agentpath:{home}/lib/libvelora_agent.so=ps=127.0.0.1:1", *extra,
                         "-m", "jdk.compiler/com.sun.tools.javac.Main", "-version"],
                        capture_output=True, text=True, timeout=60, env={**os.environ, "JDK_JAVA_OPTIONS": variable})
                    self.assertEqual(0, result.returncode, result.stderr)
                    self.assertIn("javac", result.stdout + result.stderr)
                    self.assertEqual(monitored, "start the application with --add-modules java.instrument" not in result.stderr)


if __name__ == "__main__":
    unittest.main()
