#!/usr/bin/env python3
"""Several processes on two clients of a replicated volume: what was acknowledged must be kept.

  run.py BUILD_FOLDER [--long] [WORD...]    only the scenarios whose title holds one of the words

Each scenario prints how much was acknowledged, refused and kept. What was acknowledged and is lost
fails; what was refused with a message is only counted. Every wait has an end.
"""

import collections
import os
import re
import signal
import subprocess
import sys
import tempfile
import time

from volume import Volume, read, wait_until

PROCESS_LIMIT = 60  # seconds for one command
LIMIT, LONG_LIMIT = 240, 900  # seconds for all
ROUNDS = 8  # of a scenario with a brick that is killed in BRICK_DIES and started again in BRICK_RETURNS
BRICK_DIES, BRICK_RETURNS = 2, 4
CACHES_LAST = 5  # seconds; those of a client are told to last 1 s each, and there are several
LOCK_TIMEOUT = 60000  # milliseconds, so that a slow machine refuses nothing
KEY = re.compile(r"\bK\d+-\d+\b")  # a piece of work: its round and its place in it
SIDECAR = re.compile(rb"; kept\n\[other\]\n  key=1\n\[/other\]\n"
                     rb"(\[resource_label\]\n  size=\d+\n  time=\d+\n  crc=\d+\n\[/resource_label\]\n)?")


class Tally:
    """What became of the work of one scenario. Keys name the pieces of work."""

    def __init__(self):
        self.acknowledged, self.kept = set(), set()
        self.refused = 0
        self.reasons = collections.Counter()
        self.faults = []

    def check(self, holds, fault):
        if not holds:
            self.faults.append(fault)

    def count(self, key, process):
        """A command that has ended: done, or refused with one line, or at fault."""
        if process.returncode == 0:
            self.acknowledged.add(key)
        elif process.returncode == 1 and re.search("^qvres: ", process.errors, re.MULTILINE):
            self.refused += 1
            # Messages that differ only in their paths are shown once.
            self.reasons[re.sub(r'/\S*?/(client-\d)?', "", process.errors.splitlines()[-1])] += 1
        else:
            self.faults.append(f"{key}: status {process.returncode}, {process.errors.strip()}")


class Cluster:
    def __init__(self, build, room):
        self.room = room
        self.volume = Volume(room)
        self.clients = self.volume.clients
        self._programs = {"qvres": f"{build}/tools/qvres/qvres",
                          "journal_process": f"{build}/tests/cluster/journal_process"}
        self._environment = {"PATH": os.environ["PATH"], "HOME": f"{room}/home", "LC_ALL": "C",
                             "QV_REGISTRY_DIR": f"{room}/registry"}
        self._running = []
        for folder in ("home", "registry", "data"):
            os.mkdir(f"{room}/{folder}")
        self.qvres("--var", f"{room}/local", "setup", f"{room}/data")
        with open(f"{room}/local/Config/ResourceManager.x-ini", "w", encoding="utf-8") as settings:
            settings.write(f"StDirLockTimeout={LOCK_TIMEOUT}\n")

    def begin(self, program, *arguments, **environment):
        output = tempfile.TemporaryFile()
        errors = tempfile.TemporaryFile()
        process = subprocess.Popen([self._programs[program], *arguments], stdin=subprocess.DEVNULL, stdout=output,
                                   stderr=errors, env={**self._environment, **environment})
        process.files = output, errors
        self._running.append(process)
        return process

    def end(self, process, limit=PROCESS_LIMIT):
        process.wait(limit)
        self._running.remove(process)
        texts = []
        for file in process.files:
            file.seek(0)
            texts.append(file.read())
            file.close()
        process.output, process.errors = texts[0], texts[1].decode(errors="replace")
        return process

    def qvres(self, *arguments):
        return self.end(self.begin("qvres", *arguments))

    def look(self, arguments, holds):
        """The answer of qvres that holds, or the last one when the clients' caches must have ended."""
        end = time.monotonic() + CACHES_LAST
        while True:
            answer = self.qvres(*arguments)
            if holds(answer.output.decode()) or time.monotonic() > end:
                return answer
            time.sleep(0.2)

    def together(self, commands, meanwhile=lambda: None):
        """Starts all commands of qvres at once; the ended processes in the same order."""
        processes = [self.begin("qvres", *command) for command in commands]
        meanwhile()
        return [self.end(process) for process in processes]

    def rounds(self):
        """Numbers of rounds, each with what has to happen to a brick while it runs."""
        for number in range(ROUNDS):
            yield number, {BRICK_DIES: lambda: self.volume.kill_brick(1),
                           BRICK_RETURNS: lambda: self.volume.start_brick(1)}.get(number, lambda: None)
            if number == ROUNDS - 3:
                self.volume.wait_for_reconnection()

    def stop(self):
        for process in self._running:
            process.kill()
            process.wait(PROCESS_LIMIT)
        self.volume.stop()


