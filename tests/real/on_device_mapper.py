"""`-exact` on a device of which a sector cannot be read, as the device mapper makes one.

Many kernels of containers and small virtual machines have no device mapper, so scripts/full.sh runs this.
"""

import os

# pylint: disable=unused-import  (fixtures)
from test_exact_devices import SIZE, contents, exact, volume  # noqa: F401
from test_partition_devices import loop_device
from volumes import need_tools, run_tool


def test_sectors_that_fail_fail_the_copy_or_are_zeros_if_asked(volume, contents, exact, scratch):
    need_tools("dmsetup")
    place = volume.image.read_bytes().index(contents["one.bin"][:4096]) + 4096 + 512
    with loop_device(volume.image) as device:
        bad, sectors = place // 512, SIZE // 512
        table = f"0 {bad} linear {device} 0\n{bad} 1 error\n{bad + 1} {sectors - bad - 1} linear {device} {bad + 1}\n"
        name = f"quarry-test-{os.getpid()}"
        run_tool("dmsetup", "create", "--readonly", name, input=table.encode())
        try:
            source = f"/dev/mapper/{name}"
            result = exact.run(source, "-src", "/one.bin")
            assert result.status == 1 and "Input/output error, at stream byte 0x1200 " in result.lines[-1], result.lines
            assert result.lines[-1].endswith(f"(source byte 0x{place:X})"), result.lines
            assert exact.whole(source, "-src", "/two.txt") == contents["two.txt"]
            result = exact.run(source, "-src", "/one.bin", "-zero_unreadable")
            expected = bytearray(contents["one.bin"])
            expected[0x1200:0x1400] = bytes(512)
            assert result.status == 4 and result.content == bytes(expected), result.lines
            assert any(line.endswith(": 512 bytes at 0x1200 are zeros") for line in result.lines), result.lines
        finally:
            run_tool("dmsetup", "remove", name)
