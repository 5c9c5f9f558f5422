#!/usr/bin/env python3
"""Soak of the daemon: the demo map with the simulator at a 10 ms period,
50 clients (orv-soak-load) for SOAK_SECONDS, resident memory, open
descriptors and threads sampled every 5 s, one summary line at the end.

    soak.py BUILD_DIR [SECONDS] [WARM_UP_SECONDS]

SECONDS defaults to $SOAK_SECONDS or 600, WARM_UP_SECONDS to 60 (the memory
the daemon settles at while its tables, books and connections fill up).
Fails (exit 1) when memory grows after the warm-up by more than 2 MB, when
descriptors or threads are left over once the clients are gone, when the
daemon dies, or when a client other than the garbage sender saw an error.
"""

import csv
import io
import json
import os
import signal
import socket
import subprocess
import sys
import tempfile
import time

SAMPLE_SECONDS = 5
GROWTH_LIMIT_KB = 2048


def free_port():
    with socket.socket(socket.AF_INET6, socket.SOCK_STREAM) as s:
        s.bind(("::", 0))
        return s.getsockname()[1]


def sample(pid):
    """(resident KB, open descriptors, threads) of the process."""
    fields = {}
    with open(f"/proc/{pid}/status") as status:
        for line in status:
            key, _, value = line.partition(":")
            fields[key] = value.split()
    return int(fields["VmRSS"][0]), len(os.listdir(f"/proc/{pid}/fd")), int(fields["Threads"][0])


def entries_of(daemon, config):
    """The demo map's entries as orv-soak-load reads them, from the map's own export."""
    export = subprocess.run([daemon, "--config", config, "--export", "demo", "--format", "csv"],
                            check=True, capture_output=True, text=True, timeout=60).stdout
    lines = []
    # The export names its separator on its first line ("SEP=;").
    first, _, table = export.partition("\n")
    for row in csv.DictReader(io.StringIO(table), delimiter=first.removeprefix("SEP=")):
        kind = row["type"]
        table = {"Discrete": "coil", "Holding Register": "holding", "Register": "register"}[kind]
        lines.append(f"{table} {row['address (dec, 0-based)']} "
                     f"{row['number of modbus registers']} {1 if row['writable'] == 'true' else 0}")
    return "\n".join(lines) + "\n"


def wait_for(predicate, seconds):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        if predicate():
            return True
        time.sleep(0.05)
    return predicate()


def main():
    build = sys.argv[1]
    seconds = int(sys.argv[2]) if len(sys.argv) > 2 else int(os.environ.get("SOAK_SECONDS", "600"))
    warm_up = int(sys.argv[3]) if len(sys.argv) > 3 else 60
    daemon = os.path.join(build, "daemon", "orv-gw-modbusd")
    load_program = os.path.join(build, "tests", "soak", "orv-soak-load")

    work = tempfile.mkdtemp(prefix="orv-soak-")
    with open(os.path.join(build, "maps", "demo", "demo-config.json")) as f:
        config = json.load(f)
    config["dataStore"]["simulator"]["periodMs"] = 10
    config["statisticsIntervalSeconds"] = 3600
    config_path = os.path.join(work, "soak.json")
    with open(config_path, "w") as f:
        json.dump(config, f)
    entries_path = os.path.join(work, "entries.txt")
    with open(entries_path, "w") as f:
        f.write(entries_of(daemon, config_path))

    port = free_port()
    log = open(os.path.join(work, "daemon.log"), "w+")
    proc = subprocess.Popen([daemon, "--config", config_path, "--tcp-port", str(port)],
                            stdout=log, stderr=subprocess.STDOUT)
    served = f"serving Modbus TCP on port {port}"
    if not wait_for(lambda: served in open(log.name).read() or proc.poll() is not None, 30) \
            or proc.poll() is not None:
        print(f"soak: FAILED, the daemon did not start:\n{open(log.name).read()}")
        return 1

    start = sample(proc.pid)
    load = subprocess.Popen([load_program, str(port), "1", str(seconds), entries_path],
                            stdout=subprocess.PIPE, text=True)
    began = time.monotonic()
    samples = []
    settled = None
    settled_index = None
    while load.poll() is None and proc.poll() is None:
        time.sleep(min(SAMPLE_SECONDS, max(0.0, began + seconds - time.monotonic()) + 0.1))
        if proc.poll() is not None:
            break
        samples.append(sample(proc.pid))
        if settled is None and time.monotonic() - began >= warm_up:
            settled, settled_index = samples[-1][0], len(samples) - 1
    counts = dict(item.split("=") for item in load.communicate(timeout=60)[0].split())

    failures = []
    if proc.poll() is not None:
        failures.append(f"the daemon died (status {proc.returncode})")
        end = (0, 0, 0)
    else:
        # The daemon closes the clients' connections at its own pace.
        wait_for(lambda: sample(proc.pid)[1] <= start[1], 10)
        end = sample(proc.pid)
        if end[1] > start[1]:
            failures.append(f"descriptors leaked: {start[1]} before the load, {end[1]} after")
        if end[2] > start[2]:
            failures.append(f"threads left over: {start[2]} before the load, {end[2]} after")
    peak = max([start[0]] + [s[0] for s in samples])
    if settled is not None:
        growth = max(s[0] for s in samples[settled_index:]) - settled
        if growth > GROWTH_LIMIT_KB:
            failures.append(f"memory grew by {growth} KB after the warm-up")
    else:
        failures.append(f"the load ended before the {warm_up} s warm-up")
    if int(counts.get("errors", 1)) != 0:
        failures.append(f"{counts.get('errors')} client errors")
    if int(counts.get("answered", 0)) == 0:
        failures.append("no request answered")

    if proc.poll() is None:
        proc.send_signal(signal.SIGTERM)
        try:
            if proc.wait(timeout=10) != 0:
                failures.append(f"the daemon stopped with status {proc.returncode}")
        except subprocess.TimeoutExpired:
            proc.kill()
            failures.append("the daemon did not stop within 10 s of SIGTERM")

    print(f"soak: {seconds} s, 50 clients, requests answered {counts.get('answered')}, "
          f"errors {counts.get('errors')} (garbage sender: {counts.get('garbage')} unanswered), "
          f"memory KB start/after {warm_up} s warm-up/peak/end {start[0]}/{settled}/{peak}/{end[0]}, "
          f"descriptors start/end {start[1]}/{end[1]}, threads start/end {start[2]}/{end[2]}"
          + ("" if not failures else ": FAILED, " + "; ".join(failures)))
    if failures:
        log.seek(0)
        print("daemon log (tail):\n" + "".join(log.readlines()[-40:]))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