def journal(cluster, name, writers, appends, merges=False, kills=False):
    """Long-living writers on both clients, optionally beside merges, a killed writer and a killed brick."""
    tally = Tally()
    storages = [f"{client}/{name}" for client in cluster.clients]
    os.makedirs(f"{storages[0]}/content")
    tally.check(cluster.qvres("journal", "rebuild", storages[0]).returncode == 0, "no journal was made")

    def begin(number, *arguments):
        return cluster.begin("journal_process", storages[number % 2], *arguments, QV_VAR_FOLDER=f"{cluster.room}/local")
    processes = [begin(number, "append", f"W{number}", str(appends)) for number in range(writers)]
    mergers = [begin(number, "merge") for number in range(2 if merges else 0)]
    killed = processes[0] if kills else None
    if kills:
        wait_until(lambda: os.fstat(processes[1].files[0].fileno()).st_size > 0, "the first append")
        cluster.volume.kill_brick(1)
        killed.kill()
        time.sleep(1)
        cluster.volume.start_brick(1)
    for process in processes:
        cluster.end(process, appends * writers)
        tally.check(process is killed or process.returncode == 0, f"a writer ended with {process.returncode}")
    for merger in mergers:
        merger.terminate()
        cluster.end(merger)
        tally.check(b"done" in merger.output and merger.returncode == 0, f"no merge was done: {merger.errors[:200]}")
    reports = [line.split() for process in processes for line in process.output.decode().splitlines()]
    tally.acknowledged = {key for state, key in reports if state == "done"}
    tally.refused = sum(state == "refused" for state, _ in reports)
    tally.reasons.update(line for process in processes + mergers for line in process.errors.splitlines())
    for storage in storages:
        state = cluster.qvres("journal", "verify", storage).output.decode().strip()
        tally.check(state == "whole", f"verify: {state}")
        loaded = cluster.qvres("journal", "load", storage)
        kept = {line.split("\t")[0] for line in loaded.output.decode().splitlines()}
        tally.kept = kept & tally.kept if tally.kept else kept
    if kills:
        cluster.volume.wait_for_reconnection()
    return tally


def settings(cluster, name, change, look):
    """Rounds of 6 processes that change one VAR folder. `change` makes a command of the folder and a
    key; `look` makes the command that prints the keys that are kept."""
    tally = Tally()
    folders = [f"{client}/{name}" for client in cluster.clients]
    cluster.qvres("--var", folders[0], "setup", f"{cluster.room}/data")
    with open(f"{folders[0]}/s.x-ini", "wb"):  # for the values, which know the folder as a plain one
        pass
    for number, meanwhile in cluster.rounds():
        keys = [f"K{number}-{place}" for place in range(6)]
        commands = [change(folders[place % 2], key) for place, key in enumerate(keys)]
        for key, process in zip(keys, cluster.together(commands, meanwhile)):
            tally.count(key, process)
    for folder in folders:
        seen = cluster.look(look(folder), lambda text: tally.acknowledged <= set(KEY.findall(text)))
        tally.check(seen.returncode == 0, f"cannot look: {seen.errors}")
        kept = set(KEY.findall(seen.output.decode()))
        tally.kept = kept & tally.kept if tally.kept else kept
    return tally


def mounts(cluster, name):
    return settings(cluster, name, lambda folder, key: ["--var", folder, "mount", f"/{key}", f"{cluster.room}/data"],
                    lambda folder: ["--var", folder, "mounts"])


