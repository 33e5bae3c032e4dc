"""The listings of `-exact`: every name of real volumes, compared with a mount and with the sleuthkit."""

import os
import re
import subprocess

from test_exact_streams import NAMES
from test_links import SYMBOLIC_LINK, reparse_data, set_reparse
from volumes import TIME_LIMIT, need_tools, run_tool

# mkntfs leaves these entries not in use, with attributes and without a name.
RESERVED_ENTRIES = {str(entry) for entry in range(16, 24)}


def listing(quarry, volume, *arguments, status=0):
    """The lines of a listing, each as its five fields."""
    done = subprocess.run([quarry.program, "-exact", "-image", str(volume.image), "-list", *arguments],
                          capture_output=True, timeout=TIME_LIMIT, check=False)
    assert done.returncode == status, (done.returncode, done.stderr[-2000:])
    text = done.stdout.decode()
    assert text == "" or text.endswith("\n")
    lines = [tuple(line.split("\t")) for line in text.split("\n")[:-1]]
    assert all(len(line) == 5 for line in lines)
    return lines


def canonical(name):
    """A name of the driver, in bytes, as the listing writes it."""
    units = name.decode("utf-8", errors="surrogatepass")
    shown = ""
    for letter in units:
        if letter in "\\:":
            shown += "\\" + letter
        elif ord(letter) < 0x20 or 0x7F <= ord(letter) <= 0x9F or 0xD800 <= ord(letter) <= 0xDFFF:
            shown += f"\\u{ord(letter):04X}"
        else:
            shown += letter
    return shown


def found(mount):
    """What find sees below a mount: entry, kind, size, time and path of each name."""
    out = subprocess.run(["find", str(mount), "-mindepth", "1", "-printf", r"%i\t%y\t%s\t%TY-%Tm-%TdT%TH:%TM:%TS\t%P\0"],
                         capture_output=True, check=True, env=dict(os.environ, TZ="UTC", LC_ALL="C.UTF-8")).stdout
    names = set()
    for line in out.split(b"\0")[:-1]:
        entry, kind, size, time, path = line.split(b"\t", 4)
        shown = "/" + "/".join(canonical(name) for name in path.split(b"/"))
        # A directory has no bytes of its own here, and find counts two decimals more.
        names.add((entry.decode(), kind.decode(), "0" if kind == b"d" else size.decode(), time.decode()[:27] + "Z", shown))
    return names


def fill(mount):
    """Names of all kinds in a tree, links, named streams, a directory of many names."""
    for part in ("", "tree", "tree/below", "tree/below/deep", "emptied"):
        (mount / part).mkdir(exist_ok=True)
    for number, (name, _) in enumerate(NAMES):
        name = os.fsencode(name)
        for part in (b"", b"tree/below/deep"):
            with open(os.path.join(os.fsencode(mount), part, name), "wb") as out:
                out.write(b"x" * (number * 100))
    for number in range(3000):
        (mount / "tree" / "below" / f"file {number:05}").write_bytes(b"y" * (number % 50))
    (mount / "tree" / "streams.txt").write_bytes(b"main")
    (mount / "tree" / "streams.txt:first").write_bytes(b"12345")
    (mount / "tree" / "streams.txt:second one").write_bytes(b"z" * 5000)
    (mount / "tree" / "below:of a directory").write_bytes(b"123")
    os.link(mount / "tree" / "streams.txt", mount / "tree" / "below" / "second name")


def test_has_every_name_of_a_mount_and_no_other(quarry, make_volume):
    volume = make_volume(cluster=512)
    with volume.mounted():
        fill(volume.mount_point)
    # Mounted again, so that the times are those on the disk.
    with volume.mounted("ro", "show_sys_files"):
        expected = found(volume.mount_point)
    lines = listing(quarry, volume, "/", "-recurse")
    listed = {(line[0].split("-")[0], line[1], line[2], line[3], line[4]) for line in lines if line[1] != "s"}
    assert len(listed) == len([line for line in lines if line[1] != "s"])

    # The driver shows what has no unnamed data with a size or a time of its own making.
    def plain(names):
        return {name for name in names if not name[4].startswith("/$")}

    def paths(names):
        return {(name[0], name[1] if not name[4].startswith("/$") else "", name[4]) for name in names}

    # A directory of the host cannot show entry 0.
    assert paths(listed) == paths(expected) | {("0", "", "/$MFT")}
    assert plain(listed) == plain(expected)
    assert len(plain(listed)) > 3000
    streams = {(line[2], line[4]) for line in lines if line[1] == "s" and not line[4].startswith("/$")}
    assert streams == {("5", "/tree/streams.txt:first"), ("5000", "/tree/streams.txt:second one"),
                       ("5", "/tree/below/second name:first"), ("5000", "/tree/below/second name:second one"),
                       ("3", "/tree/below:of a directory")}


