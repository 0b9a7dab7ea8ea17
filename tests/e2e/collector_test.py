"""End-to-end tests of morvax-wmi: the built collector run as a process, with its own home and a
world of the simulated provider, or (Windows build under Wine) the platform's WMI."""
import argparse
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import zlib

COLLECTOR = []  # the command that runs morvax-wmi, with its runner under Wine
SLEEPER = []  # the test program that ends when told, with the same runner
WINDOWS = False
FIXTURES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "fixtures", "worlds")
TIME_LINE = re.compile(rb"^\d{14}\.\d{6}$", re.M)
CLOSING = b"\nClean shutdown completed.\n\n"
USAGE = (b"usage:\n"
         b" morvax-wmi [-run-until-pid-dies PID]|[-die-when-pid-dies PID]\n"
         b" morvax-wmi  -wql WQL [-namespace namespc] [-watch]\n"
         b" morvax-wmi  -loglist logchan1[,logchan2...] [-server srv1[,srv2...]] [-watch]\n")


def event(properties, index=b"", name=b"unspecified", time_line=b"TIME"):
    """The bytes of one event as the collector writes it."""
    body = b"".join(key + b"=" + value + b"\n" for key, value in properties)
    return (b"***MORVAX*** index=" + index + b" source=\"WMI:" + name + b"\" sourcetype=\"WMI:" +
            name + b"\"\n\n---morvax-wmi-end-of-event---\n" + time_line + b"\n" + body +
            b"\n---morvax-wmi-end-of-event---\n")


def normalise(stdout):
    """Windows consoles have no say in a binary stream; only the time lines vary."""
    return TIME_LINE.sub(b"TIME", stdout)


class Home:
    """A private installation home with a log configuration at the given level."""

    def __init__(self, level="INFO"):
        self.dir = tempfile.mkdtemp(prefix="morvax-home-")
        os.makedirs(os.path.join(self.dir, "etc"))
        with open(os.path.join(self.dir, "etc", "log-cmdline.cfg"), "w") as f:
            f.write("rootCategory=%s, rootAppender\n" % level)

    def env(self, world="collector", provider="sim", **extra):
        env = dict(os.environ)
        for name in ("MORVAX_WMI_PROVIDER", "MORVAX_WMI_SIM", "MORVAX_DB", "MORVAX_ETC",
                     "MORVAXD_PROCESSID"):
            env.pop(name, None)
        env["MORVAX_HOME"] = self.dir
        if provider:
            env["MORVAX_WMI_PROVIDER"] = provider
        if world:
            env["MORVAX_WMI_SIM"] = world if os.path.isabs(world) else os.path.join(FIXTURES, world)
        env.update(extra)
        return env

    def close(self):
        shutil.rmtree(self.dir, ignore_errors=True)


def run(args, env, timeout=120):
    result = subprocess.run(COLLECTOR + args, env=env, capture_output=True, timeout=timeout)
    result.stderr = result.stderr.replace(b"\r\n", b"\n")
    return result


def usage_for(result):
    """The usage text with the program name as the collector saw it in argv[0]."""
    name = re.match(rb"usage:\n (\S+) ", result.stderr)
    return USAGE.replace(b"morvax-wmi", name.group(1) if name else b"?")


class CollectorCase(unittest.TestCase):
    def setUp(self):
        self.home = Home()

    def tearDown(self):
        self.home.close()


