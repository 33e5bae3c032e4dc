"""The readers that are compared, each with the same face: what does it give for these streams of this volume?

answers(streams) gives {stream: Answer}; content(stream) the bytes once more, for a look at a difference. A stream is one
of facts.Stream.
"""

import collections
import concurrent.futures
import contextlib
import hashlib
import json
import os
import re
import shutil
import subprocess
import tempfile
import time

SYSTEM_PATH = os.environ.get("PATH", "") + ":/usr/sbin:/sbin"
ENVIRONMENT = dict(os.environ, PATH=SYSTEM_PATH, LC_ALL="C.UTF-8")
TIME_LIMIT = 600  # seconds for one run of a program
PYTHON = "/usr/bin/python3"  # the one that Debian's package of libfsntfs serves
PART = 1 << 20
NO_PATH = "no path leads to it"

# state: "complete", "doubt" or "refused"; the code of a failure, where the reader has codes; its words.
Answer = collections.namedtuple("Answer", "state sha256 size code words")


def refused(words, code=None):
    return Answer("refused", None, None, code, words.strip())


def complete(sha256, size):
    return Answer("complete", sha256, size, None, "")


def digest_of(file):
    sha, size = hashlib.sha256(), 0
    while part := file.read(PART):
        sha.update(part)
        size += len(part)
    return sha.hexdigest(), size


def scratch_folder():
    """Many small files are made and removed: in memory where there is room for them, since each copy is synced."""
    memory = "/dev/shm"
    room = os.path.isdir(memory) and os.access(memory, os.W_OK) and shutil.disk_usage(memory).free > 1 << 31
    return tempfile.TemporaryDirectory(prefix="oracle", dir=memory if room and "TMPDIR" not in os.environ else None)


def run(*arguments, **options):
    return subprocess.run([str(a) for a in arguments], capture_output=True, env=ENVIRONMENT, timeout=TIME_LIMIT,
                          check=False, **options)


def all_of(work, items):
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        return list(pool.map(work, items))


