#!/usr/bin/env python3
"""Several processes on two clients of a replicated volume: what was acknowledged must be kept.

  run.py BUILD_FOLDER [--long] [WORD...]     only the scenarios whose title holds one of the words

Each scenario prints how much was acknowledged, refused and kept. What was acknowledged and is lost
fails; what was refused with a message is only counted. Every wait and the whole have an end.
"""

import collections
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time

from volume import Volume, read, wait_until

LONG = "--long" in sys.argv
LIMIT = 1500 if LONG else 240  # seconds for all scenarios
WRITERS, APPENDS = (8, 500) if LONG else (4, 40)
PROCESS_LIMIT = 60  # seconds for one command
CACHES_LAST = 5  # seconds; those of a client keep what they know for 1 s each, and there are several
LOCK_TIMEOUT = 60000  # milliseconds, so that a slow machine refuses nothing
ROUNDS, BRICK_DIES, BRICK_RETURNS = 8, 2, 4  # a brick is killed in one round, and started again in another

KEY = re.compile(r"\bK\d+-\d+\b")  # a piece of work: its round and its place in it
SIDECAR = re.compile(rb"; kept\n\[other\]\n  key=1\n\[/other\]\n"
                     rb"(\[resource_label\]\n  size=\d+\n  time=\d+\n  crc=\d+\n\[/resource_label\]\n)?")


class Tally:
    """What became of the pieces of work of one scenario, by their keys."""

    def __init__(self):
        self.acknowledged, self.kept = set(), None
        self.refused, self.faults = collections.Counter(), []  # sentences, each with its number

    def check(self, holds, fault):
        if not holds:
            self.faults.append(fault)

    def count(self, key, process):
        """A command that has ended: it did its work, or refused it with a sentence, or is at fault."""
        if process.returncode == 0:
            self.acknowledged.add(key)
        elif process.returncode == 1 and re.search("^qvres: ", process.errors, re.MULTILINE):
            self.refused[re.sub(r"/\S*/", "", process.errors.splitlines()[-1])] += 1
        else:
            self.faults.append(f"{key}: status {process.returncode}, {process.errors}")

    def see(self, keys):
        """Kept is what both clients show."""
        self.kept = set(keys) if self.kept is None else self.kept & set(keys)


class Cluster:
    """A volume, the folder `data` that both machines would have, and processes that are ended with it."""

    def __init__(self, build, room):
        self.volume = Volume(room)
        self.clients = self.volume.clients
        self.data = f"{room}/data"
        self._programs = {"qvres": f"{build}/tools/qvres/qvres", "journal_process": f"{build}/tests/cluster/journal_process"}
        self._environment = {"PATH": os.environ["PATH"], "HOME": f"{room}/home", "LC_ALL": "C",
                             "QV_REGISTRY_DIR": f"{room}/registry"}
        self._running = []
        for folder in ("home", "registry", "data"):
            os.mkdir(f"{room}/{folder}")

    def folders(self, name):
        os.mkdir(f"{self.clients[0]}/{name}")
        return [f"{client}/{name}" for client in self.clients]

    def begin(self, command):
        program, *arguments = command.split()
        files = tempfile.TemporaryFile(), tempfile.TemporaryFile()
        process = subprocess.Popen([self._programs[program], *arguments], stdin=subprocess.DEVNULL, stdout=files[0],
                                   stderr=files[1], env=self._environment)
        process.files = files
        self._running.append(process)
        return process

    def end(self, process, limit=PROCESS_LIMIT):
        process.wait(limit)
        self._running.remove(process)
        for file in process.files:
            file.seek(0)
        process.output, process.errors = (file.read().decode(errors="replace") for file in process.files)
        return process

    def qvres(self, command):
        return self.end(self.begin("qvres " + command))

    def look(self, command, holds):
        """The output that holds, or the last one when the clients' caches must have ended."""
        end = time.monotonic() + CACHES_LAST
        while True:
            answer = self.qvres(command)
            if (answer.returncode == 0 and holds(answer.output)) or time.monotonic() > end:
                return answer
            time.sleep(0.2)

    def rounds(self, commands):
        """Gives the number of each round and its ended processes, started at once. A brick is killed and started again meanwhile."""
        for number in range(ROUNDS):
            processes = [self.begin("qvres " + command) for command in commands(number)]
            if number == BRICK_DIES:
                self.volume.kill_brick(1)
            elif number == BRICK_RETURNS:
                self.volume.start_brick(1)
            elif number == ROUNDS - 2:
                self.volume.wait_for_reconnection()
            yield number, [self.end(process) for process in processes]

    def stop(self):
        for process in self._running:
            process.kill()
            process.wait(PROCESS_LIMIT)
        self.volume.stop()