class OneShot(CollectorCase):
    def test_one_query_prints_exact_events_and_ends_cleanly(self):
        result = run(["-wql", "SELECT * FROM Win32_Memory"], self.home.env())
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(normalise(result.stdout), event([
            (b"AvailableBytes", b"1048576"), (b"Caption", b"Memory"), (b"Comment", b"NULL"),
            (b"wmi_type", b"unspecified")]))
        self.assertTrue(result.stderr.endswith(CLOSING), result.stderr)

    def test_property_order_fixed_properties_message_last_and_the_guard(self):
        result = run(["-wql", "SELECT * FROM Win32_Disk", "-namespace", "root\\cimv2"],
                     self.home.env())
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(normalise(result.stdout), event([
            (b"ComputerName", b"box1"), (b"Flags", b"<unknown variant result type 8200>"),
            (b"Name", b"C:"), (b"Ok", b"True"), (b"Ratio", b"<unknown variant result type 5>"),
            (b"Size", b"100"), (b"zeta", b"lower"), (b"wmi_type", b"unspecified"),
            (b"Message", b"last")]) + event([
            (b"ComputerName", b"***MORVAX***"), (b"Flags", b"NULL"), (b"Name", b"D:"),
            (b"Ok", b"NULL"), (b"Ratio", b"NULL"), (b"Size", b"NULL"), (b"zeta", b"NULL"),
            (b"wmi_type", b"unspecified")]))
        # The log may escape the line ends of the value; the rest of the text stands as it is.
        self.assertIn(b"Found pattern - \\n***MORVAX*** in data x", result.stderr)
        self.assertIn(b"***MORVAX*** index=forged. This data will not be printed.", result.stderr)

    def test_many_results_come_in_order(self):
        result = run(["-wql", "SELECT Name FROM Sample"], self.home.env())
        self.assertEqual(result.returncode, 0, result.stderr)
        names = re.findall(rb"^Name=(.*)$", result.stdout, re.M)
        self.assertEqual(len(names), 250)
        self.assertEqual(result.stdout.count(b"---morvax-wmi-end-of-event---\n"), 500)

    def test_each_event_is_one_write_to_a_device(self):
        if not WINDOWS:
            self.skipTest("the Windows runtime's unbuffered devices")
        # To NUL or a console the runtime would write a byte at a time; Wine traces every write
        # with its handle, so no handle may see many more writes than there are events.
        result = subprocess.run(COLLECTOR + ["-wql", "SELECT Name FROM Sample"],
                                env=self.home.env(WINEDEBUG="trace+file"),
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, timeout=120)
        self.assertEqual(result.returncode, 0)
        handles = re.findall(rb"trace:file:NtWriteFile \((\w+),", result.stderr)
        self.assertGreaterEqual(len(handles), 250)
        busiest = max(handles.count(h) for h in set(handles))
        self.assertLessEqual(busiest, 250 + 20)

    def test_a_closed_standard_output_does_not_end_the_run(self):
        read_end, write_end = os.pipe()
        os.close(read_end)
        try:
            result = subprocess.run(COLLECTOR + ["-wql", "SELECT Name FROM Sample"],
                                    env=self.home.env(), stdout=write_end,
                                    stderr=subprocess.PIPE, timeout=120)
        finally:
            os.close(write_end)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertTrue(result.stderr.replace(b"\r\n", b"\n").endswith(CLOSING), result.stderr)

    def test_a_remote_namespace_is_reached_through_its_server(self):
        result = run(["-wql", "SELECT * FROM Win32_Memory", "-namespace", "\\\\host2\\root\\cimv2"],
                     self.home.env())
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(normalise(result.stdout), event([
            (b"AvailableBytes", b"5"), (b"Caption", b"Remote"), (b"wmi_type", b"unspecified")]))

    def test_failures_give_up_after_one_attempt_with_status_0(self):
        cases = [
            (["-namespace", "\\\\down\\root\\cimv2"], "SELECT * FROM Win32_Memory",
             b"Unable to connect to WMI namespace \"\\\\down\\root\\cimv2\" (attempt to connect took ",
             b"HRESULT=800706BA)"),
            (["-namespace", "root\\nosuch"], "SELECT * FROM Win32_Memory",
             b"(error=\"Namespace specified cannot be found.\" HRESULT=8004100E)", None),
            ([], "SELECT * FROM", b"Executing query failed (query=\"SELECT * FROM\")",
             b"HRESULT=80041017) (.: SELECT * FROM)"),
            ([], "SELECT * FROM NoSuchClass", b"HRESULT=80041010)", None),
            (["-watch"], "SELECT * FROM Win32_Memory",
             b"(error=\"The FROM clause of a filtering query references a class that is not an "
             b"event class.\" HRESULT=80041059)", None),
        ]
        for extra, wql, first, second in cases:
            with self.subTest(wql=wql, extra=extra):
                result = run(["-wql", wql] + extra, self.home.env())
                self.assertEqual(result.returncode, 0, result.stderr)
                self.assertEqual(result.stdout, b"")
                self.assertIn(first, result.stderr)
                if second:
                    self.assertIn(second, result.stderr)
                self.assertIn(b"Giving up attempt to connect to WMI provider after maximum number "
                              b"of retries at maximum backoff time (.: " + wql.encode() + b")",
                              result.stderr)
                self.assertTrue(result.stderr.endswith(CLOSING))

    def test_an_empty_query_text_reaches_the_entry_function_as_a_crash(self):
        # Nothing catches the processor's refusal: a crash report, and exit(-1).
        crash_dir = os.path.join(self.home.dir, "var", "log", "morvax")
        os.makedirs(crash_dir)
        result = run(["-wql", ""], self.home.env())
        self.assertEqual(result.returncode, 255, result.stderr)
        self.assertEqual(result.stdout, b"")
        self.assertNotIn(CLOSING, result.stderr)
        reports = [f for f in os.listdir(crash_dir) if "crash-" in f and f.endswith(".log")]
        self.assertEqual(len(reports), 1, reports)
        with open(os.path.join(crash_dir, reports[0]), "rb") as f:
            report = f.read()
        # Reported where it was thrown, by the terminate handler: nothing unwound before.
        self.assertIn(b" Crashing thread: Main Thread\r\n", report)
        self.assertIn(b"\r\nUnhandled exception: morvax::BaseException\r\n what(): Incorrect "
                      b"parameters given when creating a WQLQueryProcessor object\r\n", report)


