"""Random command lines of the default mode, each with the files and the standard input that it meets.

A case follows from a seed and a number alone, on every machine: only `random()` is used, whose sequence the library
promises to keep. Most cases are sensible; the others have a slip, an odd number, a missing value or a damaged source.
"""

import dataclasses
import random

HOME = "/mnt/c/w"

VOLUME_START = 64 * 512
IN_THREE = 128 * 512
RICH = ["small.txt", "small.txt:named", "Folder/stored.bin", "linked.bin", "Folder/STORED~1.BIN", "fragments.bin",
        "list inside.bin", "list outside.bin", "many/file 3 of forty.txt", "many/gone.txt", "Folder", "many"]
EVERYTHING = RICH + ["everything", "compressed.txt", "junction/stored.bin", "loop/x", "link", "link:named",
                     "everything:$TXF_DATA", "junction", "compressed.txt:none"]
PLAIN = ["a.txt", "a.txt:Note", "Windows/notepad.exe", "windows/NOTEPAD.EXE", "empty.txt", "undated.txt", "packed.txt",
         "packed.txt:WofCompressedData", "deleted.txt", "Windows"]
SMALL = ["small.txt", "small.txt:named", "stored.bin", "sparse.bin"]
SYSTEM = ["$MFT", "$Bitmap", "$Secure:$SDS", "$MFT:$BITMAP", ".", "", "no such file", "no/such/path", "a.txt:none"]
# What lies on a source, and the offsets of its NTFS volumes.
VOLUMES = {"plain.vol": PLAIN, "rich.vol": EVERYTHING, "small.vol": SMALL, "clusters_of_4096.vol": RICH,
           "records_of_4096.vol": RICH, "sectors_of_4096.vol": RICH, "clusters_of_1536.vol": RICH,
           "clusters_of_4608.vol": RICH}
DISKS = {"mbr.dd": EVERYTHING, "three.dd": PLAIN + EVERYTHING, "gpt.dd": EVERYTHING, "extended.dd": PLAIN,
         "headless.dd": PLAIN, "cut.dd": PLAIN, "fat.dd": PLAIN, "no_table.dd": PLAIN, "zeros.dd": PLAIN,
         "empty.dd": PLAIN}
CHAINS = [["single.vmdk"], ["base.vmdk", "snap.vmdk"], ["snap.vmdk", "base.vmdk"],
          ["top.vmdk", "base.vmdk", "middle.vmdk", "snap.vmdk"], ["base.vmdk", "snap.vmdk", "middle.vmdk"]]
BROKEN_CHAINS = [["base.vmdk"], ["snap.vmdk"], ["top.vmdk", "base.vmdk"], ["base.vmdk", "stranger.vmdk"],
                 ["self.vmdk"], ["orphan.vmdk"], ["zeros.vmdk"], ["short.vmdk"], ["far.vmdk"], ["big.vmdk"],
                 ["single.vmdk", "single.vmdk"], ["plain.vol"], ["none.vmdk"], [""], ["base.vmdk", "none.vmdk"]]

DESTINATIONS = ["out.bin"] * 8 + [
    "sub/out.bin", "sub/", "./sub/", "new/folder/out.bin", "new/folder/", "taken.bin", "sub", "./out.bin", "../out.bin",
    HOME + "/out.bin", "a?b:c", "", "link_to_taken", "link_to_nothing", "locked.bin", "locked/out.bin", "%DIR%/out.bin",
    "sub/..", "fifo.txt/out", "out.bin.meta.txt"]
NUMBERS = ["0", "1", "2", "5", "0x10", "x18", "o30", "24", "25", "26", "30", "-1", "abc", "", "0x7fffffff", 
           "4294967296", "99999999999999999999", "15", "1e3", "0xg"]
LOGS = ["run.log"] * 6 + ["sub/run.log", "none/run.log", "taken.bin", "", "out.bin", "../run.log", "sub"]
FILTERS = ["*.txt", "file*", "*o*", "small.txt", "*.txt|*.bin", "*.exe,*.txt", "/Folder", "", "*", "*.*", "|"]
SIGNATURES = ["61", "6162", "61|0", "62|1", "zz", "", "4d5a|0"]
DATES = ["2020-01-01", "2030/12/31 23:59:59", "1999-02-30", "yesterday", "", "2020-01-01 10:00"]
PATTERNS = ["yyyy-mm-dd", "dd/mm/yyyy", "mm/dd/yy", "YYYY-MM-DD", "mmm", "", "yy"]
IGNORED = [["-csv"], ["-xml"], ["-bodyfile"], ["-csv_separator", "|"], ["-gzip"], ["-threads", "4"], ["-base10"],
           ["-base16"], ["-hostname", "h"], ["-username", "u"], ["-outdir", "d"], ["-cpu"], ["-verbose"], ["-l2"],
           ["-l3"], ["-timeformat", "hh:mm:ss"], ["-timeformat", "x"], ["-pair_datetime"], ["-signal", "s"],
           ["-append"],
           ["-no_whitespace"], ["-alias", "a"]]
