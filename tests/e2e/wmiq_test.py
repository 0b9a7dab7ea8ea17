"""End-to-end tests of the wmiq query browser: the built program run as a process."""
import argparse
import filecmp
import json
import os
import queue
import re
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
        for args in ([], ["-provider", "x", "ns", "q"], ["only-one"], ["-record", "d"],
                     ["-record", "d", "-limit", "0", "ns"], ["-limit", "5", "ns", "q"],
                     ["-record", "d", "-notification", "ns"]):
            with self.subTest(args=args):
                result = run(args, self.world)
                self.assertEqual(result.returncode, 2)
                self.assertIn(b"usage: wmiq", result.stderr)


def read_world(directory):
    with open(os.path.join(directory, "world.json"), encoding="utf-8") as f:
        return json.load(f)


def same_tree(a, b):
    """Whether two directories hold the same files with the same bytes."""
    compare = filecmp.dircmp(a, b)
    return (not compare.left_only and not compare.right_only and
            not filecmp.cmpfiles(a, b, compare.common_files, shallow=False)[1] and
            all(same_tree(os.path.join(a, d), os.path.join(b, d)) for d in compare.common_dirs))


class Recording(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.mkdtemp(prefix="wmiq-record-")
        self.addCleanup(shutil.rmtree, self.tmp, True)

    def record(self, world, name, args):
        directory = os.path.join(self.tmp, name)
        return directory, run(["-provider", "sim", "-record", directory] + args, world)

    def test_a_recording_replays_as_the_original_and_records_again_the_same(self):
        original = os.path.join(FIXTURES, "basic")
        args = ["-limit", "100", "-eventlog", "Application", "-eventlog", "System", "root\\cimv2"]
        first, result = self.record(original, "first", args)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stderr.replace(b"\r\n", b"\n"),
                         b"Sample: more than 100 instances; the first 100 recorded\n")
        host = read_world(first)["hosts"]["."]
        classes = host["namespaces"]["root\\cimv2"]["classes"]
        self.assertEqual(list(classes), ["CIM_Memory", "Win32_Memory", "Win32_Service", "Sample",
                                         "MailEvent"])
        memory = classes["Win32_Memory"]
        self.assertEqual(memory["superclass"], "CIM_Memory")
        # Variant names become the nearest CIM type.
        self.assertEqual([memory["properties"][p] for p in ("Total", "Letter", "Banks", "Exact")],
                         ["uint64", "char16", "string[]", "uint32"])
        self.assertEqual(memory["instances"][0]["Total"], 18446744073709551615)
        self.assertEqual(memory["instances"][1]["AvailableBytes"], 4294967295)
        self.assertEqual(host["eventlogs"], {"Application": {"order": "descending"},
                                             "System": {"order": "ascending"}})

        second, result = self.record(first, "second", args)
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        self.assertTrue(same_tree(first, second))

        queries = [
            "SELECT * FROM Win32_Service",
            "SELECT Caption, AvailableBytes, Comment, Total, Offset, Letter, Enabled, Ratio, Banks, "
            "Installed FROM Win32_Memory",
            "SELECT Caption FROM CIM_Memory WHERE Caption = 'inner' OR Caption = 'Memory'",
            "SELECT * FROM Win32_NTLogEvent",
            "SELECT * FROM Sample WHERE Index < 100",
        ]
        for wql in queries:
            with self.subTest(wql=wql):
                expected = run(["-provider", "sim", "root\\cimv2", wql], original)
                replayed = run(["-provider", "sim", "root\\cimv2", wql], first)
                self.assertEqual(expected.returncode, 0, expected.stderr)
                self.assertEqual(replayed.stdout, expected.stdout)
                self.assertEqual(replayed.stderr, b"")

    def test_failures_are_reported_and_the_rest_is_recorded(self):
        faulty = os.path.join(self.tmp, "faulty")
        os.makedirs(faulty)
        with open(os.path.join(faulty, "world.json"), "w") as f:
            json.dump({"hosts": {".": {
                "namespaces": {"root\\cimv2": {"classes": {"Item": {
                    "superclass": "CIM_Thing", "properties": {"N": "uint32"},
                    "instances": [{"N": 1}]}}}},
                "faults": {"exec_query": "0x80041001"}}}}, f)
        basic = os.path.join(FIXTURES, "basic")
        cases = [
            # world, namespace and classes, the lines on standard error, what replays
            (basic, ["root\\cimv2", "NoSuchClass", "Win32_Service"],
             b"NoSuchClass: getObject: 0x80041002 Object cannot be found.\n"
             b"Win32_Service.Process: embedded objects of class Win32_Memory, which the world "
             b"does not declare, read back with the types of their JSON values\n",
             ["root\\cimv2", "SELECT Name FROM Win32_Service WHERE Name = 'beta'"],
             b"Name\t8\tbeta\n\n0x00000001\n"),
            # The abstract superclass is not recorded as a class of its own.
            (faulty, ["root\\cimv2"], b"Item: execQuery: 0x80041001 Call failed.\n",
             ["root\\cimv2", "SELECT * FROM CIM_Thing"], b"0x00000001\n"),
            (basic, ["\\\\flaky\\root\\cimv2", "Item"],
             b"Item: next: 0x800706BE The remote procedure call failed.\n",
             ["\\\\flaky\\root\\cimv2", "SELECT N FROM Item WHERE N > 148"],
             b"N\t3\t149\n\n0x00000001\n"),
            # The recording refuses the connection as the server did.
            (basic, ["\\\\denied\\root\\cimv2"],
             b"\\\\denied\\root\\cimv2: connectServer: 0x80070005 Access is denied.\n",
             ["\\\\denied\\root\\cimv2", "SELECT * FROM Item"], b""),
        ]
        for number, (world, args, lines, query, replayed) in enumerate(cases):
            with self.subTest(args=args):
                directory, result = self.record(world, "case%d" % number, args)
                self.assertEqual(result.returncode, 1)
                # The system's texts of its own codes differ from Wine's; WMI's are ours.
                system = re.compile(rb"(0x8007[0-9A-F]{4}) [^\n]*")
                self.assertEqual(system.sub(rb"\1", result.stderr.replace(b"\r\n", b"\n")),
                                 system.sub(rb"\1", lines))
                self.assertEqual(run(["-provider", "sim"] + query, directory).stdout, replayed)
        self.assertEqual(list(read_world(os.path.join(self.tmp, "case1"))["hosts"]["."]
                              ["namespaces"]["root\\cimv2"]["classes"]), ["Item"])


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