class Exact:
    """quarry -exact: all streams by one list, what a list cannot name by a run of its own."""

    name = "quarry -exact"

    def __init__(self, program, volume, scratch):
        self.program, self.volume, self.folder = program, volume, os.path.join(scratch, "exact")
        self.runs = 0
        self.paths = {}

    def source(self):
        return ["-image", self.volume.given, *self.volume.arguments]

    def list(self, orders, *options):
        """The manifest's line for each order."""
        self.runs += 1
        folder = os.path.join(self.folder, str(self.runs))
        os.makedirs(folder + "/copies")
        manifest = folder + "/manifest"
        done = run(self.program, "-exact", *self.source(), "-pipe", "-tree", "-sparse", "-dst",
                   folder + "/copies/", "-manifest", manifest, "-quiet", *options,
                   input="".join(order + "\n" for order in orders).encode("utf-8", errors="surrogatepass"))
        lines = []
        with contextlib.suppress(OSError), open(manifest, encoding="utf-8") as file:
            lines = [json.loads(line) for line in file]
        by_number = {line["run"]["line"]: line for line in lines}
        if done.returncode not in (0, 1, 3, 4, 5) or sorted(by_number) != list(range(1, len(orders) + 1)):
            raise RuntimeError(f"quarry -exact: status {done.returncode}, {len(lines)} lines for {len(orders)} orders: "
                               + done.stderr.decode(errors="replace")[-500:])
        return [by_number[number] for number in range(1, len(orders) + 1)], folder + "/copies"

    def single(self, arguments):
        """The same by a run of its own, for a copy that has no place in a tree."""
        self.runs += 1
        folder = os.path.join(self.folder, str(self.runs))
        os.makedirs(folder)
        run(self.program, "-exact", *self.source(), *arguments, "-sparse", "-dst", folder + "/copy", "-manifest",
            folder + "/manifest", "-quiet")
        with open(folder + "/manifest", encoding="utf-8") as file:
            return json.loads(file.read())

    @staticmethod
    def by_its_place(line):
        """Whether a copy failed only because of what it is called on the host."""
        return line["error"] is not None and line["error"]["code"] in ("exists", "create")

    def answer(self, stream, line):
        if line["error"]:
            return refused(line["error"]["text"], line["error"]["code"])
        path = line["copy"]["path"]
        self.paths[stream] = path
        with open(path, "rb") as file:
            sha256, size = digest_of(file)
        state = {"complete": "complete", "in doubt": "doubt"}[line["result"]]
        warnings = "; ".join(warning["code"] for warning in line["warnings"])
        if (sha256, size) != (line["copy"]["sha256"], line["copy"]["size"]):
            return refused(f"the manifest says {line['copy']['sha256']}, the copy has {sha256}", "manifest")
        return Answer(state, sha256, size, None, warnings)

    def answers(self, streams):
        lines, _ = self.list([stream.order for stream in streams])
        found = {}
        for stream, line in zip(streams, lines):
            if self.by_its_place(line):
                of_stream = ["-src", ":" + stream.shown] if stream.name else []
                line = self.single(["-mft", stream.entry, *of_stream])
            found[stream] = self.answer(stream, line)
        return found

    def content(self, stream):
        with open(self.paths[stream], "rb") as file:
            return file.read()

    def entries_of(self, paths):
        """For each path the entry that it leads to, or the code of the failure."""
        lines, copies = self.list([path + "::$STANDARD_INFORMATION" for path in paths], "-raw")
        shutil.rmtree(copies)
        found = []
        for path, line in zip(paths, lines):
            if self.by_its_place(line):
                line = self.single(["-raw", "-src", path + "::$STANDARD_INFORMATION"])
            found.append(line["error"]["code"] if line["error"] else line["object"]["entry"])
        return found

    def listed(self):
        """Entry and path of every long name that the listing has."""
        done = run(self.program, "-exact", *self.source(), "-list", "/", "-recurse")
        lines = [line.split("\t") for line in done.stdout.decode("utf-8").split("\n")[:-1]]
        return {(int(line[0].split("-")[0]), line[4]) for line in lines if line[1] != "s"}


class Command:
    """A reader that is started once for each stream and writes it to standard output."""

    def __init__(self, volume):
        self.volume = volume

    def arguments(self, stream):
        raise NotImplementedError

    def answer(self, stream):
        with subprocess.Popen(self.arguments(stream), stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=ENVIRONMENT,
                              stdin=subprocess.DEVNULL) as process:
            sha256, size = digest_of(process.stdout)
            words = process.stderr.read().decode(errors="replace")
        return complete(sha256, size) if process.returncode == 0 else refused(words or f"status {process.returncode}")

    def answers(self, streams):
        return dict(zip(streams, all_of(self.answer, streams)))

    def content(self, stream):
        return run(*self.arguments(stream)).stdout


class Ntfscat(Command):
    name = "ntfscat"

    def arguments(self, stream):
        of_stream = ["-n", stream.text] if stream.name else []
        return ["ntfscat", "-f", "-i", str(stream.entry), *of_stream, self.volume.plain]


class Libfsntfs:
    name = "libfsntfs"

    def __init__(self, volume, scratch):
        self.volume, self.scratch = volume, scratch

    def ask(self, orders):
        reader = os.path.join(os.path.dirname(os.path.abspath(__file__)), "libfsntfs_reader.py")
        asked = "".join(json.dumps(order) + "\n" for order in orders).encode()
        done = run(PYTHON, "-B", reader, self.volume.plain, input=asked)
        lines = [json.loads(line) for line in done.stdout.decode().splitlines()]
        if done.returncode != 0 and len(lines) < len(orders):
            # It ended at the order that has no answer.
            lines.append({"refused": f"the process ended with {done.returncode}: " + done.stderr.decode()[-200:]})
            lines += self.ask(orders[len(lines):]) if len(lines) < len(orders) else []
        return lines

    def answers(self, streams):
        lines = self.ask([[stream.entry, stream.text] for stream in streams])
        return {stream: complete(line["sha256"], None) if "sha256" in line else refused(line["refused"])
                for stream, line in zip(streams, lines)}

    def content(self, stream):
        copy = os.path.join(self.scratch, "libfsntfs copy")
        self.ask([[stream.entry, stream.text, copy]])
        with open(copy, "rb") as file:
            return file.read()