def test_of_each_directory_alone_is_that_part_of_the_tree(quarry, make_volume):
    volume = make_volume()
    with volume.mounted():
        fill(volume.mount_point)
    tree = listing(quarry, volume, "/", "-recurse")
    for directory in ("/tree", "/tree/below", "/tree/below/deep", "/emptied"):
        below = [line for line in tree if re.match(re.escape(directory) + "[/:]", line[4])]
        assert listing(quarry, volume, directory, "-recurse") == below
        alone = [line for line in below if "/" not in line[4][len(directory) + 1:]]
        assert listing(quarry, volume, directory) == alone
    assert listing(quarry, volume, "/tree/streams.txt") == [line for line in tree if
                                                            line[4].startswith("/tree/streams.txt")]


def test_has_the_names_of_links_and_does_not_follow_them(quarry, make_volume):
    volume = make_volume()
    with volume.mounted():
        mount = volume.mount_point
        (mount / "target").mkdir()
        (mount / "target" / "file").write_bytes(b"1")
        (mount / "link").mkdir()
        set_reparse(mount / "link", reparse_data(SYMBOLIC_LINK, "\\target", "\\target"))
    lines = {(line[1], line[4]) for line in listing(quarry, volume, "/", "-recurse") if "/$" not in line[4]}
    assert lines == {("l", "/link"), ("d", "/target"), ("f", "/target/file")}


def sleuthkit(volume, *options):
    """What fls lists: entry, whether it is deleted, and path, of names that it did not make up itself."""
    need_tools("fls")
    names = set()
    for line in run_tool("fls", "-p", *options, volume.image).decode().splitlines():
        entry, deleted, name = re.fullmatch(r"[-a-zV]/[-a-zV] (\* )?(\d+)[^:\t]*:\t(.*)", line).group(2, 1, 3)
        if not name.startswith("$OrphanFiles"):
            names.add((entry, bool(deleted), "/" + name))
    return names


def test_agrees_with_the_sleuthkit(quarry, make_volume):
    volume = make_volume()
    with volume.mounted():
        mount = volume.mount_point
        for number in range(500):
            directory = mount / f"directory {number % 7}"
            directory.mkdir(exist_ok=True)
            (directory / f"file {number}").write_bytes(b"x" * number)
            (directory / f"file {number}:stream").write_bytes(b"s")
    listed = {(line[0].split("-")[0], False, line[4]) for line in listing(quarry, volume, "/", "-recurse")}
    theirs = sleuthkit(volume, "-r", "-u")
    # Streams that are no $DATA are not listed, and files without unnamed $DATA have a line of their own.
    assert {name for name in listed if "/$" not in name[2]} == {name for name in theirs if "/$" not in name[2]}
    assert len({name for name in listed if "/$" not in name[2]}) == 7 + 2 * 500
    assert {name[2].split(":")[0] for name in listed} == {name[2].split(":")[0] for name in theirs}


