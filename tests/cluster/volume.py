"""A replicated GlusterFS volume for tests: two bricks and clients on 127.0.0.1, all in one folder.

No management daemon runs: each process reads a volume file that is written here, stays in the
foreground and is ended by its own handle. The clients have the caches that a volume has by default.
"""

import errno
import os
import socket
import subprocess
import time

WAIT = 20  # seconds at the most for whatever the volume has to reach

# A translator a line, the lowest first: its name, its type, its options. Each stands on the one before.
BRICK = """
posix   storage/posix            directory={room}/brick-{number}
access  features/access-control
locks   features/locks
threads performance/io-threads
brick   features/index           index-base={room}/index-{number} xattrop-pending-watchlist=trusted.afr.volume-
server  protocol/server          transport-type=tcp transport.socket.bind-address=127.0.0.1 \
                                 transport.socket.listen-port={port} auth.addr.brick.allow=127.0.0.1
"""
CONNECTION = """
client-{number} protocol/client transport-type=tcp remote-host=127.0.0.1 remote-port={port} remote-subvolume=brick
"""
CLIENT = """
replicate cluster/replicate afr-pending-xattr=volume-client-0,volume-client-1 \
                            data-self-heal=on metadata-self-heal=on entry-self-heal=on
""" + "".join(f"{cache} performance/{cache}\n" for cache in (
    "write-behind", "read-ahead", "readdir-ahead", "io-cache", "open-behind", "quick-read", "md-cache"))


def volume_file(lines, below=""):
    text = ""
    for name, kind, *options in (line.split() for line in lines.splitlines() if line):
        text += f"volume {name}\n  type {kind}\n"
        text += "".join(f"  option {option.replace('=', ' ', 1)}\n" for option in options)
        text += (f"  subvolumes {below}\n" if below else "") + "end-volume\n"
        below = name
    return text


def wait_until(question, what):
    end = time.monotonic() + WAIT
    while not question():
        if time.monotonic() > end:
            raise TimeoutError(f"{what} did not happen within {WAIT} s")
        time.sleep(0.05)


def read(path):
    """For as long as its caches last, a client may know a replaced file and not the new one."""
    end = time.monotonic() + WAIT
    while True:
        try:
            with open(path, "rb") as file:
                return file.read()
        except OSError as error:
            if error.errno not in (errno.ESTALE, errno.ENOENT) or time.monotonic() > end:
                raise
            time.sleep(0.05)


class Volume:
    """Makes its folders and files in the folder `room`; `clients` are the two mounts."""

    def __init__(self, room):
        self.room = room
        self.clients = [f"{room}/client-{number}" for number in (0, 1)]
        self._bricks, self._mounts = {}, {}
        probes = [socket.create_server(("127.0.0.1", 0)) for _ in (0, 1)]
        self._ports = [probe.getsockname()[1] for probe in probes]
        for probe in probes:
            probe.close()

    def start(self):
        client = ""
        for number, port in enumerate(self._ports):
            os.mkdir(f"{self.room}/brick-{number}")
            os.mkdir(f"{self.room}/index-{number}")
            self._write(f"brick-{number}", volume_file(BRICK.format(room=self.room, number=number, port=port)))
            client += volume_file(CONNECTION.format(number=number, port=port))
            self.start_brick(number)
        self._write("client", client + volume_file(CLIENT, "client-0 client-1"))
        for folder in self.clients:
            os.mkdir(folder)
            self._mounts[folder] = self._run("glusterfs", "client", os.path.basename(folder), folder)
            wait_until(lambda: os.path.ismount(folder), f"mounting {folder}")

    def start_brick(self, number):
        self._bricks[number] = self._run("glusterfsd", f"brick-{number}", f"brick-{number}")

        def listens():
            with socket.socket() as probe:
                return probe.connect_ex(("127.0.0.1", self._ports[number])) == 0
        wait_until(listens, f"listening of brick {number}")

    def kill_brick(self, number):
        self._bricks[number].kill()
        self._bricks[number].wait(WAIT)

    def wait_for_reconnection(self):
        """A client tries every 3 s to reach a brick again."""
        states = [f"{client}/.meta/graphs/active/client-{number}/private"
                  for client in self.clients for number in (0, 1)]
        wait_until(lambda: all(b"connected = 1\n" in read(state) for state in states), "reconnection")

    def stop(self):
        for folder, process in self._mounts.items():
            subprocess.run(["umount", "-l", folder], check=False)
            process.terminate()
            process.wait(WAIT)
        for number in self._bricks:
            self.kill_brick(number)

    def _write(self, name, text):
        with open(f"{self.room}/{name}.vol", "w", encoding="utf-8") as file:
            file.write(text)

    def _run(self, program, volume, name, *arguments):
        # In a session of its own, because Ctrl-C is for the tests, which end everything in order; and
        # ended by the kernel when the tests are killed.
        command = ["setpriv", "--pdeathsig", "TERM", f"/usr/sbin/{program}", "-N", "-f", f"{self.room}/{volume}.vol",
                   "-l", f"{self.room}/{name}.log", "-p", f"{self.room}/{name}.pid", *arguments]
        return subprocess.Popen(command, stdin=subprocess.DEVNULL, start_new_session=True)
