"""End-to-end test of morvax-wmi -test: the report of its five checks, line by line. What varies
from run to run is masked or modelled: the spread of the requests over the five namespaces comes
from a seeded generator and the moment a response is taken from the timing, so the request and
response lines are checked against a model of the open requests; the times in milliseconds and
the timings of the policy table are masked."""
import argparse
import os
import re
import sys
import unittest

import collector_test as ct

BATCH_NAMESPACES = {b"\\\\localhost\\root\\cimv2": True, b"\\\\127.0.0.1\\root\\cimv2": True,
                    b"root\\cimv2": True, b"blahblahbogus": False, b"morebogusbogus": False}
IPV6 = b"\\\\[::1]\\root\\cimv2"

WMI_CONF = """[WMI:Memory]
interval = 10
server = host1, host2
wql = SELECT AvailableBytes FROM Win32_Memory

[WMI:Logs]
interval = 5
event_log_file = Application, System

[WMI:Off]
disabled = 1
interval = 1
wql = SELECT * FROM Win32_Process
"""

CONFIG_REPORT = [
    b"Starting...",
    b"Config: id WinEventLog:Application, interval 5, param Application, type 1, namespc "
    b"root\\cimv2",
    b"Config: id WinEventLog:System, interval 5, param System, type 1, namespc root\\cimv2",
    b"Config: id Memory, interval 10, param SELECT AvailableBytes FROM Win32_Memory, type 0, "
    b"namespc \\\\host1\\root\\cimv2",
    b"Config: id Memory, interval 10, param SELECT AvailableBytes FROM Win32_Memory, type 0, "
    b"namespc \\\\host2\\root\\cimv2",
    b"End.",
]

OPERATING_SYSTEM = ct.event([(b"Caption", b"Test OS"), (b"FreePhysicalMemory", b"2048000"),
                             (b"NumberOfProcesses", b"42"), (b"Version", b"10.0.19045"),
                             (b"wmi_type", b"unspecified")])
MEMORY = ct.event([(b"AvailableBytes", b"1048576"), (b"Caption", b"NULL"),
                   (b"CommittedBytes", b"4096"), (b"PercentCommittedBytesInUse", b"12"),
                   (b"wmi_type", b"unspecified")])

QUEUE = [
    b"PrioQ:",
    b"   0 MARK CONNECTED    root\\cimv2: select CommittedBytes, AvailableBytes, "
    b"PercentCommittedBytesInUse, Caption from Win32_PerfFormattedData_PerfOS_Memory",
    b"   1 MARK CONNECTED    root\\cimv2: select * from win32_operatingsystem",
    b"",
]

# The script of the policy check as (policy, event) per line.
POLICY_SCRIPT = (
    [(0, b"waitForConn")] * 10 + [(0, b"connected")] * 2 + [(0, b"waitForQuery")] * 2 +
    [(0, b"error")] + [(0, b"waitForConn")] * 2 + [(0, b"connected"), (0, b"waitForQuery")] +
    [(0, b"dataReceived")] * 2 + [(0, b"error")] * 6 +
    [(1, b"waitForConn"), (1, b"error"), (3, b"error"), (3, b"error"), (2, b"error"),
     (1, b"error"), (2, b"error"), (1, b"connected"), (2, b"connected"), (1, b"waitForQuery"),
     (2, b"waitForQuery"), (1, b"waitForQuery"), (2, b"waitForQuery"), (1, b"waitForQuery"),
     (2, b"waitForQuery"), (3, b"error"), (1, b"error"), (2, b"error")])

REQUEST = re.compile(rb"^Request  (\d+) to (\S+) sent\.$")
RESPONSE = re.compile(rb"^Response (\d+) to (\S+) returned as expected \(took \d+ msec\)\.$")
POLICY = re.compile(rb"^Policy +(\d+), event (\S+) *: +(-?\d+)$")