class CommandLine(CollectorCase):
    def test_usage_errors_print_the_usage_text_and_exit_1(self):
        # Which arguments are refused is the unit tests' matter; these are one refused during
        # the walk, one after it and one unknown option, as the program reports them.
        cases = [
            ["-namespace", "root\\default", "-wql", "SELECT * FROM Win32_Memory"],
            ["-wql", "SELECT * FROM Win32_Memory", "-die-when-pid-dies", "12"],
            ["-bogus"],
        ]
        for args in cases:
            with self.subTest(args=args):
                result = run(args, self.home.env())
                self.assertEqual(result.returncode, 1)
                self.assertEqual(result.stdout, b"")
                self.assertEqual(result.stderr, usage_for(result))

    def test_accepted_forms_run(self):
        for args in (["-wql", "SELECT * FROM Win32_Memory", "-run-until-pid-dies", "12abc"],
                     ["-wql", "SELECT * FROM Win32_Memory", "-index", "main"]):
            with self.subTest(args=args):
                result = run(args, self.home.env())
                self.assertEqual(result.returncode, 0, result.stderr)
                self.assertIn(b"Caption=Memory\n", result.stdout)

    def test_without_queries_the_run_ends_with_1_and_no_message(self):
        result = run([], self.home.env())
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stdout, b"")
        self.assertNotIn(b"Clean shutdown", result.stderr)

    def test_a_home_is_required(self):
        env = self.home.env()
        del env["MORVAX_HOME"]
        result = run(["-wql", "SELECT * FROM Win32_Memory"], env)
        self.assertEqual(result.returncode, 255)
        self.assertEqual(result.stdout, b"")
        self.assertIn(b"MORVAX_HOME must be set.  Stopping.\n", result.stderr)


class Running:
    """A collector process whose output is read while it runs."""

    def __init__(self, args, env):
        self.proc = subprocess.Popen(COLLECTOR + args, env=env, stdout=subprocess.PIPE,
                                     stderr=subprocess.PIPE)
        self.stdout = bytearray()
        self.stderr = bytearray()
        self.lock = threading.Lock()
        self.readers = [threading.Thread(target=self._pump, args=(self.proc.stdout, self.stdout),
                                         daemon=True),
                        threading.Thread(target=self._pump, args=(self.proc.stderr, self.stderr),
                                         daemon=True)]
        for reader in self.readers:
            reader.start()

    def _pump(self, stream, target):
        while True:
            chunk = stream.read1(65536) if hasattr(stream, "read1") else stream.read(1)
            if not chunk:
                return
            with self.lock:
                target.extend(chunk)

    def wait_for(self, predicate, limit=60):
        end = time.time() + limit
        while time.time() < end:
            with self.lock:
                if predicate(bytes(self.stdout), bytes(self.stderr).replace(b"\r\n", b"\n")):
                    return True
            if self.proc.poll() is not None:
                with self.lock:
                    return predicate(bytes(self.stdout),
                                     bytes(self.stderr).replace(b"\r\n", b"\n"))
            time.sleep(0.01)
        return False

    def finish(self, limit=60):
        status = self.proc.wait(limit)
        for reader in self.readers:
            reader.join(10)
        return status, bytes(self.stdout), bytes(self.stderr).replace(b"\r\n", b"\n")

    def kill(self):
        if self.proc.poll() is None:
            self.proc.kill()
            self.proc.wait()


