"""Names in every script, long and short, and what counts as the same name."""

import pytest

from volumes import pattern

NAMES = (
    "plain.txt",
    "with blanks and  two of them.txt",
    "üñïçødé.txt",
    "ελληνικά.txt",
    "кириллица.txt",
    "עברית.txt",
    "العربية.txt",
    "ไทย.txt",
    "한국어.txt",
    "中文名称.txt",
    "日本語のファイル.txt",
    "e\u0301 decomposed.txt",
    "emoji 🏔️⛏️ and 𝔣𝔯𝔞𝔨𝔱𝔲𝔯.txt",
    "👩‍👩‍👧‍👦",
    "many.dots.in.a.name.",
    "-src",
    "100%",
    "$notasystemfile",
    "(brackets) [and] {more} & 'quotes' ^ ~ # @ ! ; , = +",
    "x" * 255,
    "ü" * 255,
    "🏔" * 127,
)


@pytest.fixture(scope="module")
def named_contents():
    return {name: pattern(200 + index, name) for index, name in enumerate(NAMES)}


def test_each_name_leads_to_its_file(make_volume, quarry, named_contents):
    volume = make_volume()
    with volume.mounted() as root:
        for name, content in named_contents.items():
            (root / name).write_bytes(content)
    for name, content in named_contents.items():
        assert quarry.read(volume, "/" + name) == content, name


def test_each_name_works_as_a_directory_too(make_volume, quarry, named_contents):
    volume = make_volume()
    with volume.mounted() as root:
        for name, content in named_contents.items():
            (root / name).mkdir()
            (root / name / "inside.bin").write_bytes(content)
    for name, content in named_contents.items():
        assert quarry.read(volume, f"/{name}/inside.bin") == content, name


def test_streams_have_names_in_every_script_too(make_volume, quarry):
    volume = make_volume()
    streams = {"Zone.Identifier": b"zone", "потік": b"cyrillic", "流れ": b"japanese", "🏔️": b"emoji"}
    with volume.mounted() as root:
        (root / "file").write_bytes(b"unnamed")
        for name, content in streams.items():
            with open(f"{root}/file:{name}", "wb") as stream:
                stream.write(content)
    for name, content in streams.items():
        assert quarry.read(volume, f"/file:{name}") == content, name
    assert quarry.read(volume, "/file") == b"unnamed"


def test_letter_case_matters_only_beyond_ascii(make_volume, quarry):
    volume = make_volume()
    with volume.mounted() as root:
        (root / "Folder").mkdir()
        (root / "Folder" / "MiXeD.TxT").write_bytes(b"mixed")
        (root / "Folder" / "größe").write_bytes(b"accented")
    assert quarry.read(volume, "/fOLDER/mixed.txt") == b"mixed"
    assert quarry.read(volume, "/FOLDER/GRößE") == b"accented"
    assert quarry.run("-image", volume.image, "-src", "/Folder/GRÖßE").status == 255


def test_both_separators_and_a_drive_letter(make_volume, quarry):
    volume = make_volume()
    with volume.mounted() as root:
        (root / "a" / "b").mkdir(parents=True)
        (root / "a" / "b" / "c").write_bytes(b"found")
    for path in ("/a/b/c", "\\a\\b\\c", "a/b/c", "c:\\a\\b\\c", "Q:/a/b/c", "//a///b//c"):
        assert quarry.read(volume, path) == b"found", path
    assert quarry.run("-image", volume.image, "-src", "/a\\b/c").status == 255


def test_a_deep_path(make_volume, quarry):
    volume = make_volume()
    names = [f"level {i:02d}" for i in range(60)]
    with volume.mounted() as root:
        folder = root.joinpath(*names)
        folder.mkdir(parents=True)
        (folder / "bottom").write_bytes(b"at the bottom")
    assert quarry.read(volume, "/" + "/".join(names) + "/bottom") == b"at the bottom"


def test_three_thousand_files_in_one_directory(make_volume, quarry):
    volume = make_volume()
    with volume.mounted() as root:
        (root / "many").mkdir()
        for index in range(3000):
            (root / "many" / f"file {index:04d} of three thousand.txt").write_bytes(b"content %d" % index)
        entries = {index: (root / "many" / f"file {index:04d} of three thousand.txt").stat().st_ino
                   for index in (0, 1, 2999)}
    for index in (0, 1, 2, 39, 40, 41, 500, 1000, 1499, 1500, 2047, 2048, 2500, 2998, 2999):
        path = f"/many/file {index:04d} of three thousand.txt"
        assert quarry.read(volume, path) == b"content %d" % index, path
    for index, entry in entries.items():
        assert quarry.read_entry(volume, entry) == b"content %d" % index
    assert quarry.run("-image", volume.image, "-src", "/many/file 3000 of three thousand.txt").status == 255
