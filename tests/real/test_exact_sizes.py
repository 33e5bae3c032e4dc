"""`-exact` on volumes of every size of sectors and of clusters that mkntfs makes, filled without a mount."""

import pytest

from test_exact_streams import Exact
from volumes import MIB, pattern

CLUSTERS = {
    256: (256, 512, 1024, 4096, 65536, 131072, 262144),
    512: (512, 1024, 2048, 4096, 8192, 16384, 32768, 65536, 131072, 262144, 524288, MIB, 2 * MIB),
    1024: (1024, 4096, 65536, 131072, 2 * MIB),
    2048: (2048, 4096, 65536, 131072, 2 * MIB),
    4096: (4096, 8192, 65536, 131072, 2 * MIB),
}


@pytest.mark.parametrize("sector, cluster", [(sector, cluster) for sector, sizes in CLUSTERS.items() for cluster in sizes])
def test_files_are_what_was_put_in(make_volume, scratch, sector, cluster):
    volume = make_volume(cluster=cluster, sector=sector, size=64 * MIB if cluster > 65536 else 16 * MIB)
    assert volume.geometry()[:2] == (sector, cluster)
    contents = {f"size{size}": pattern(size, size) for size in sorted({1, 300, cluster, cluster + 1, 3 * cluster - 5})}
    for name, content in contents.items():
        volume.put_unmounted(name, content, scratch)
    volume.put_unmounted("size1", b"beside it", scratch, "note")
    exact = Exact(scratch)
    for name, content in contents.items():
        assert exact.whole(volume.image, "-src", "/" + name.upper()) == content, name
    assert exact.whole(volume.image, "-src", "/size1:note") == b"beside it"
    # Of a few clusters each: the boot sector's, which holds the sizes above, and the whole of $MFT by its record.
    assert exact.whole(volume.image, "-cluster", 0, 2) == volume.image.read_bytes()[:2 * cluster]
    table = exact.whole(volume.image, "-mft", 0)
    assert table.startswith(b"FILE") and exact.whole(volume.image, "-src", "/$MFT") == table
