"""How the cost of a copy grows with what is copied: one plot for each kind of growth."""

import pathlib
import shlex
import statistics

import volumes as v
from volumes import GIB, MIB

PLOTS = pathlib.Path(__file__).with_name("plots")


def seconds(cases, command, runs=3):
    cases.bench.run_once(command)
    return statistics.median(cases.bench.run_once(command)[0] for _ in range(runs))


def over_file_size(cases):
    """Whole copies of a contiguous file."""
    points = []
    for mebibytes in (1, 16, 64, 256, 512, 1024, 2048):
        size = mebibytes * MIB // min(cases.scale, mebibytes)
        image, _ = cases.volumes.get("growth", size + size // 8 + 64 * MIB, 4096, v.fill_contiguous(size))
        points.append((size / MIB, seconds(cases, f"{cases.quarry} -image {image} -src /big.bin -dst copy -quiet")))
        cases.volumes.drop("growth")
    return "file size in MiB", points


def over_fragments(cases):
    """Copies of files of one-cluster runs."""
    points = []
    for count in (1000, 10_000, 100_000, 250_000, 500_000, 1_000_000):
        count //= cases.scale
        image, _ = cases.volumes.written("runs", count)
        points.append((count, seconds(cases, f"{cases.quarry} -image {image} -src /runs.bin -dst copy -quiet")))
    return "runs of one cluster of 512 bytes", points


def over_directory_size(cases):
    """The first look-up of a path in a directory."""
    points = []
    for count in (100, 1000, 10_000, 50_000, 100_000):
        count //= cases.scale
        name = "directory" if count == 100_000 else f"directory{count}"
        image, _ = cases.volumes.get(name, 1 * GIB, 4096, v.fill_directory(count))
        path = f"/many/file{count - 1:06d}.txt"
        points.append((count, seconds(cases, f"{cases.quarry} -image {image} -src {path} -dst copy -quiet")))
    return "files in the directory", points


def over_pipe_lines(cases):
    """Runs of many paths in a directory of 100,000 files."""
    count = 100_000 // cases.scale
    image, _ = cases.volumes.get("directory", 1 * GIB, 4096, v.fill_directory(count))
    paths = cases.volumes.directory / "paths"
    points = []
    for lines in (1, 1000, 5000, 10_000, 20_000, 50_000):
        lines = max(1, lines // cases.scale)
        paths.write_text("".join(f"/many/file{n:06d}.txt\n" for n in range(lines)), encoding="utf-8")
        points.append((lines, seconds(cases, f"{cases.quarry} -image {image} -pipe -dst ./ -quiet < {paths}")))
    return "paths in one run", points


def over_names(cases):
    """Listings of directories with -exact."""
    points = []
    for count in (1000, 10_000, 100_000, 250_000, 500_000, 1_000_000):
        count = max(1, count // cases.scale)
        image, _ = cases.volumes.written("names", count)
        points.append((count, seconds(cases, f"{cases.quarry} -exact -image {image} -list / -recurse > copy")))
    return "names in the directory", points


def over_chain_length(cases):
    """The same 512 MiB through chains of virtual disks."""
    size = 512 * MIB // cases.scale
    image, _ = cases.volumes.get("md5", size + 256 * MIB, 4096, v.fill_contiguous(size))
    points = []
    for files in (1, 2, 3, 6, 9, 12):
        listed = shlex.quote("|".join(map(str, cases.volumes.chain(image, files))))
        points.append((files, seconds(cases, f"{cases.quarry} -vmdk {listed} -src /big.bin -dst copy -quiet")))
        if files != 12:
            cases.volumes.drop(f"chain{files}")
    return "virtual disk files in the chain", points


GROWTHS = {"file_size": over_file_size, "fragments": over_fragments, "directory_size": over_directory_size,
           "pipe_lines": over_pipe_lines, "names": over_names, "chain_length": over_chain_length}


def draw(cases):
    import matplotlib
    matplotlib.use("svg")
    # The same figures give the same file.
    matplotlib.rcParams["svg.hashsalt"] = "quarry"
    from matplotlib import pyplot
    PLOTS.mkdir(exist_ok=True)
    for name, measure in GROWTHS.items():
        label, points = measure(cases)
        for x, y in points:
            print(f"{name} {x:g} {y:.4f} s", flush=True)
        figure, axes = pyplot.subplots(figsize=(6, 3.5))
        axes.plot([x for x, _ in points], [y for _, y in points], marker="o")
        axes.set(xlabel=label, ylabel="seconds", title=measure.__doc__.rstrip("."), xlim=(0, None), ylim=(0, None))
        axes.grid(alpha=0.3)
        figure.tight_layout()
        figure.savefig(PLOTS / f"{name}.svg", metadata={"Date": None})
        pyplot.close(figure)