def test_of_deleted_files_agrees_with_the_sleuthkit_and_copies_them(quarry, make_volume, scratch):
    volume = make_volume()
    with volume.mounted():
        mount = volume.mount_point
        (mount / "stays").mkdir()
        (mount / "goes").mkdir()
        for number in range(60):
            (mount / "stays" / f"file {number}").write_bytes(b"%d " % number * number)
            (mount / "goes" / f"file {number}").write_bytes(b"a")
    with volume.mounted():
        for number in range(0, 60, 3):
            (mount / "stays" / f"file {number}").unlink()
        for number in range(60):
            (mount / "goes" / f"file {number}").unlink()
        (mount / "goes").rmdir()
    lines = listing(quarry, volume, "/", "-deleted")
    assert {line[0].split("-")[0] for line in lines if line[4].startswith("/?/")} <= RESERVED_ENTRIES
    lines = [line for line in lines if not line[4].startswith("/?/")]
    assert {line[4] for line in lines} == ({f"/stays/file {number}" for number in range(0, 60, 3)} | {"/goes"} |
                                           {f"/goes/file {number}" for number in range(60)})
    assert all(line[1] == ("D" if line[4] == "/goes" else "F") for line in lines)
    theirs = {entry for entry, deleted, _ in sleuthkit(volume, "-r", "-d") if deleted}
    assert theirs <= {line[0].split("-")[0] for line in lines}
    kept = next(line for line in lines if line[4] == "/stays/file 57")
    copy = quarry.run("-exact", "-image", volume.image, "-mft", kept[0], dst=scratch / "copy")
    assert copy.status in (0, 4)
    assert copy.content == b"57 " * 57
    assert len(copy.content) == int(kept[2])


def test_of_a_volume_with_a_torn_record_has_all_other_names(quarry, make_volume):
    volume = make_volume()
    with volume.mounted():
        fill(volume.mount_point)
    whole = listing(quarry, volume, "/", "-recurse")
    victim = next(line for line in whole if line[4] == "/tree/below/file 01500")
    sector, cluster, table = volume.geometry()
    # The record by its entry: the table is in one run up to here, or the signature is not where it should be.
    offset = table * cluster + int(victim[0].split("-")[0]) * 1024
    with open(volume.image, "r+b") as image:
        image.seek(offset)
        record = image.read(1024)
        assert record[:4] == b"FILE" and "file 01500".encode("utf-16-le") in record
        image.seek(offset + 510)
        image.write(bytes([record[510] ^ 1]))
    assert sector == 512
    assert listing(quarry, volume, "/", "-recurse", status=3) == [line for line in whole if line != victim]


def copied(quarry, volume, orders, target, *arguments):
    """Copies what lines of a listing name into a tree, and gives the copies by their path there."""
    target.mkdir()
    done = subprocess.run([quarry.program, "-exact", "-image", str(volume.image), "-pipe", "-tree", *arguments, "-dst",
                           f"{target}/"], input=orders.encode(), capture_output=True, timeout=TIME_LIMIT, check=False)
    return done, {str(path.relative_to(target)): path.read_bytes() for path in target.rglob("*") if path.is_file()}


def test_a_line_is_an_order_to_copy(quarry, make_volume, scratch):
    volume = make_volume()
    with volume.mounted():
        fill(volume.mount_point)
    # Of the many files a few; a name of more than 255 bytes is none on the host.
    lines = [line for line in listing(quarry, volume, "/", "-recurse")
             if line[1] in "fs" and not line[4].startswith("/$") and not re.search("file [0-9]*[1-9][0-9]$", line[4])
             and len(line[4].split("/")[-1].encode()) <= 255]
    done, copies = copied(quarry, volume, "".join("\t".join(line) + "\n" for line in lines), scratch / "all")
    assert done.returncode == 0, done.stderr[-2000:]
    assert len(copies) == len(lines)
    assert len(lines) > 2 * (len(NAMES) - 1) + 5
    assert sorted(len(content) for content in copies.values()) == sorted(int(line[2]) for line in lines)
    assert copies["tree/streams.txt"] == copies["tree/below/second name"] == b"main"
    assert copies["tree/streams.txt_first"] == copies["tree/below/second name_first"] == b"12345"


def test_a_line_of_a_deleted_file_is_an_order_to_copy(quarry, make_volume, scratch):
    volume = make_volume()
    with volume.mounted():
        for number in range(20):
            (volume.mount_point / f"file {number}").write_bytes(b"%d" % number * 50)
    with volume.mounted():
        for number in range(20):
            (volume.mount_point / f"file {number}").unlink()
    lines = [line for line in listing(quarry, volume, "/", "-deleted") if line[4].startswith("/file")]
    done, copies = copied(quarry, volume, "".join("\t".join(line) + "\n" for line in lines), scratch / "all")
    assert done.returncode in (0, 4), done.stderr[-2000:]
    assert copies == {f"file {number}": b"%d" % number * 50 for number in range(20)}
