"""A replicated GlusterFS volume for tests: two bricks and two clients on 127.0.0.1, all in one folder.

There is no management daemon: each process reads a volume file that is written here, stays in the
foreground and is ended by its own handle. The clients have the caches that a volume has by default.
"""

import errno
import os
import socket
import subprocess
import time

WAIT = 20  # seconds at the most for a brick to listen, a mount to answer, a process to end

BRICK = """
volume posix
  type storage/posix
  option directory {folder}
end-volume
volume access
  type features/access-control
  subvolumes posix
end-volume
volume locks
  type features/locks
  subvolumes access
end-volume
volume threads
  type performance/io-threads
  subvolumes locks
end-volume
volume brick
  type features/index
  option index-base {index}
  option xattrop-dirty-watchlist trusted.afr.dirty
  option xattrop-pending-watchlist trusted.afr.volume-
  subvolumes threads
end-volume
volume server
  type protocol/server
  option transport-type tcp
  option transport.socket.bind-address 127.0.0.1
  option transport.socket.listen-port {port}
  option auth.addr.brick.allow 127.0.0.1
  subvolumes brick
end-volume
"""

CONNECTION = """
volume client-{number}
  type protocol/client
  option transport-type tcp
  option remote-host 127.0.0.1
  option remote-port {port}
  option remote-subvolume brick
  option ping-timeout 10
end-volume
"""

REPLICATE = """
volume replicate
  type cluster/replicate
  option afr-pending-xattr volume-client-0,volume-client-1
  option data-self-heal on
  option metadata-self-heal on
  option entry-self-heal on
  subvolumes client-0 client-1
end-volume
"""

CACHES = ["write-behind", "read-ahead", "readdir-ahead", "io-cache", "open-behind", "quick-read", "md-cache"]


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def mounted(folder):
    with open("/proc/self/mounts", encoding="utf-8") as mounts:
        return any(line.split()[1] == folder for line in mounts)


def read(path):
    """A client may know a replaced file for as long as its caches last, and answers ESTALE then."""
    end = time.monotonic() + WAIT
    while True:
        try:
            with open(path, "rb") as file:
                return file.read()
        except OSError as error:
            if error.errno != errno.ESTALE or time.monotonic() > end:
                raise
            time.sleep(0.05)


def tree(folder):
    """All files below `folder` with their contents; None stands for a file that could not be read."""
    found = {}
    for path, folders, files in os.walk(folder):
        folders[:] = [name for name in folders if not name.startswith((".glusterfs", ".meta"))]
        for name in files:
            file = os.path.join(path, name)
            try:
                found[os.path.relpath(file, folder)] = read(file)
            except OSError:
                found[os.path.relpath(file, folder)] = None
    return found


def wait_until(question, what):
    end = time.monotonic() + WAIT
    while not question():
        if time.monotonic() > end:
            raise TimeoutError(f"{what} did not happen within {WAIT} s")
        time.sleep(0.05)


def end(process):
    process.terminate()
    try:
        process.wait(WAIT)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait(WAIT)


class Volume:
    """`clients` are the two mount folders."""

    def __init__(self, room):
        self.room = room
        self.clients = [f"{room}/client-{number}" for number in (0, 1)]
        self._ports = [free_port(), free_port()]
        self._bricks = [None, None]
        self._mounts = []

    def start(self):
        for number in (0, 1):
            for kind in ("brick", "index"):
                os.mkdir(f"{self.room}/{kind}-{number}")
            self._write(f"brick-{number}.vol", BRICK.format(folder=f"{self.room}/brick-{number}",
                        index=f"{self.room}/index-{number}", port=self._ports[number]))
            self.start_brick(number)
        text = "".join(CONNECTION.format(number=n, port=self._ports[n]) for n in (0, 1)) + REPLICATE
        below = "replicate"
        for cache in CACHES:
            text += f"volume {cache}\n  type performance/{cache}\n  subvolumes {below}\nend-volume\n"
            below = cache
        self._write("client.vol", text)
        for folder in self.clients:
            self._mounts.append(self._mount(os.path.basename(folder)))

    def start_brick(self, number):
        self._bricks[number] = self._run("glusterfsd", f"brick-{number}.vol", f"brick-{number}")

        def listens():
            with socket.socket() as probe:
                return probe.connect_ex(("127.0.0.1", self._ports[number])) == 0
        wait_until(listens, f"listening of brick {number}")

    def kill_brick(self, number):
        self._bricks[number].kill()
        self._bricks[number].wait(WAIT)

    def wait_for_reconnection(self):
        """A client tries to reach a brick again every 3 s."""
        states = [f"{client}/.meta/graphs/active/client-{number}/private"
                  for client in self.clients for number in (0, 1)]
        wait_until(lambda: all("connected = 1\n" in read(state).decode() for state in states), "reconnection")

    def wait_for_healing(self):
        """A client heals what it meets for the first time, so a fresh one looks at everything."""
        def bricks_are_equal():
            return tree(f"{self.room}/brick-0") == tree(f"{self.room}/brick-1")

        def healed():
            if bricks_are_equal():
                return True
            healer, process = f"{self.room}/healer", self._mount("healer")
            tree(healer)
            subprocess.run(["umount", "-l", healer], check=True)
            end(process)
            os.rmdir(healer)
            return bricks_are_equal()
        wait_until(healed, "healing")

    def stop(self):
        for folder in self.clients:
            if mounted(folder):
                subprocess.run(["umount", "-l", folder], check=False)
        for process in self._mounts + [brick for brick in self._bricks if brick]:
            end(process)

    def _mount(self, name):
        folder = f"{self.room}/{name}"
        os.mkdir(folder)
        process = self._run("glusterfs", "client.vol", name, folder)
        wait_until(lambda: mounted(folder), f"mounting {folder}")
        return process

    def _write(self, name, text):
        with open(f"{self.room}/{name}", "w", encoding="utf-8") as file:
            file.write(text)

    def _run(self, program, volume_file, name, *arguments):
        # In a session of its own: Ctrl-C is for the tests, which then end everything in order. And no
        # process stays behind when the tests are killed.
        command = ["setpriv", "--pdeathsig", "TERM", f"/usr/sbin/{program}", "-N", "-f", f"{self.room}/{volume_file}", "-l", f"{self.room}/{name}.log",
                   "-p", f"{self.room}/{name}.pid", *arguments]
        return subprocess.Popen(command, stdin=subprocess.DEVNULL, start_new_session=True)