def profile_folders(cluster, name):
    def change(folder, key):
        os.makedirs(f"{cluster.room}/data/{key}", exist_ok=True)
        return ["--var", folder, "profile", "add", "LocalProfile", f"{cluster.room}/data/{key}"]
    return settings(cluster, name, change, lambda folder: ["--var", folder, "profile", "show", "LocalProfile"])


def profiles(cluster, name):
    return settings(cluster, name, lambda folder, key: ["--var", folder, "profile", "create", key],
                    lambda folder: ["--var", folder, "profile", "list"])


def values(cluster, name):
    return settings(cluster, name,
                    lambda folder, key: ["--mount", f"/A={folder}", "xini", "set", "/A/s.x-ini", f"a/{key}", "value"],
                    lambda folder: ["--mount", f"/A={folder}", "cat", "/A/s.x-ini"])


def first_setups(cluster, name):
    """Several first setups of one VAR folder at once."""
    tally = Tally()
    for number, meanwhile in cluster.rounds():
        folders = [f"{cluster.clients[place % 2]}/{name}{number}" for place in range(4)]
        processes = cluster.together([["--var", folder, "setup", f"{cluster.room}/data"] for folder in folders], meanwhile)
        for place, process in enumerate(processes):
            key = f"{number}-{place}"
            tally.count(key, process)
            if key in tally.acknowledged:
                seen = cluster.look(["--var", folders[place], "ls", "/"], lambda text: text == "/data/\n")
                tally.kept.update([key] if seen.returncode == 0 else [])
    return tally


def contents(cluster, name, write):
    """Rounds of 4 writers of one target and 2 readers: each must find one of the whole contents, and
    the last content must be one that was acknowledged. `write` makes a command of the mounts, the
    source's name and the target's id."""
    tally = Tally()
    os.makedirs(f"{cluster.clients[0]}/{name}")
    targets = [f"{client}/{name}/target" for client in cluster.clients]
    mounted = [["--mount", f"/A={client}/{name}", "--mount", f"/L={cluster.room}/data"] for client in cluster.clients]
    written = set()
    for number, meanwhile in cluster.rounds():
        keys = {f"{name}{number}-{place}": b"%d-%d " % (number, place) * (3000 * (place + 1)) for place in range(4)}
        for key, content in keys.items():
            with open(f"{cluster.room}/data/{key}", "wb") as file:
                file.write(content)
        written.update(keys.values())
        commands = [mounted[place % 2] + write(cluster, key) for place, key in enumerate(keys)]
        reads = [options + ["cat", "/A/target"] for options in mounted] if number > 0 else []
        processes = cluster.together(commands + reads, meanwhile)
        for key, process in zip(keys, processes):
            tally.count(key, process)
        for place, process in enumerate(processes[len(keys):]):
            tally.count(f"{number} reader {place}", process)
            tally.check(process.returncode != 0 or process.output in written, f"a reader got {len(process.output)} bytes")
        acknowledged = [content for key, content in keys.items() if key in tally.acknowledged]
        for target in targets:
            wait_until(lambda: not acknowledged or read(target) in acknowledged, f"one whole content in {target}")
        tally.kept.update(tally.acknowledged)
    left = [file for file in os.listdir(f"{cluster.clients[0]}/{name}") if file != "target"]
    tally.check(not left, f"left in the folder: {left}")
    return tally


def puts(cluster, name):
    return contents(cluster, name, lambda cluster, key: ["put", "/A/target", f"{cluster.room}/data/{key}"])


def copies(cluster, name):
    return contents(cluster, name, lambda cluster, key: ["cp", f"/L/{key}", "/A/target"])