class SelfTest(unittest.TestCase):
    def setUp(self):
        self.home = ct.Home("WARN")
        etc = os.path.join(self.home.dir, "etc", "system", "default")
        os.makedirs(etc)
        ct.shutil.copy(ct.BOOTSTRAP, os.path.join(etc, "conf.conf"))
        ct.write_file(os.path.join(etc, "wmi.conf"), WMI_CONF)

    def tearDown(self):
        self.home.close()

    def check_factory_report(self, lines):
        """Batches of ten requests, each answered in order of request as its consumer expects,
        the count of open requests going up with each request and down with each answer."""
        pending, open_requests, at = [], 0, 0
        for batch in range(3):
            self.assertEqual(lines[at], b"Running batch %d with 10 requests" % batch)
            at += 1
            sent = 0
            while sent < 10 or (at < len(lines) and RESPONSE.match(lines[at])):
                request = REQUEST.match(lines[at])
                response = RESPONSE.match(lines[at])
                if request and sent < 10:
                    self.assertEqual(int(request.group(1)), open_requests, lines[at])
                    self.assertIn(request.group(2), BATCH_NAMESPACES)
                    pending.append(request.group(2))
                    open_requests += 1
                    sent += 1
                else:
                    self.assertTrue(response and sent == 10, lines[at])
                    open_requests -= 1
                    self.assertEqual(response.group(2), pending.pop(0), lines[at])
                    self.assertEqual(int(response.group(1)), open_requests, lines[at])
                at += 1
        # The last drain waits for every answer.
        while pending:
            response = RESPONSE.match(lines[at])
            self.assertTrue(response, lines[at])
            open_requests -= 1
            self.assertEqual((response.group(2), int(response.group(1))),
                             (pending.pop(0), open_requests))
            at += 1
        self.assertEqual(lines[at], b"Testing ipv6 on " + IPV6 + b".")
        at += 1
        # One pass right after the request: its answer may or may not be in yet.
        ipv6 = RESPONSE.match(lines[at])
        if ipv6:
            self.assertEqual((ipv6.group(1), ipv6.group(2)), (b"0", IPV6))
            at += 1
        return at

    def test_the_five_checks_report_on_a_known_world(self):
        result = ct.run(["-test"], self.home.env("selftest"), timeout=300)
        self.assertEqual(result.returncode, 0, result.stderr)
        out = ct.normalise(result.stdout)
        events_at = out.index(b"***MORVAX***")
        queue_at = out.index(b"PrioQ:\n")
        head = out[:events_at].split(b"\n")
        at = self.check_factory_report(head)
        self.assertEqual(head[at:], CONFIG_REPORT + [b""])

        # Both queries every second for five seconds, whole events only.
        events = out[events_at:queue_at]
        self.assertEqual(events.replace(OPERATING_SYSTEM, b"").replace(MEMORY, b""), b"")
        for block in (OPERATING_SYSTEM, MEMORY):
            self.assertIn(events.count(block), range(3, 7), events)

        tail = re.sub(rb"^( +\d) (  |\*\*) ", rb"\1 MARK ", out[queue_at:], flags=re.M)
        tail = tail.split(b"\n")
        self.assertEqual(tail[:4], QUEUE)
        policies = [POLICY.match(line) for line in tail[4:-1]]
        self.assertTrue(all(policies), tail[4:])
        self.assertEqual([(int(p.group(1)), p.group(2)) for p in policies], POLICY_SCRIPT)
        self.assertEqual(tail[-1], b"")

        # Standard error: one line per refused bogus namespace, the test's unusable checkpoint
        # store, and no complaint of the analysis check.
        bogus = sum(1 for line in head if REQUEST.match(line) and
                    not BATCH_NAMESPACES[REQUEST.match(line).group(2)])
        err = result.stderr.split(b"\n")
        refused = [line for line in err if line.startswith(b"Unable to connect to WMI namespace")]
        self.assertEqual(len(refused), bogus, result.stderr)
        others = [line for line in err if line and line not in refused]
        self.assertEqual(len(others), 1, result.stderr)
        self.assertRegex(others[0], rb"^WMICheckpointer::init: Unable to create checkpoint "
                                    rb"file='.\.'$")
        self.assertNotIn(b"Clean shutdown", result.stderr)

    def test_wine_refuses_the_loopback_address_and_the_check_ends_there(self):
        if not ct.WINDOWS:
            self.skipTest("the platform's WMI exists only in the Windows build")
        # Wine's provider takes "localhost" and "." but not "127.0.0.1", which Windows takes:
        # the first answer to such a request ends the run with -1.
        result = ct.run(["-test"], self.home.env(world=None, provider="com"), timeout=300)
        lines = result.stdout.split(b"\n")
        loopback = [line for line in lines if REQUEST.match(line) and
                    REQUEST.match(line).group(2) == b"\\\\127.0.0.1\\root\\cimv2"]
        if not loopback:
            # One run in a thousand picks no such request and goes through every check.
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertIn(b"\nPrioQ:\n", result.stdout)
            return
        self.assertEqual(result.returncode, 255, result.stderr)
        # The factory's log line of a refused connection may come out before or after it.
        err = [line for line in result.stderr.rstrip(b"\n").split(b"\n")
               if not line.startswith(b"Unable to connect to WMI namespace")]
        self.assertRegex(err[-1],
                         rb"^ERROR: Response to request \d+ to \\\\127\.0\.0\.1\\root\\cimv2 did not "
                         rb"exit as expected \(HR 80041015, expected SUCCESS\)\.$")
        self.assertNotIn(b"Starting...", result.stdout)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--windows", action="store_true")
    parser.add_argument("command", nargs="+")
    args, rest = parser.parse_known_args()
    ct.COLLECTOR = args.command
    ct.WINDOWS = args.windows
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)


if __name__ == "__main__":
    main()
