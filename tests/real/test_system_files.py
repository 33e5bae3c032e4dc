"""The volume's own files: $MFT, $Boot, $Secure and the rest, compared with the bytes of the image itself."""

import os
import struct

from volumes import MIB, pattern


def fill(volume, files=300):
    with volume.mounted() as root:
        for index in range(files):
            (root / f"file {index}").write_bytes(pattern(50, index))
            os.chmod(root / f"file {index}", 0o400 + index % 8)


def give_mft_its_time_back(volume):
    """ntfs-3g leaves zeros for the times of $MFT, and an entry without a modification time is not copied."""
    _, cluster, lcn = volume.geometry()
    with open(volume.image, "r+b") as image:
        image.seek(lcn * cluster)
        record = image.read(1024)
        information = struct.unpack_from("<H", record, 20)[0]
        assert struct.unpack_from("<I", record, information)[0] == 0x10
        value = information + struct.unpack_from("<H", record, information + 20)[0]
        image.seek(lcn * cluster + value + 8)
        image.write(struct.pack("<Q", 133594528890000000))


def test_mft_is_copied_as_it_stands_on_the_volume(make_volume, quarry):
    volume = make_volume()
    fill(volume)
    give_mft_its_time_back(volume)
    mft = quarry.read_entry(volume, 0)
    assert mft == volume.icat("0-128")
    assert quarry.read(volume, "/$MFT") == mft
    # Entry 0 as the boot sector finds it, update sequence and all.
    _, cluster, lcn = volume.geometry()
    assert volume.image.read_bytes()[lcn * cluster:lcn * cluster + 1024] == mft[:1024]
    assert mft.count(b"FILE0") >= 300


def test_mft_without_a_modification_time_makes_no_file_and_no_failure(make_volume, quarry):
    volume = make_volume()
    fill(volume, 1)
    copy = quarry.run("-image", volume.image, "-src", "/$MFT")
    assert copy.status == 0
    assert not copy.path.exists()


def test_each_system_file_by_name_and_by_entry(make_volume, quarry):
    volume = make_volume()
    fill(volume, 5)
    for name, entry in (("$MFTMirr", 1), ("$LogFile", 2), ("$AttrDef", 4), ("$Bitmap", 6), ("$Boot", 7), ("$UpCase", 10)):
        expected = volume.icat(f"{entry}-128")
        assert len(expected) > 0, name
        assert quarry.read(volume, "/" + name) == expected, name
        assert quarry.read_entry(volume, entry) == expected, name


def test_the_bitmap_of_mft_is_a_stream_of_another_type_and_is_not_copied_for_it(make_volume, quarry):
    volume = make_volume()
    copy = quarry.run("-image", volume.image, "-src", "/$MFT:$Bitmap")
    assert copy.status == 0
    assert not copy.path.exists()


def test_security_descriptors(make_volume, quarry):
    volume = make_volume()
    fill(volume, 20)
    expected = volume.icat("9-128")
    assert len(expected) >= 262144, "both halves of $SDS"
    assert quarry.read(volume, "/$Secure:$SDS") == expected
    assert quarry.read_entry(volume, 9, "-src", "x:$SDS") == expected


def test_a_journal_like_stream_that_begins_with_a_large_hole(make_volume, quarry):
    volume = make_volume(size=64 * MIB)
    tail = pattern(2 * MIB + 512, "journal")
    with volume.mounted() as root:
        (root / "$UsnJrnl").write_bytes(b"")
        with open(f"{root}/$UsnJrnl:$J", "wb") as stream:
            stream.seek(40 * MIB)
            stream.write(tail)
        with open(f"{root}/$UsnJrnl:$Max", "wb") as stream:
            stream.write(pattern(32, "max"))
    assert quarry.read(volume, "/$UsnJrnl:$Max") == pattern(32, "max")
    assert quarry.read(volume, "/$UsnJrnl:$J") == bytes(40 * MIB) + tail
    kept = quarry.gated(volume, "/$UsnJrnl:$J", "-skip_sparse_clusters")
    assert kept[:len(tail)] == tail
    assert len(kept) == 2 * MIB + 4096