def labels(cluster, name):
    """Rounds of 2 processes that replace a resource and 4 that label it: the sidecar parses always, and
    what others keep in it stays there."""
    tally = Tally()
    os.makedirs(f"{cluster.clients[0]}/{name}")
    with open(f"{cluster.clients[0]}/{name}/doc", "wb"), open(f"{cluster.clients[0]}/{name}/doc.meta", "wb") as sidecar:
        sidecar.write(b"; kept\n[other]\n  key=1\n[/other]\n")
    for place in range(2):
        with open(f"{cluster.room}/data/{name}{place}", "wb") as file:
            file.write(b"x" * (9 + 99999 * place))
    work = [["put", "/A/doc", f"{cluster.room}/data/{name}{place}"] for place in range(2)] + [["label", "/A/doc"]] * 4
    for number, meanwhile in cluster.rounds():
        commands = [["--mount", f"/A={cluster.clients[place // 2 % 2]}/{name}"] + command for place, command in enumerate(work)]
        for place, process in enumerate(cluster.together(commands, meanwhile)):
            tally.count(f"{number}-{place}", process)
        for client in cluster.clients:
            sidecar = read(f"{client}/{name}/doc.meta")
            tally.check(SIDECAR.fullmatch(sidecar), f"round {number}: a sidecar of {len(sidecar)} bytes: {sidecar[-120:]}")
    tally.kept = tally.acknowledged
    return tally


SCENARIOS = {
    "journal: 4 writers, 40 appends each": lambda c: journal(c, "plain", 4, 40),
    "journal: the same while both clients merge": lambda c: journal(c, "merged", 4, 40, merges=True),
    "journal: the same while a brick and a writer are killed": lambda c: journal(c, "killed", 4, 100, merges=True, kills=True),
    "settings: mount": lambda c: mounts(c, "mounts"),
    "settings: profile add": lambda c: profile_folders(c, "folders"),
    "settings: profile create": lambda c: profiles(c, "profiles"),
    "settings: xini set": lambda c: values(c, "values"),
    "settings: first setups": lambda c: first_setups(c, "setups"),
    "put: one target": lambda c: puts(c, "puts"),
    "copy: one target": lambda c: copies(c, "copies"),
    "labels: one sidecar": lambda c: labels(c, "labels"),
}
LONG_SCENARIOS = {
    "journal, long: 8 writers, 500 appends each, while both clients merge":
        lambda c: journal(c, "long", 8, 500, merges=True),
    "journal, long: the same while a brick and a writer are killed":
        lambda c: journal(c, "longkilled", 8, 500, merges=True, kills=True),
}


def run(cluster, title, scenario):
    start = time.monotonic()
    try:
        tally = scenario(cluster)
        cluster.volume.wait_for_healing()
    except (OSError, subprocess.SubprocessError) as error:
        print(f"FAILED  {title}: {error}", flush=True)
        return False
    lost = sorted(tally.acknowledged - tally.kept)
    good = tally.acknowledged and not lost and not tally.faults
    print(f"{'ok    ' if good else 'FAILED'}  {title}: {len(tally.acknowledged)} acknowledged, {tally.refused} refused, "
          f"{len(tally.acknowledged) - len(lost)} of the acknowledged kept ({time.monotonic() - start:.1f} s)", flush=True)
    for fault in tally.faults[:5]:
        print(f"        fault: {fault[:300]}")
    for reason, times in tally.reasons.most_common(5):
        print(f"        {times} times: {reason[:200]}")
    return good


def missing():
    """What these tests need and this machine does not have."""
    if os.geteuid() != 0:
        return "root"
    for path in ("/dev/fuse", "/usr/sbin/glusterfs", "/usr/sbin/glusterfsd"):
        if not os.path.exists(path):
            return path
    return None


def main():
    build, *words = sys.argv[1:]
    scenarios = dict(SCENARIOS)
    if "--long" in words:
        words.remove("--long")
        scenarios.update(LONG_SCENARIOS)
    chosen = {title: scenario for title, scenario in scenarios.items()
              if not words or any(word in title for word in words)}
    if missing():
        print(f"skipped, because there is no {missing()}: {', '.join(chosen)}")
        return 0
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGALRM):
        signal.signal(number, lambda received, _: sys.exit(f"ended by {signal.Signals(received).name}"))
    signal.alarm(LIMIT if chosen.keys() <= SCENARIOS.keys() else LONG_LIMIT)
    with tempfile.TemporaryDirectory(prefix="qvservices-cluster-") as room:
        cluster = Cluster(build, room)
        try:
            cluster.volume.start()
            failed = [title for title, scenario in chosen.items() if not run(cluster, title, scenario)]
        finally:
            cluster.stop()
    print(f"{len(chosen) - len(failed)} of {len(chosen)} scenarios hold")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