FOR_ROOT = {"-mft", "-cluster", "-raw", "-skip_sparse_clusters", "-partition", "-drivenum", "-first_ntfsvol"}
UNKNOWN = ["-unknown", "stray", "--image", "-imgae", "-sorce", "out.bin", "/a.txt", "-help", "taken.bin", "-src=/a.txt"]


@dataclasses.dataclass
class Case:
    name: str
    as_root: bool
    words: list
    sources: list
    damage: list        # (source, what, place in 0..1, value): done in this order
    standard_input: bytes
    joined: bool        # both streams in one pipe


class Dice:
    def __init__(self, text):
        self._random = random.Random(text).random

    def below(self, limit):
        return int(self._random() * limit)

    def chance(self, percent):
        return self._random() * 100 < percent

    def pick(self, things):
        return things[self.below(len(things))]

    def fraction(self):
        return self._random()

    def shuffled(self, things):
        return [thing for _, thing in sorted(((self._random(), i), thing) for i, thing in enumerate(things))]


def spelled_offset(dice, offset):
    return dice.pick([f"0x{offset:x}", f"x{offset:X}", f"{offset}", f"o{offset:o}", f"0X{offset:x}"])


def offset_words(dice, offsets):
    if dice.chance(80) and offsets:
        words = ["-offset", spelled_offset(dice, dice.pick(offsets))]
    elif dice.chance(50):
        words = ["-offset", dice.pick(NUMBERS + ["0x80000000", "0x100008000", "-32768", "32769", "0x200"])]
    else:
        words = []
    return words


def choose_source(dice):
    """The groups of words that name a source, the files that it needs, the paths that may be on it."""
    kind = dice.below(100)
    if kind < 35:
        name = dice.pick(list(VOLUMES))
        offset = offset_words(dice, []) if dice.chance(10) else []
        return [["-image", name], offset], [name], VOLUMES[name]
    if kind < 65:
        name = dice.pick(list(DISKS))
        # The second volume of "three.dd" begins where the first ends, 73,728 bytes later.
        offsets = [IN_THREE, IN_THREE + 73728] if name == "three.dd" else [VOLUME_START]
        return [["-image", name], offset_words(dice, offsets)], [name], DISKS[name]
    if kind < 88:
        chain = dice.pick(CHAINS if dice.chance(65) else BROKEN_CHAINS)
        offset = offset_words(dice, [VOLUME_START]) if dice.chance(40) else []
        if dice.chance(25):
            groups = [["-vmdk", name] for name in chain]
        else:
            groups = [["-vmdk", dice.pick(["|", " | ", ",", ";", " ;"]).join(chain)]]
        return groups + [offset], chain, PLAIN
    if kind < 93:
        name = dice.pick(list(VOLUMES))
        return [["-partition", dice.pick([name, f"{HOME}/{name}", "/dev/none"])]], [name], VOLUMES[name]
    if kind < 95:
        return [["-drivenum", dice.pick(NUMBERS + ["19", "25"])]], [], PLAIN
    if kind < 97:
        return [["-image", dice.pick(["none.dd", "", "sub", "/none/x.dd"])]], [], PLAIN
    names = [dice.pick(list(VOLUMES)), dice.pick(list(DISKS))]
    return [["-image", names[0]], ["-image", names[1]]], names, VOLUMES[names[0]]


def choose_path(dice, paths):
    path = dice.pick(paths if dice.chance(85) else SYSTEM)
    if dice.chance(12):
        path = path.upper()
    if dice.chance(5):
        path = path.replace("/", "//") + dice.pick(["/", "\\", ":", "/.", ":$DATA", "::$DATA"])
    path = dice.pick(["/"] * 12 + ["", "\\", "C:\\", "c:/", "\\\\?\\C:\\", "\\\\.\\", "/./", "../", "//",
                                   "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1\\", "%ROOT%/"]) + path
    return path.replace("/", "\\") if dice.chance(10) else path


def list_of_paths(dice, paths):
    lines = []
    for _ in range(dice.below(7)):
        line = choose_path(dice, paths).encode()
        if dice.chance(8):
            line = dice.pick([b"", b"\xff\xfe", b"x" * 5000, line + b"\0hidden", b" " + line, line + b"\t",
                              b"/\xc3\xa9"])
        lines.append(line)
    text = dice.pick([b"\n", b"\n", b"\n", b"\r\n"]).join(lines)
    return text + (b"\n" if dice.chance(80) else b"")