def split_events(stdout):
    """The events of a stream, each with its bytes."""
    parts = re.split(rb"(?=\*\*\*MORVAX\*\*\* index=)", stdout)
    return [p for p in parts if p]


def append_event(world, name):
    with open(os.path.join(world, "events.jsonl"), "a") as f:
        f.write('{"host": ".", "namespace": "root\\\\cimv2", "class": "__InstanceCreationEvent", '
                '"TargetInstance": {"__CLASS": "Win32_Process", "Name": "%s"}}\n' % name)


class Watch(CollectorCase):
    WQL = "SELECT * FROM __InstanceCreationEvent WHERE TargetInstance ISA 'Win32_Process'"

    def start_watch(self, level="INFO"):
        self.home.close()
        self.home = Home(level)
        world = os.path.join(self.home.dir, "world")
        shutil.copytree(os.path.join(FIXTURES, "collector"), world)
        open(os.path.join(world, "events.jsonl"), "w").close()
        return world, Running(["-wql", self.WQL, "-watch"], self.home.env(world))

    def wait_until_listening(self, world, running):
        """A notification query sees only what comes after it began: probe until one arrives."""
        for attempt in range(300):
            append_event(world, "probe")
            if running.wait_for(lambda out, err: b"Name=probe" in out, limit=0.2):
                return
        self.fail("the query never delivered an event")

    def test_events_are_printed_as_they_arrive_until_a_signal(self):
        # No console event reaches a program under Wine: there the events alone are checked.
        for sig in (None,) if WINDOWS else (signal.SIGINT, signal.SIGTERM):
            with self.subTest(signal=sig):
                world, running = self.start_watch()
                try:
                    self.wait_until_listening(world, running)
                    append_event(world, "first.exe")
                    self.assertTrue(running.wait_for(lambda out, err: b"Name=first.exe" in out))
                    if sig is None:
                        continue
                    append_event(world, "second.exe")
                    self.assertTrue(running.wait_for(lambda out, err: b"Name=second.exe" in out))
                    running.proc.send_signal(sig)
                    status, out, err = running.finish()
                finally:
                    running.kill()
                self.assertEqual(status, 0, err)
                events = [e for e in split_events(normalise(out)) if b"Name=probe" not in e]
                self.assertEqual(b"".join(events), event([
                    (b"EventClass", b"InstanceCreationEvent"), (b"Name", b"first.exe"),
                    (b"wmi_type", b"unspecified")]) + event([
                    (b"EventClass", b"InstanceCreationEvent"), (b"Name", b"second.exe"),
                    (b"wmi_type", b"unspecified")]))
                self.assertTrue(err.endswith(CLOSING), err)

    def test_a_stop_during_a_long_connection_waits_for_it_and_ends_cleanly(self):
        if WINDOWS:
            self.skipTest("console events cannot be sent to a program under Wine")
        self.home.close()
        self.home = Home("DEBUG")
        running = Running(["-wql", "SELECT * FROM Win32_Memory", "-namespace",
                           "\\\\slow\\root\\cimv2"], self.home.env())
        try:
            self.assertTrue(running.wait_for(
                lambda out, err: b"Attempting to connect to WMI provider \\\\slow" in err))
            started = time.time()
            running.proc.send_signal(signal.SIGINT)
            status, out, err = running.finish()
        finally:
            running.kill()
        self.assertEqual(status, 0, err)
        self.assertEqual(out, b"")
        self.assertIn(b"Connected to WMI provider \\\\slow\\root\\cimv2", err)
        self.assertNotIn(b"Executing query", err)
        self.assertTrue(err.endswith(CLOSING), err)
        self.assertLess(time.time() - started, 30)


T1 = "20261114102530.000000-000"


def time_written(number):
    """Record 1 carries T1, the identity of the log."""
    return T1 if number == 1 else T1[:8] + "%06d" % (110000 + number % 60) + T1[14:]