class Mount:
    """A read-only mount by ntfs-3g: every stream through the path of its file."""

    name = "ntfs-3g mount"

    def __init__(self, volume, scratch):
        self.volume, self.point = volume, os.path.join(scratch, "mount")
        self.words = ""

    def __enter__(self):
        os.makedirs(self.point)
        done = run("ntfs-3g", "-o", "ro,show_sys_files,streams_interface=windows", self.volume.plain, self.point)
        self.mounted = done.returncode == 0
        self.words = done.stderr.decode(errors="replace")
        return self

    def __exit__(self, *_):
        if self.mounted:
            # A file that was just closed may still be in use.
            for _ in range(50):
                if run("umount", self.point).returncode == 0:
                    return
                time.sleep(0.1)
            run("umount", "--lazy", self.point)

    def path(self, stream):
        return os.fsencode(self.point) + stream.file_path + (b":" + stream.bytes if stream.name else b"")

    def open(self, stream):
        return os.fdopen(os.open(self.path(stream), os.O_RDONLY | os.O_NOFOLLOW), "rb")

    def answer(self, stream):
        if not self.mounted:
            return refused("not mounted: " + self.words)
        if stream.file_path is None:
            return refused(NO_PATH)
        try:
            with self.open(stream) as file:
                return complete(*digest_of(file))
        except OSError as reason:
            return refused(reason.strerror)

    def answers(self, streams):
        return {stream: self.answer(stream) for stream in streams}

    def content(self, stream):
        with self.open(stream) as file:
            return file.read()

    def names(self):
        """Every path below the mount, in bytes, or nothing where it cannot be mounted."""
        if not self.mounted:
            return None
        found, top = set(), os.fsencode(self.point)
        for folder, folders, files in os.walk(top):
            found.update(os.path.join(folder, name)[len(top):] for name in folders + files)
        return found


class Default:
    """The default mode: by entry, and the named streams by the path of their file."""

    name = "quarry"

    def __init__(self, program, volume, scratch):
        self.program, self.volume, self.folder = program, volume, os.path.join(scratch, "default")
        os.makedirs(self.folder)

    def copy(self, stream):
        target = os.path.join(self.folder, f"{stream.entry}-{stream.number}")
        by_path = f"{os.fsdecode(stream.file_path or b'')}:{stream.text}"
        which = ["-src", by_path] if stream.name else ["-mft", str(stream.entry)]
        return run(self.program, "-image", self.volume.plain, *which, "-dst", target,
                   stdin=subprocess.DEVNULL), target

    def answer(self, stream):
        if stream.name and stream.file_path is None:
            return refused(NO_PATH)
        done, target = self.copy(stream)
        try:
            with open(target, "rb") as file:
                found = complete(*digest_of(file))
            os.unlink(target)
        except FileNotFoundError:
            return refused(f"status {done.returncode} and no file", "no-file" if done.returncode == 0 else None)
        return found if done.returncode == 0 else refused(f"status {done.returncode}")

    def answers(self, streams):
        return dict(zip(streams, all_of(self.answer, streams)))

    def content(self, stream):
        _, target = self.copy(stream)
        with open(target, "rb") as file:
            content = file.read()
        os.unlink(target)
        return content


def volumes_in(program, image):
    """Offset and number of each NTFS volume in an image, as `-volumes` lists them; None for one bare volume."""
    with open(image, "rb") as file:
        if file.read(11)[3:] == b"NTFS    ":
            return None
    listing = run(program, "-exact", "-image", image, "-volumes").stdout.decode(errors="replace")
    return [(int(found[1]), int(found[2], 16)) for found in
            re.finditer(r"^ *(\d+)  offset (0x[0-9A-Fa-f]+) .*  ntfs", listing, re.M)]