def journal(cluster, name, merges=False, kills=(), writers=WRITERS, appends=APPENDS):
    """Writers on both clients; beside them merges on both clients; a brick, or a writer, too, is killed."""
    tally, folders = Tally(), cluster.folders(name)
    os.mkdir(f"{folders[0]}/content")
    tally.check(cluster.qvres(f"journal rebuild {folders[0]}").returncode == 0, "no journal was made")
    processes = [cluster.begin(f"journal_process {folders[number % 2]} {LOCK_TIMEOUT} append W{number} {appends}")
                 for number in range(writers)]
    mergers = [cluster.begin(f"journal_process {folder} {LOCK_TIMEOUT} merge") for folder in folders if merges]
    killed = processes[0] if "writer" in kills else None
    if kills:
        wait_until(lambda: os.fstat(processes[0].files[0].fileno()).st_size > 0, "the first append")
        cluster.volume.kill_brick(1)
        if killed:
            killed.kill()
        time.sleep(1)
        cluster.volume.start_brick(1)
    for process in processes:
        cluster.end(process, appends * writers)
        tally.check(process is killed or process.returncode == 0, f"a writer ended with {process.returncode}")
    for process in mergers:
        process.terminate()
        cluster.end(process)
        tally.check(process.returncode == 0 and "done" in process.output, "a merger did nothing")
    reports = [line.split() for process in processes for line in process.output.splitlines()]
    tally.acknowledged = {key for state, key in reports if state == "done"}
    tally.refused.update(re.sub(r"/\S*/", "", line) for process in processes + mergers for line in process.errors.splitlines())
    for folder in folders:
        state = cluster.qvres(f"journal verify {folder}").output.strip()  # at once: it asks the server
        tally.check(state == "whole", f"verify says {state}")
        loaded = cluster.look(f"journal load {folder}", bool)
        tally.check(loaded.returncode == 0, f"load: {loaded.errors}")
        tally.see(line.split("\t")[0] for line in loaded.output.splitlines())
    cluster.volume.wait_for_reconnection()
    return tally


def settings(cluster, name, change, shown):
    """Six processes at once change one document or folder; what they added must be there at the end."""
    tally, folders = Tally(), cluster.folders(name)
    cluster.qvres(f"--var {folders[0]} setup {cluster.data}")
    pathlib.Path(folders[0], "s.x-ini").touch()

    def commands(number):
        for place in range(6):
            os.makedirs(f"{cluster.data}/K{number}-{place}", exist_ok=True)
            yield change.format(folder=folders[place % 2], data=cluster.data, key=f"K{number}-{place}")
    for number, processes in cluster.rounds(commands):
        for place, process in enumerate(processes):
            tally.count(f"K{number}-{place}", process)
    for folder in folders:
        answer = cluster.look(shown.format(folder=folder), lambda text: tally.acknowledged <= set(KEY.findall(text)))
        tally.check(answer.returncode == 0, f"cannot look: {answer.errors}")
        tally.see(KEY.findall(answer.output))
    return tally


def setups(cluster):
    """Four first setups of one VAR folder at once: after each that reported success there is a profile."""
    tally = Tally()
    tally.kept = set()
    for number, processes in cluster.rounds(lambda number: [
            f"--var {cluster.clients[place % 2]}/setup{number} setup {cluster.data}" for place in range(4)]):
        for place, process in enumerate(processes):
            tally.count(f"K{number}-{place}", process)
            if process.returncode == 0:
                answer = cluster.look(f"--var {cluster.clients[place % 2]}/setup{number} mounts", bool)
                tally.kept.update([f"K{number}-{place}"] if cluster.data in answer.output else [])
    return tally


def contents(cluster, name, write):
    """Four writers of one target and two readers at once: there is always one whole content, and at the
    end of a round one that was acknowledged."""
    tally, folders, written = Tally(), cluster.folders(name), {}

    def commands(number):
        for place in range(4):
            key = f"{name}{number}-{place}"
            written[key] = f"{key} " * (3000 * (place + 1))
            pathlib.Path(cluster.data, key).write_text(written[key], encoding="ascii")
            yield write.format(folder=folders[place % 2], data=cluster.data, key=key)
        if number > 0:
            yield from (f"--mount /A={folder} cat /A/target" for folder in folders)
    for number, processes in cluster.rounds(commands):
        for place, process in enumerate(processes):
            tally.count(f"{name}{number}-{place}", process)
            is_whole = place < 4 or process.returncode != 0 or process.output in written.values()
            tally.check(is_whole, f"a reader got {len(process.output)} bytes")
        possible = [written[f"{name}{number}-{place}"] for place in range(4) if processes[place].returncode == 0]
        for folder in folders:
            wait_until(lambda: not possible or read(f"{folder}/target").decode() in possible, "a whole content")
    tally.check(os.listdir(folders[0]) == ["target"], f"left in the folder: {os.listdir(folders[0])}")
    tally.see(tally.acknowledged)
    return tally