def log_record(number):
    return ('{"RecordNumber": %d, "TimeWritten": "%s", "ComputerName": "localhost", '
            '"SourceName": "src", "Message": "record %d"}\n'
            % (number, time_written(number), number))


def log_event(log, number):
    """The event of log_record(number) in a run whose zone is UTC."""
    written = time_written(number)
    properties = [(b"Category", b"NULL"), (b"CategoryString", b"NULL"), (b"EventCode", b"NULL"),
                  (b"EventIdentifier", b"NULL"), (b"EventType", b"NULL"),
                  (b"Logfile", log.encode()), (b"RecordNumber", b"%d" % number),
                  (b"SourceName", b"src"), (b"TimeGenerated", b"NULL"),
                  (b"TimeWritten", written.encode()), (b"Type", b"NULL"), (b"User", b"NULL"),
                  (b"ComputerName", b"Morvaxd"), (b"OriginalComputerName", b"localhost"),
                  (b"wmi_type", log.encode()), (b"Message", b"record %d" % number)]
    return event(properties, name=log.encode(), time_line=written[:14].encode() + b".000000")


def checkpoint_line(server, log, value):
    return b"\\\\%s\\root\\cimv2|%08x=%s\n" % (server.encode(), zlib.crc32(log.encode()),
                                                      value.encode())


class Sleeper:
    """A process that ends when told: its pid is what -run-until-pid-dies watches."""

    def __init__(self, directory):
        self.stop_file = os.path.join(directory, "stop-sleeper")
        self.proc = subprocess.Popen(SLEEPER + ["600000", self.stop_file], stdout=subprocess.PIPE)
        self.pid = int(self.proc.stdout.readline())

    def end(self):
        open(self.stop_file, "w").close()
        self.proc.wait(60)
        self.proc.stdout.close()
        os.remove(self.stop_file)


def run_until_sleeper_ends(test, args, env, ready, limit=60, pid_in_env=False):
    """Runs the collector watching a sleeper, ends the sleeper once `ready` holds, and returns
    the status, standard output and standard error."""
    sleeper = Sleeper(test.home.dir)
    if pid_in_env:
        env = dict(env, MORVAXD_PROCESSID=str(sleeper.pid))
    else:
        args = args + ["-run-until-pid-dies", str(sleeper.pid)]
    running = Running(args, env)
    try:
        test.assertTrue(running.wait_for(ready, limit=limit))
        sleeper.end()
        return running.finish()
    finally:
        running.kill()


