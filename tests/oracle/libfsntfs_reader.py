"""Reads streams by libfsntfs, in a process of its own, since a library may end the process on a damaged volume.

Usage: libfsntfs_reader.py IMAGE; on standard input lines of JSON [entry, stream name or "", number of bytes wanted]; for
each a line of JSON on standard output: {"sha256": DIGEST} or {"refused": WORDS}. With a fourth member, a path, the bytes
are written there too.
"""

import hashlib
import json
import sys

import pyfsntfs

PART = 1 << 20


def named(file, name):
    if not name:
        if not file.has_default_data_stream():
            raise OSError("no such stream")
        return file
    for index in range(file.number_of_alternate_data_streams):
        stream = file.get_alternate_data_stream(index)
        if stream.name == name:
            return stream
    raise OSError("no such stream")


def digest(volume, entry, name, copy=None):
    stream, sha, out = named(volume.get_file_entry(entry), name), hashlib.sha256(), open(copy, "wb") if copy else None
    left = stream.get_size()
    stream.seek(0)
    while left:
        part = stream.read(min(left, PART))
        if not part:
            raise OSError("ends early")
        sha.update(part)
        if out:
            out.write(part)
        left -= len(part)
    if out:
        out.close()
    return sha.hexdigest()


def main():
    volume, broken = pyfsntfs.volume(), None
    try:
        volume.open(sys.argv[1])
    except (OSError, MemoryError) as reason:
        broken = "cannot open the volume: " + str(reason)
    for line in sys.stdin:
        try:
            if broken:
                raise OSError(broken)
            print(json.dumps({"sha256": digest(volume, *json.loads(line))}), flush=True)
        except (OSError, MemoryError, ValueError, SystemError) as reason:
            print(json.dumps({"refused": str(reason)}), flush=True)


if __name__ == "__main__":
    main()
