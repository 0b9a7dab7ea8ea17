"""End-to-end tests of the wmiq query browser: the built program run as a process."""
import argparse
import os
import queue
import shutil
import subprocess
import sys
import tempfile
import threading
import time
import unittest

WMIQ = []  # the command that runs wmiq, with its runner under Wine
WINDOWS = False
FIXTURES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "fixtures", "worlds")


def run(args, world=None, timeout=120):
    env = dict(os.environ)
    env.pop("MORVAX_WMI_PROVIDER", None)
    if world is not None:
        env["MORVAX_WMI_SIM"] = world
    result = subprocess.run(WMIQ + args, env=env, capture_output=True, timeout=timeout)
    # A Windows console program writes its line ends as CR LF.
    result.stdout = result.stdout.replace(b"\r\n", b"\n")
    return result


class DataQueries(unittest.TestCase):
    def setUp(self):
        self.world = os.path.join(FIXTURES, "basic")

    def test_prints_each_property_with_its_type_then_the_final_status(self):
        result = run(["-provider", "sim", "root\\cimv2",
                      "SELECT Caption, AvailableBytes, Banks FROM Win32_Memory WHERE Caption = 'memory'"],
                     self.world)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stdout,
                         b"Caption\t8\tMemory\nAvailableBytes\t3\t1048576\nBanks\t8200\t{A,B}\n\n"
                         b"0x00000001\n")
        self.assertEqual(result.stderr, b"")

    def test_failures_name_the_step_and_the_status(self):
        cases = [
            (["\\\\host9\\root\\cimv2", "SELECT * FROM Win32_Memory"], b"connectServer: 0x800706BA"),
            (["root\\nosuch", "SELECT * FROM Win32_Memory"], b"connectServer: 0x8004100E"),
            (["root\\cimv2", "SELECT * FROM"], b"execQuery: 0x80041017"),
            (["root\\cimv2", "SELECT * FROM NoSuchClass"], b"execQuery: 0x80041010"),
        ]
        for args, message in cases:
            with self.subTest(args=args):
                result = run(["-provider", "sim"] + args, self.world)
                self.assertEqual(result.returncode, 1)
                self.assertEqual(result.stdout, b"")
                self.assertIn(message, result.stderr)

    def test_usage(self):
        for args in ([], ["-provider", "x", "ns", "q"], ["only-one"]):
            with self.subTest(args=args):
                result = run(args, self.world)
                self.assertEqual(result.returncode, 2)
                self.assertIn(b"usage: wmiq", result.stderr)


class Notifications(unittest.TestCase):
    def test_prints_events_as_they_arrive(self):
        with tempfile.TemporaryDirectory() as tmp:
            world = os.path.join(tmp, "world")
            shutil.copytree(os.path.join(FIXTURES, "basic"), world)
            env = dict(os.environ, MORVAX_WMI_SIM=world)
            proc = subprocess.Popen(
                WMIQ + ["-provider", "sim", "-notification", "root\\cimv2",
                        "SELECT * FROM __InstanceCreationEvent WHERE TargetInstance ISA 'Win32_Process'"],
                env=env, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            lines = queue.Queue()
            reader = threading.Thread(target=lambda: [lines.put(l.replace(b"\r\n", b"\n"))
                                                      for l in proc.stdout],
                                      daemon=True)
            reader.start()
            try:
                seen = []
                deadline = time.monotonic() + 60
                # Events count from the moment the query began, which the test cannot see:
                # append one every so often until the first one comes out.
                while b"TargetInstance.Name\t8\tnotepad.exe\n" not in seen:
                    self.assertLess(time.monotonic(), deadline, seen[-8:])
                    if proc.poll() is not None:
                        self.fail(b"wmiq ended: " + proc.stderr.read())
                    with open(os.path.join(world, "events.jsonl"), "a") as events:
                        events.write('{"host": ".", "namespace": "root\\\\cimv2", '
                                     '"class": "__InstanceCreationEvent", '
                                     '"TargetInstance": {"__CLASS": "Win32_Process", '
                                     '"Name": "notepad.exe"}}\n')
                    try:
                        while True:
                            seen.append(lines.get(timeout=0.3))
                    except queue.Empty:
                        pass
                self.assertIn(b"TargetInstance\t13\t<object Win32_Process>\n", seen)
            finally:
                proc.kill()
                proc.wait()
                proc.stdout.close()
                proc.stderr.close()


class PlatformWmi(unittest.TestCase):
    def setUp(self):
        if not WINDOWS:
            self.skipTest("the platform's WMI is tested in the Windows build")

    def test_operating_system_and_a_bogus_namespace(self):
        result = run(["-provider", "com", "root\\cimv2",
                      "SELECT Caption, Version FROM Win32_OperatingSystem"])
        self.assertEqual(result.returncode, 0, result.stderr)
        lines = result.stdout.split(b"\n")
        self.assertTrue(lines[0].startswith(b"Caption\t8\t"), result.stdout)
        self.assertTrue(lines[1].startswith(b"Version\t8\t"), result.stdout)
        self.assertEqual(lines[-2], b"0x00000001")
        bogus = run(["-provider", "com", "root\\nosuch", "SELECT * FROM Win32_OperatingSystem"])
        self.assertEqual(bogus.returncode, 1)
        self.assertIn(b"connectServer: 0x8004100E", bogus.stderr)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--windows", action="store_true")
    parser.add_argument("command", nargs="+")
    options, rest = parser.parse_known_args()
    WMIQ[:] = options.command
    WINDOWS = options.windows
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)