def labels(cluster):
    """Two processes that replace a resource and four that label it at once: the sidecar always parses, and
    what others keep in it stays there."""
    tally, folders = Tally(), cluster.folders("labels")
    for path, content in [(f"{folders[0]}/doc", ""), (f"{folders[0]}/doc.meta", "; kept\n[other]\n  key=1\n[/other]\n"),
                          (f"{cluster.data}/doc0", "x" * 9), (f"{cluster.data}/doc1", "x" * 99999)]:
        pathlib.Path(path).write_text(content, encoding="ascii")
    work = [f"put /A/doc {cluster.data}/doc{place}" for place in range(2)] + ["label /A/doc"] * 4
    for number, processes in cluster.rounds(lambda number: [
            f"--mount /A={folders[place // 2 % 2]} {command}" for place, command in enumerate(work)]):
        for place, process in enumerate(processes):
            tally.count(f"{number}-{place}", process)
        for folder in folders:
            sidecar = read(f"{folder}/doc.meta")
            tally.check(SIDECAR.fullmatch(sidecar), f"round {number}: the sidecar is {sidecar}")
    tally.see(tally.acknowledged)
    return tally


SCENARIOS = {
    "journal: writers on both clients": lambda c: journal(c, "plain"),
    "journal: the same while both clients merge": lambda c: journal(c, "merged", merges=True),
    "journal: the same while a brick is killed": lambda c: journal(c, "brick", merges=True, kills=("brick",)),
    "journal: the same while a brick and a writer are killed":
        lambda c: journal(c, "killed", merges=True, kills=("brick", "writer"), appends=max(100, APPENDS)),
    "settings: mount": lambda c: settings(
        c, "mounts", "--var {folder} mount /{key} {data}", "--var {folder} mounts"),
    "settings: profile add": lambda c: settings(
        c, "folders", "--var {folder} profile add LocalProfile {data}/{key}", "--var {folder} profile show LocalProfile"),
    "settings: profile create": lambda c: settings(
        c, "profiles", "--var {folder} profile create {key}", "--var {folder} profile list"),
    "settings: xini set": lambda c: settings(
        c, "values", "--mount /A={folder} xini set /A/s.x-ini a/{key} 1", "--mount /A={folder} cat /A/s.x-ini"),
    "settings: first setups": setups,
    "put: one target": lambda c: contents(c, "put", "--mount /A={folder} put /A/target {data}/{key}"),
    "copy: one target": lambda c: contents(
        c, "copy", "--mount /A={folder} --mount /L={data} cp /L/{key} /A/target"),
    "labels: one sidecar": labels,
}


def run(cluster, title, scenario):
    start = time.monotonic()
    try:
        tally = scenario(cluster)
    except (OSError, subprocess.SubprocessError) as error:
        print(f"FAILED  {title}: {error}", flush=True)
        return False
    lost = len(tally.acknowledged - tally.kept)
    good = len(tally.acknowledged) > 0 and lost == 0 and not tally.faults
    print(f"{'ok    ' if good else 'FAILED'}  {title}: {len(tally.acknowledged)} acknowledged, "
          f"{len(tally.acknowledged) - lost} of them kept, {sum(tally.refused.values())} refused ({time.monotonic() - start:.1f} s)")
    for fault in tally.faults[:5]:
        print(f"            fault: {fault.strip()[:300]}")
    for reason, times in tally.refused.most_common(5):
        print(f"            {times} times: {reason[:200]}")
    sys.stdout.flush()
    return good


def main():
    build, *words = (word for word in sys.argv[1:] if word != "--long")
    scenarios = {title: scenario for title, scenario in SCENARIOS.items() if any(word in title for word in words or [""])}
    needed = ["/dev/fuse", "/usr/sbin/glusterfs", "/usr/sbin/glusterfsd"]
    missing = ["root"] * (os.geteuid() != 0) + [path for path in needed if not os.path.exists(path)]
    if missing:
        print(f"Without {', '.join(missing)}, these are skipped:", *scenarios, sep="\n  ")
        return 0
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGALRM):
        signal.signal(number, lambda received, _: sys.exit(f"ended by {signal.Signals(received).name}"))
    signal.alarm(LIMIT)
    with tempfile.TemporaryDirectory(prefix="qvservices-cluster-") as room:
        cluster = Cluster(build, room)
        try:
            cluster.volume.start()
            failed = [title for title, scenario in scenarios.items() if not run(cluster, title, scenario)]
        finally:
            cluster.stop()
    print(f"{len(scenarios) - len(failed)} of {len(scenarios)} scenarios hold")
    return 1 if failed or not scenarios else 0


if __name__ == "__main__":
    sys.exit(main())
