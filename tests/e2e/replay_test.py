"""A recording of Wine's own WMI, replayed: the Windows build's wmiq records a few classes under
Wine, and the same one-shot queries then run through the Windows build's collector on Wine's WMI
and through the native build's collector on the recorded world. The event streams must be the
same bytes, but for the time lines, the values that change from one read to the next, and the
processes that do the reading."""
import argparse
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

RUNNER = []  # runs a Windows program: the Wine wrapper
SLEEPER = ""  # a Windows program that ends when told
WMIQ = ""
COLLECTOR = ""  # the Windows build's collector
NATIVE = ""  # the native build's collector

CLASSES = ["Win32_OperatingSystem", "Win32_ComputerSystem", "Win32_Processor",
           "Win32_LogicalDisk", "Win32_Process"]
QUERIES = [
    "SELECT * FROM Win32_OperatingSystem",
    "SELECT Caption, OSType, Version FROM Win32_OperatingSystem WHERE OSType = 18",
    "SELECT * FROM Win32_ComputerSystem",
    "SELECT Name, NumberOfLogicalProcessors FROM Win32_ComputerSystem "
    "WHERE NumberOfLogicalProcessors > 0",
    "SELECT * FROM Win32_Processor",
    "SELECT DeviceID, NumberOfCores FROM Win32_Processor WHERE NumberOfCores >= 1",
    "SELECT * FROM Win32_LogicalDisk",
    "SELECT DeviceID, FileSystem, Size FROM Win32_LogicalDisk WHERE DriveType = 3",
    "SELECT * FROM Win32_Process",
    "SELECT Name, ProcessId, ThreadCount FROM Win32_Process WHERE Name = 'services.exe'",
]
# Values that change between two reads of Wine's WMI, by class: the clock, the memory in use and
# the counters of processes. Wine's Win32_Process has no process times.
CHANGING = {
    b"Win32_OperatingSystem": [b"FreePhysicalMemory", b"FreeVirtualMemory", b"LastBootUpTime",
                               b"LocalDateTime"],
    b"Win32_Processor": [b"CurrentClockSpeed"],
    b"Win32_LogicalDisk": [b"FreeSpace"],
    b"Win32_Process": [b"ThreadCount", b"WorkingSetSize"],
}
# Processes that come and go between reads: the readers themselves (each read sees itself, not
# the other), and Wine's RPC service and desktop, which start on demand and end when idle.
TRANSIENT = [b"wmiq.exe", b"morvax-wmi.exe", b"rpcss.exe", b"explorer.exe"]
TIME_LINE = re.compile(rb"^\d{14}\.\d{6}$", re.M)
DELIMITER = b"---morvax-wmi-end-of-event---\n"


def comparable(stdout, wql):
    """The events of a one-shot run with the time lines, the changing values and the transient
    processes left out."""
    cls = re.search(r"FROM (\w+)", wql).group(1).encode()
    changing = CHANGING.get(cls, [])
    events = []
    for event in stdout.split(b"***MORVAX*** ")[1:]:
        lines = TIME_LINE.sub(b"TIME", event).split(b"\n")
        if any(line.split(b"=", 1)[-1] in TRANSIENT for line in lines if line.startswith(b"Name=")):
            continue
        events.append(b"\n".join(
            line.split(b"=", 1)[0] + b"=*" if line.split(b"=", 1)[0] in changing else line
            for line in lines))
    return events


class Replay(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tmp = tempfile.mkdtemp(prefix="wmiq-replay-")
        cls.world = os.path.join(cls.tmp, "world")
        cls.home = os.path.join(cls.tmp, "home")
        os.makedirs(os.path.join(cls.home, "etc"))
        with open(os.path.join(cls.home, "etc", "log-cmdline.cfg"), "w") as f:
            f.write("rootCategory=WARN, rootAppender\n")
        # Wine's services, and their process ids, last as long as some Windows process runs: one
        # runs from before the recording to after the last query.
        cls.stop_file = os.path.join(cls.tmp, "stop-sleeper")
        cls.sleeper = subprocess.Popen(RUNNER + [SLEEPER, "600000", cls.stop_file],
                                       stdout=subprocess.PIPE)
        cls.sleeper.stdout.readline()
        cls.recorded = subprocess.run(
            RUNNER + [WMIQ, "-provider", "com", "-record", cls.world, "root\\cimv2"] + CLASSES,
            env=cls.env(provider="com"), capture_output=True, timeout=600)

    @classmethod
    def tearDownClass(cls):
        open(cls.stop_file, "w").close()
        try:
            cls.sleeper.wait(60)
        finally:
            cls.sleeper.kill()
            cls.sleeper.stdout.close()
            shutil.rmtree(cls.tmp, ignore_errors=True)

    @classmethod
    def env(cls, **settings):
        env = dict(os.environ)
        for name in ("MORVAX_WMI_PROVIDER", "MORVAX_WMI_SIM", "MORVAX_DB", "MORVAX_ETC"):
            env.pop(name, None)
        env["MORVAX_HOME"] = cls.home
        env["MORVAX_WMI_PROVIDER"] = settings["provider"]
        if "world" in settings:
            env["MORVAX_WMI_SIM"] = settings["world"]
        return env

    def test_the_recording_holds_every_class(self):
        # Wine's provider has no __SUPERCLASS: one line per class, and nothing else but Wine's
        # own complaints.
        lines = [line for line in self.recorded.stderr.replace(b"\r\n", b"\n").splitlines()
                 if not line.startswith(b"wine: ")]
        self.assertEqual(lines, [c.encode() + b": __SUPERCLASS: 0x80041002 Object cannot be found."
                                 for c in CLASSES], self.recorded.stderr)
        self.assertTrue(os.path.isfile(os.path.join(self.world, "world.json")))

    def test_without_classes_named_wine_cannot_list_them_and_says_so(self):
        world = os.path.join(self.tmp, "all")
        result = subprocess.run(RUNNER + [WMIQ, "-provider", "com", "-record", world, "root\\cimv2"],
                                env=self.env(provider="com"), capture_output=True, timeout=300)
        self.assertEqual(result.returncode, 1)
        self.assertIn(b"root\\cimv2: listing the classes (name the classes to record): "
                      b"0x80041001 Call failed.", result.stderr)
        with open(os.path.join(world, "world.json")) as f:
            self.assertEqual(json.load(f), {"hosts": {".": {"namespaces": {
                "root\\cimv2": {"classes": {}}}}}})

    def test_queries_print_the_same_events_on_wine_and_on_the_recording(self):
        for wql in QUERIES:
            with self.subTest(wql=wql):
                wine = subprocess.run(RUNNER + [COLLECTOR, "-wql", wql], env=self.env(provider="com"),
                                      capture_output=True, timeout=300)
                native = subprocess.run([NATIVE, "-wql", wql],
                                        env=self.env(provider="sim", world=self.world),
                                        capture_output=True, timeout=120)
                self.assertEqual(wine.returncode, 0, wine.stderr)
                self.assertEqual(native.returncode, 0, native.stderr)
                expected = comparable(wine.stdout, wql)
                self.assertTrue(expected, wine.stdout)
                self.maxDiff = None
                self.assertEqual(comparable(native.stdout, wql), expected)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--wmiq", required=True)
    parser.add_argument("--collector", required=True)
    parser.add_argument("--native", required=True)
    parser.add_argument("--sleeper", required=True)
    parser.add_argument("runner", nargs="*")
    options, rest = parser.parse_known_args()
    RUNNER[:] = options.runner
    WMIQ, COLLECTOR, NATIVE = options.wmiq, options.collector, options.native
    SLEEPER = options.sleeper
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)