def choose_request(dice, paths):
    """The groups that say what is copied, and standard input."""
    kind = dice.below(100)
    target = ["-dst", dice.pick(DESTINATIONS)]
    if kind < 52:
        return [["-src", choose_path(dice, paths)], target], b""
    if kind < 64:
        source = [["-src", choose_path(dice, paths)]] if dice.chance(30) else []
        return [["-mft", dice.pick(NUMBERS)], target] + source, b""
    if kind < 72:
        count = [dice.pick(NUMBERS)] if dice.chance(60) else []
        return [["-cluster", dice.pick(NUMBERS)] + count, target], b""
    if kind < 84:
        target = ["-dst", dice.pick(["sub/"] * 4 + ["new/", "./", "sub", "out.bin", "", HOME + "/"])]
        return [["-pipe"], target], list_of_paths(dice, paths)
    if kind < 90:
        words = [["-enumdir", dice.pick(["Folder", "Windows", "Folder/", ".", "none", "", HOME + "/Folder"])],
                 ["-dst", dice.pick(["sub/", "sub/", "new/"])]]
        return words + ([["-num_subdirs", dice.pick(NUMBERS)]] if dice.chance(60) else []), b""
    # Words without options, which stay together.
    return [[choose_path(dice, paths), target[1]]], b""


def choose_modes(dice):
    groups = []
    for percent, word in ((25, "-meta"), (18, "-md5"), (12, "-raw"), (12, "-skip_sparse_clusters"), (10, "-quiet"),
                          (8, "-first_ntfsvol"), (6, "-ignore_image_size"), (2, "-profile"), (1, "-h")):
        if dice.chance(percent):
            groups.append([word])
    for percent, option, values in ((45, "-diags", LOGS), (5, "-out", LOGS), (2, "-outfile", LOGS),
                                    (10, "-filter", FILTERS), (3, "-filter_skip", FILTERS),
                                    (2, "-filter_path", FILTERS), (4, "-filter_sig", SIGNATURES),
                                    (4, "-cmd_start_time", DATES), (4, "-cmd_stop_time", DATES),
                                    (8, "-dateformat", PATTERNS)):
        if dice.chance(percent):
            groups.append([option, dice.pick(values)])
    if dice.chance(10):
        groups.append(dice.pick(IGNORED))
    return groups


def with_slip(dice, words, sources):
    """One mistake of those that people make."""
    words = list(words)
    at = dice.below(len(words)) if words else 0
    slip = dice.below(8)
    if not words or slip == 0:
        words.insert(at, dice.pick(UNKNOWN))
    elif slip == 1:
        del words[at]
    elif slip == 2:
        words.append(words[at])
    elif slip == 3:
        words = words[:at]
    elif slip == 4:
        words[at] = words[at][:-1]
    elif slip == 5:
        words[at] = "-" + words[at]
    elif slip == 6 and sources:
        # A source in the place of another value.
        words[at] = dice.pick(["", "./", HOME + "/"]) + dice.pick(sources)
    elif at + 1 < len(words):
        words[at:at + 2] = [words[at] + "=" + words[at + 1]] if slip == 7 else [words[at + 1], words[at]]
    return words


def choose_damage(dice, sources):
    damage = []
    for _ in range(1 + dice.below(6)):
        what = dice.pick(["word", "word", "bit", "bit", "byte", "cut" if dice.chance(25) else "bit"])
        value = dice.pick([0, 0xFFFFFFFF, 0x7FFFFFFF, 0x80000001, 1, dice.below(1 << 32)])
        damage.append((dice.pick(sources), what, dice.fraction(), value))
    return damage


def make_case(seed, number):
    dice = Dice(f"{seed}:{number}")
    source_groups, sources, paths = choose_source(dice)
    request_groups, standard_input = choose_request(dice, paths)
    groups = [group for group in source_groups + request_groups + choose_modes(dice) if group]
    if dice.chance(60):
        groups = dice.shuffled(groups)
    words = [word for group in groups for word in group]
    if dice.chance(10):
        words = [word.upper() if word.startswith("-") else word for word in words]
    for _ in range(1 + dice.below(2) if dice.chance(20) else 0):
        words = with_slip(dice, words, sources)
    damage = choose_damage(dice, sources) if sources and dice.chance(30) else []
    as_root = dice.chance(85 if FOR_ROOT.intersection(words) else 25)
    return Case(f"{seed}:{number}", as_root, words, sources, damage, standard_input, dice.chance(15))
