"""Machines for the tests of the Ansible collection: a file-system tree, a network namespace with an
address, and an sshd each; and a controller, which runs Ansible. They live in namespaces of this
process, whose network has no way out, and end with it."""

import contextlib
import functools
import hashlib
import os
import re
import shutil
import signal
import stat
import subprocess
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
ENTER = os.path.join(ROOT, "scripts", "enter-machine")
NETWORK = "192.0.2."  # which nobody has: it is there for examples

# What does not count: what is no file, what a login notes, and where Ansible works.
LEFT_OUT = {
    "dev", "proc", "sys", "run", "tmp", "outside", "root/.ansible", "home/builder/.ansible",
    "var/log/lastlog", "var/log/wtmp", "var/log/btmp", "var/log/faillog",
}


def run(*command, **how):
    done = subprocess.run(
        command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
        text=True, check=False, **how,
    )
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(command)}: exit code {done.returncode}\n{done.stdout}")
    return done.stdout


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


class Machine:
    """A machine: a writable copy of a tree below `directory`, and what runs on it."""

    def __init__(self, name, number, tree, directory):
        self.name = name
        self.address = f"{NETWORK}{number}"
        self.card = f"02:00:00:00:00:{number:02x}"  # the same after it was away
        self.tree = tree
        self.link = f"fleet{number}"
        self.directory = os.path.join(directory, name)
        self.root = os.path.join(self.directory, "root")
        self.process = None
        upper, work = (os.path.join(self.directory, part) for part in ("upper", "work"))
        for part in (self.root, upper, work):
            os.makedirs(part)
        # With xino all of it looks as on one file system, as on a real machine.
        options = f"lowerdir={tree},upperdir={upper},workdir={work},xino=on"
        run("mount", "-t", "overlay", "-o", options, "overlay", self.root)

    def path(self, name):
        return os.path.join(self.root, name.lstrip("/"))

    def write(self, name, text, mode=0o644):
        path = self.path(name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        os.chmod(path, mode)

    def read(self, name):
        return read(self.path(name))

    def start(self, *command):
        """Runs the command as the machine's first process, and connects its network."""
        self.process = subprocess.Popen(
            ["unshare", "--net", "--uts", "--ipc", "--pid", "--fork", "--kill-child", "sh", "-euc",
             'hostname "$1"; echo 1 >/proc/sys/net/ipv6/conf/all/disable_ipv6\n'
             'echo ready; read -r go; shift; exec "$@" </dev/null',
             "sh", self.name, ENTER, self.root, "", *command],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
        )
        if self.process.stdout.readline() != b"ready\n":
            raise RuntimeError(f"{self.name} did not start")
        inside = self.first_process()
        run("ip", "link", "add", "name", self.link, "type", "veth", "peer", "name", "eth0",
            "address", self.card, "netns", inside)
        run("ip", "link", "set", self.link, "master", "fleet", "up")
        address = f"address add {self.address}/24 dev eth0"
        for settings in (address, "link set eth0 up", "link set lo up"):
            run("nsenter", "--net", f"--target={inside}", "ip", *settings.split())
        with contextlib.closing(self.process.stdin) as go:
            go.write(b"go\n")

    def wait_until_listening(self, port):
        listening = re.compile(rf":{port:04X} [0-9A-F]+:0000 0A ")
        give_up = time.monotonic() + 60
        while not listening.search(read(f"/proc/{self.first_process()}/net/tcp")):
            if time.monotonic() > give_up or self.process.poll() is not None:
                raise RuntimeError(f"{self.name} does not listen at port {port}")
            time.sleep(0.02)

    def first_process(self):
        above = self.process.pid
        return read(f"/proc/{above}/task/{above}/children").split()[0]

    def stop(self):
        """Ends everything on the machine at once, as a power failure does."""
        if self.process is not None:
            with contextlib.suppress(ProcessLookupError):
                os.kill(int(self.first_process()), signal.SIGKILL)
            self.wait()

    def wait(self):
        self.process.wait(timeout=60)
        self.process.stdout.close()
        self.process = None

    def bytes_so_far(self):
        """The bytes that went over its link, in both directions."""
        for line in read("/proc/self/net/dev").splitlines():
            name, _, numbers = line.partition(":")
            if name.strip() == self.link:
                fields = numbers.split()
                return int(fields[0]) + int(fields[8])
        return 0

    def snapshot(self):
        """Everything on it: of each name its kind, mode and owner, and what it holds."""
        tree = {}
        for above, dirs, files in os.walk(self.root):
            inside = os.path.relpath(above, self.root) if above != self.root else ""
            names = [os.path.join(inside, name) for name in dirs + files]
            dirs[:] = [name for name in dirs if os.path.join(inside, name) not in LEFT_OUT]
            for name in names:
                if name not in LEFT_OUT:
                    tree[name] = self._entry(name)
        return tree

    def _entry(self, name):
        status = os.lstat(self.path(name))
        holds = None
        if stat.S_ISLNK(status.st_mode):
            holds = os.readlink(self.path(name))
        elif stat.S_ISREG(status.st_mode):
            if os.path.lexists(os.path.join(self.directory, "upper", name)):
                holds = hash_of(self.path(name))
            else:
                holds = hash_in_tree(os.path.join(self.tree, name))
        return (oct(status.st_mode), status.st_uid, status.st_gid, holds)


def hash_of(path):
    with open(path, "rb") as file:
        return hashlib.blake2b(file.read()).hexdigest()


@functools.lru_cache(maxsize=None)
def hash_in_tree(path):
    """The same of a file in the trees that the machines' are copies of, which do not change."""
    return hash_of(path)


def differences(before, after):
    """The names that differ, each with what it is now."""
    changed = {name: after.get(name) for name in before if before[name] != after.get(name)}
    return {**changed, **{name: after[name] for name in after if name not in before}}


class Fleet:
    """The hosts and the controller. `directory` becomes a file system in memory."""

    def __init__(self, directory, trees, controller_tree, count, prepare):
        run("mount", "-t", "proc", "proc", "/proc")  # of these namespaces
        run("mount", "-t", "tmpfs", "-o", "mode=755", "tmpfs", directory)
        run("ip", "link", "set", "lo", "up")
        run("ip", "link", "add", "name", "fleet", "type", "bridge")
        run("ip", "link", "set", "fleet", "up")
        self.controller = Machine("controller", 1, controller_tree, directory)
        self.hosts = [
            Machine(f"host{index + 1}", index + 2, trees[index % len(trees)], directory)
            for index in range(count)
        ]
        self._make_keys()
        for host in self.hosts:
            prepare(host)

    def __enter__(self):
        for host in self.hosts:
            self.start(host)
        self.controller.start("sleep", "infinity")
        return self

    def __exit__(self, *error):
        for machine in [*self.hosts, self.controller]:
            machine.stop()

    def start(self, host):
        os.makedirs(host.path("run/sshd"), exist_ok=True)
        host.start("/usr/sbin/sshd", "-D")
        host.wait_until_listening(22)

    def _make_keys(self):
        ssh = self.controller.path("root/.ssh")
        os.makedirs(ssh, mode=0o700, exist_ok=True)
        run("ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", os.path.join(ssh, "id_ed25519"))
        key = self.controller.read("root/.ssh/id_ed25519.pub")
        known = ""
        for host in self.hosts:
            for home, owner in [("root", 0), ("home/builder", 1000)]:
                host.write(f"{home}/.ssh/authorized_keys", key, 0o600)
                for name in (f"{home}/.ssh", f"{home}/.ssh/authorized_keys"):
                    os.chown(host.path(name), owner, owner)
            public = host.read("etc/ssh/ssh_host_ed25519_key.pub").split()
            known += f"{host.name},{host.address} {public[0]} {public[1]}\n"
        self.controller.write("root/.ssh/known_hosts", known)

    def on_controller(self, *command, directory="/root", variables=None):
        """Runs a command on the controller to its end."""
        inside = self.controller.first_process()
        settings = [f"{name}={value}" for name, value in (variables or {}).items()]
        return subprocess.run(
            ["nsenter", f"--target={inside}", "--all", "env", "-i", f"--chdir={directory}",
             "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root",
             "LC_ALL=C.UTF-8", *settings, *command],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
            errors="backslashreplace", check=False, timeout=1800,
        )


def recap(output):
    """The counts that Ansible tells at its end, by host."""
    counts = {}
    for line in output.partition("PLAY RECAP")[2].splitlines():
        found = re.match(r"(\S+)\s*:\s*(ok=.*)", line)
        if found:
            pairs = (pair.split("=") for pair in found[2].split())
            counts[found[1]] = {name: int(number) for name, number in pairs}
    return counts


def copy_example(name, to):
    """Copies part of examples/, with the modes of an installation whatever those of this checkout
    are."""
    shutil.copytree(os.path.join(ROOT, "examples", name), to, symlinks=True)
    for above, dirs, files in os.walk(to):
        for each in dirs + files:
            path = os.path.join(above, each)
            mode = stat.S_IMODE(os.lstat(path).st_mode)
            os.chmod(path, 0o755 if mode & 0o100 else 0o644)