class ServiceRun(CollectorCase):
    """-loglist: event logs collected continuously, with checkpoints across restarts."""

    def setUp(self):
        super().setUp()
        self.make_world()

    def make_world(self):
        self.world = os.path.join(self.home.dir, "world")
        shutil.copytree(os.path.join(FIXTURES, "collector"), self.world)
        os.makedirs(os.path.join(self.world, "eventlogs"))

    def append(self, log, numbers, host="."):
        directory = os.path.join(self.world, "eventlogs", host)
        os.makedirs(directory, exist_ok=True)
        with open(os.path.join(directory, log + ".jsonl"), "a") as f:
            f.write("".join(log_record(n) for n in numbers))

    def checkpoints(self):
        path = os.path.join(self.home.dir, "var", "lib", "morvax", "persistentstorage", "wmi",
                            "wmicmdln.ini")
        with open(path, "rb") as f:
            return f.read()

    def start(self, args, **env):
        return Running(["-loglist"] + args, self.home.env(self.world, TZ="UTC", **env))

    def events_of(self, out, log):
        return [e for e in split_events(out) if b"source=\"WMI:%s\"" % log.encode() in e]

    def test_logs_are_collected_resumed_after_a_restart_and_stopped_with_the_watched_pid(self):
        # The provider hands Application out newest first, System oldest first.
        self.append("Application", [1, 2, 3])
        self.append("System", [1, 2])
        for run_number, expected in ((1, ({"Application": [3, 2, 1, 4], "System": [1, 2]})),
                                     (2, ({"Application": [5], "System": [3]}))):
            sleeper = Sleeper(self.home.dir)
            running = self.start(["Application,System", "-run-until-pid-dies", str(sleeper.pid)])
            try:
                if run_number == 1:
                    # A record that comes while the collector runs is read by a later pass.
                    self.assertTrue(running.wait_for(
                        lambda out, err: out.count(b"***MORVAX***") == 5))
                    self.append("Application", [4])
                self.assertTrue(running.wait_for(
                    lambda out, err: out.count(b"***MORVAX***") == (6 if run_number == 1 else 2)))
                sleeper.end()
                status, out, err = running.finish()
            finally:
                running.kill()
            self.assertEqual(status, 0, err)
            self.assertTrue(err.endswith(CLOSING), err)
            for log, numbers in expected.items():
                events = self.events_of(out, log)
                if WINDOWS:
                    # The time line is local time, whatever TZ says under Wine.
                    events = [normalise(e) for e in events]
                want = [log_event(log, n) for n in numbers]
                self.assertEqual(events, [normalise(e) for e in want] if WINDOWS else want)
            self.assertEqual(self.checkpoints(), b"".join(sorted([
                checkpoint_line(".", "Application", "D %d %d %d %s" % (
                    (4, 3, 4, T1) if run_number == 1 else (5, 4, 5, T1))),
                checkpoint_line(".", "System", "A %d 0 2 %s" % (run_number + 1, T1))])))
            self.append("Application", [5])
            self.append("System", [3])

    def test_signals_stop_the_run_with_the_last_checkpoints_written(self):
        if WINDOWS:
            self.skipTest("console events cannot be sent to a program under Wine")
        self.append("System", [1, 2])
        for last, sig in ((2, signal.SIGINT), (3, signal.SIGTERM)):
            with self.subTest(signal=sig):
                running = self.start(["System"])
                try:
                    self.assertTrue(running.wait_for(
                        lambda out, err: b"Message=record %d\n" % last in out))
                    running.proc.send_signal(sig)
                    status, out, err = running.finish()
                finally:
                    running.kill()
                self.assertEqual(status, 0, err)
                self.assertTrue(err.endswith(CLOSING), err)
                self.assertEqual(self.checkpoints(),
                                 checkpoint_line(".", "System", "A %d 0 2 %s" % (last, T1)))
                self.append("System", [3])

    def test_failing_and_hanging_servers_do_not_hold_up_a_healthy_one(self):
        self.append("System", [1])
        sleeper = Sleeper(self.home.dir)
        running = self.start(["System", "-servers", ".,down,slow,broken", "-run-until-pid-dies",
                              str(sleeper.pid)])
        try:
            self.assertTrue(running.wait_for(lambda out, err: b"Message=record 1" in out))
            # The healthy log keeps up while one server refuses and one takes 4 s to connect.
            latencies = []
            for n in range(2, 6):
                started = time.time()
                self.append("System", [n])
                self.assertTrue(running.wait_for(
                    lambda out, err: b"Message=record %d\n" % n in out))
                latencies.append(time.time() - started)
            self.assertTrue(running.wait_for(
                lambda out, err: b"Synthetic event 2 of System" in out, limit=60))
            sleeper.end()
            status, out, err = running.finish()
        finally:
            running.kill()
        self.assertEqual(status, 0, err)
        self.assertIn(b"HRESULT=800706BA", err)
        self.assertIn(b"Executing query failed", err)
        self.assertIn(b"HRESULT=80041001) (broken: System)", err)
        self.assertLess(max(latencies), 15, latencies)
        self.assertTrue(err.endswith(CLOSING), err)

    def test_a_stop_while_a_connection_hangs_ends_the_run_at_once(self):
        self.home.close()
        self.home = Home("DEBUG")
        self.make_world()
        sleeper = Sleeper(self.home.dir)
        running = self.start(["System", "-servers", "slow", "-run-until-pid-dies",
                              str(sleeper.pid)])
        try:
            self.assertTrue(running.wait_for(
                lambda out, err: b"Attempting to connect to WMI provider \\\\slow" in err))
            started = time.time()
            sleeper.end()
            status, out, err = running.finish()
        finally:
            running.kill()
        self.assertEqual(status, 0, err)
        self.assertTrue(err.endswith(CLOSING), err)
        self.assertLess(time.time() - started, 10)

    def test_a_stop_while_a_large_result_is_read_ends_at_the_next_batch(self):
        sleeper = Sleeper(self.home.dir)
        running = self.start(["Big", "-run-until-pid-dies", str(sleeper.pid)])
        try:
            self.assertTrue(running.wait_for(lambda out, err: out.count(b"***MORVAX***") > 1000))
            started = time.time()
            sleeper.end()
            status, out, err = running.finish()
        finally:
            running.kill()
        self.assertEqual(status, 0, err)
        self.assertLess(time.time() - started, 10)
        events = split_events(out)
        self.assertLess(len(events), 1000000)
        # Every event is whole, and the checkpoint stands on the last one written.
        numbers = [int(re.search(rb"\nRecordNumber=(\d+)\n", e).group(1)) for e in events]
        self.assertEqual(numbers, list(range(1, len(events) + 1)))
        self.assertTrue(events[-1].endswith(b"\n---morvax-wmi-end-of-event---\n"))
        self.assertEqual(self.checkpoints(), checkpoint_line(
            ".", "Big", "A %d 0 2 20240101000000.000000-000" % len(events)))

    def test_a_checkpoint_store_that_cannot_be_set_up_ends_the_run_at_once(self):
        self.append("Application", [1])
        os.makedirs(os.path.join(self.home.dir, "var", "lib", "morvax", "persistentstorage",
                                 "wmi", "wmicmdln.ini"))
        result = run(["-loglist", "Application"], self.home.env(self.world))
        self.assertEqual((result.returncode, result.stdout), (255, b""))
        self.assertTrue(result.stderr.endswith(b"ERROR: Error initiating WMICheckpointer\n"),
                        result.stderr)

    def test_the_end_of_the_parent_ends_the_run(self):
        self.append("System", [1])
        status, out, err = run_until_sleeper_ends(
            self, ["-loglist", "System"], self.home.env(self.world, TZ="UTC"),
            lambda out, err: b"Message=record 1" in out, pid_in_env=True)
        self.assertEqual(status, 99, err)


