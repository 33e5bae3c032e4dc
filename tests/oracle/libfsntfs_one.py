"""One stream by libfsntfs into a file. Usage: libfsntfs_one.py IMAGE ENTRY-or-PATH STREAM COPY"""

import sys

import pyfsntfs

from libfsntfs_reader import PART, named

image, which, name, copy = sys.argv[1:]
volume = pyfsntfs.volume()
try:
    volume.open(image)
    file = volume.get_file_entry(int(which)) if which.isdigit() else volume.get_file_entry_by_path(which)
    if file is None:
        raise OSError("no such name")
    stream = named(file, name)
    left = stream.get_size()
    with open(copy, "wb") as out:
        stream.seek(0)
        while left:
            part = stream.read(min(left, PART))
            if not part:
                raise OSError("ends early")
            out.write(part)
            left -= len(part)
except (OSError, MemoryError) as reason:
    sys.exit(str(reason))