DIST_HOME = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "dist", "home")
BOOTSTRAP = os.path.join(DIST_HOME, "etc", "system", "default", "conf.conf")


def write_file(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w") as f:
        f.write(text)


class Configured(CollectorCase):
    """The daemon's run: no options, the work read from the installation's wmi.conf files."""

    def test_layered_stanzas_give_exact_events_and_bad_ones_their_messages(self):
        etc = os.path.join(self.home.dir, "etc")
        os.makedirs(os.path.join(etc, "system", "default"))
        shutil.copy(BOOTSTRAP, os.path.join(etc, "system", "default", "conf.conf"))
        write_file(os.path.join(etc, "system", "default", "wmi.conf"),
                   "[WMI:Memory]\ninterval = 3600\nserver = host1\n"
                   "wql = SELECT AvailableBytes, Caption, Comment FROM Win32_Memory\n"
                   "[WMI:NoInterval]\nwql = SELECT * FROM Win32_Memory\n"
                   "[WMI:Off]\ndisabled = true\n")
        # An application's local layer ranks above the system's default one.
        write_file(os.path.join(etc, "apps", "ops", "local", "wmi.conf"),
                   "[WMI:Memory]\nserver = host2\n")
        world = os.path.join(self.home.dir, "world")
        write_file(os.path.join(world, "world.json"), json.dumps({"hosts": {"host2": {
            "namespaces": {"root\\cimv2": {"classes": {"Win32_Memory": {
                "properties": {"AvailableBytes": "uint32", "Caption": "string",
                               "Comment": "string"},
                "instances": [{"AvailableBytes": 1048576, "Caption": "Memory",
                               "Comment": None}]}}}}}}}))
        status, out, err = run_until_sleeper_ends(
            self, [], self.home.env(world), lambda out, err: b"***MORVAX***" in out)
        self.assertEqual(status, 0, err)
        self.assertEqual(normalise(out), event([
            (b"AvailableBytes", b"1048576"), (b"Caption", b"Memory"), (b"Comment", b"NULL"),
            (b"ComputerName", b"host2"), (b"wmi_type", b"Memory")], index=b"default",
            name=b"Memory"))
        self.assertIn(b"The stanza \"WMI:NoInterval\" is missing the \"interval\" property, "
                      b"which is required. Skipping this stanza.", err)
        self.assertNotIn(b"WMI:Off", err)
        self.assertTrue(os.path.isfile(os.path.join(
            self.home.dir, "var", "lib", "morvax", "persistentstorage", "wmi", "wmi.ini")))
        self.assertTrue(err.endswith(CLOSING), err)

    def test_the_stock_installation_collects_this_machine(self):
        if WINDOWS:
            self.skipTest("the host world of the simulated provider is the Linux build's")
        home = os.path.join(self.home.dir, "installed")
        shutil.copytree(DIST_HOME, home)
        shutil.copy(os.path.join(self.home.dir, "etc", "log-cmdline.cfg"),
                    os.path.join(home, "etc", "log-cmdline.cfg"))
        env = self.home.env(world=None)
        env["MORVAX_HOME"] = home
        status, out, err = run_until_sleeper_ends(
            self, [], env, lambda out, err: all(
                b'source="WMI:%s"' % name in out
                for name in (b"CPUTime", b"Memory", b"LocalDisks", b"Processes")), limit=30)
        self.assertEqual(status, 0, err)
        self.assertNotIn(b"WMI:OperatingSystem", out)
        self.assertTrue(err.endswith(CLOSING), err)


class PlatformWmi(CollectorCase):
    """The Windows build against Wine's own WMI."""

    def setUp(self):
        super().setUp()
        if not WINDOWS:
            self.skipTest("the platform's WMI exists only in the Windows build")

    def test_a_query_prints_one_event(self):
        result = run(["-wql", "SELECT Caption, Version FROM Win32_OperatingSystem"],
                     self.home.env(world=None, provider="com"))
        self.assertEqual(result.returncode, 0, result.stderr)
        out = normalise(result.stdout)
        self.assertEqual(out.count(b"***MORVAX*** index= source=\"WMI:unspecified\""), 1, out)
        self.assertRegex(out, rb"\nCaption=[^\n]+\nVersion=[^\n]+\nwmi_type=unspecified\n\n"
                              rb"---morvax-wmi-end-of-event---\n$")
        self.assertTrue(result.stderr.endswith(CLOSING))

    def test_an_unknown_namespace_gives_up_with_status_0(self):
        result = run(["-wql", "SELECT * FROM Win32_OperatingSystem", "-namespace", "root\\nosuch"],
                     self.home.env(world=None, provider="com"))
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stdout, b"")
        self.assertIn(b"0x8004100E", result.stderr.replace(b"HRESULT=", b"0x"))
        self.assertIn(b"Giving up attempt to connect", result.stderr)

    def test_an_event_log_is_polled_and_the_run_stops_with_the_watched_pid(self):
        # Wine's provider knows Win32_NTLogEvent but has no records: the probe and the query
        # alternate, each answered with nothing, until the stop.
        self.home.close()
        self.home = Home("DEBUG")
        status, out, err = run_until_sleeper_ends(
            self, ["-loglist", "Application"], self.home.env(world=None, provider="com"),
            lambda out, err: err.count(b"EventLogQueryProcessor::writeData: No results returned "
                                       b"(: Application)") >= 3, limit=120)
        self.assertEqual(status, 0, err)
        self.assertEqual(out, b"")
        self.assertIn(b"Event log wql \"SELECT TimeWritten FROM Win32_NTLogEvent WHERE Logfile = "
                      b"\"Application\" AND RecordNumber = 1\" (: Application)", err)
        self.assertTrue(err.endswith(CLOSING), err)

    def test_watch_fails_cleanly_without_notification_queries(self):
        result = run(["-wql", "SELECT * FROM __InstanceCreationEvent WITHIN 1 WHERE TargetInstance "
                      "ISA 'Win32_Process'", "-watch"],
                     self.home.env(world=None, provider="com"), timeout=300)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stdout, b"")
        self.assertIn(b"Executing query failed", result.stderr)
        self.assertIn(b"Giving up attempt to connect", result.stderr)
        self.assertTrue(result.stderr.endswith(CLOSING))


def main():
    global COLLECTOR, SLEEPER, WINDOWS
    parser = argparse.ArgumentParser()
    parser.add_argument("--windows", action="store_true")
    parser.add_argument("--sleeper", required=True)
    parser.add_argument("command", nargs="+")
    args, rest = parser.parse_known_args()
    COLLECTOR = args.command
    SLEEPER = args.command[:-1] + [args.sleeper]
    WINDOWS = args.windows
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)


if __name__ == "__main__":
    main()
