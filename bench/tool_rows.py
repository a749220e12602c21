"""The edge graph of `tarv demo` through `tarv filter` from paged TIFF, on one and two threads, with
its wall time and peak resident memory, against the same graph written with numpy/scipy in the same
run; prints {row: value} as JSON.

    tool_rows.py TARV_PROGRAM WORK_DIRECTORY

The volumes are CT-like int16 (air -1000, a body near 40 with noise, a dense core) of 256^3 and
512 x 512 x 256, written raw and converted to paged TIFF by the tool itself. The peer reads the raw
file (numpy), computes in float64 with float32 intermediates where the filters store float, and its
result is compared voxel by voxel with the tool's.
"""

import json
import os
import statistics
import subprocess
import sys
import time

os.environ.setdefault("OMP_NUM_THREADS", "1")
os.environ.setdefault("OPENBLAS_NUM_THREADS", "1")

import numpy as np  # noqa: E402
from scipy import ndimage as ndi  # noqa: E402



def ct_volume(shape, seed):
    rng = np.random.default_rng(seed)
    nz, ny, nx = shape
    z, y, x = np.ogrid[0:nz, 0:ny, 0:nx]
    r = np.sqrt(((x - nx / 2) / nx) ** 2 + ((y - ny / 2) / ny) ** 2 + ((z - nz / 2) / nz) ** 2)
    v = np.where(r < 0.4, 40.0, -1000.0) + np.where(r < 0.15, 1000.0, 0.0)
    v = v + rng.normal(0.0, 20.0, shape)
    return v.astype("<i2")


def interior(a, margin):
    """The correlation's values where the 3x3x3 mask fits; margin elsewhere."""
    out = np.full(a.shape, margin, dtype=np.float64)
    out[1:-1, 1:-1, 1:-1] = a[1:-1, 1:-1, 1:-1]
    return out


def edges(volume):
    b = np.array([1.0, 2.0, 1.0]) / 4.0
    smooth_mask = b[:, None, None] * b[None, :, None] * b[None, None, :]
    smooth = interior(ndi.correlate(volume.astype(np.float64), smooth_mask, mode="constant"), -1000.0)
    smooth = smooth.astype(np.float32).astype(np.float64)
    d = np.array([-0.5, 0.0, 0.5])
    s = np.array([0.18296875, 0.6340625, 0.18296875])
    masks = [
        s[:, None, None] * s[None, :, None] * d[None, None, :],  # x (last axis)
        s[:, None, None] * d[None, :, None] * s[None, None, :],  # y
        d[:, None, None] * s[None, :, None] * s[None, None, :],  # z
    ]
    g = [interior(ndi.correlate(smooth, m, mode="constant"), 0.0).astype(np.float32).astype(np.float64) for m in masks]
    length = np.sqrt(g[0] * g[0] + g[1] * g[1] + g[2] * g[2]).astype(np.float32)
    return (length >= 200.0).astype(np.uint8)


def run(command):
    """Wall time and peak resident memory (MB) of one run of the command, as /usr/bin/time measures
    them (the resource usage of a child of this process would count the pages it shared before exec)."""
    result = subprocess.run(["/usr/bin/time", "-f", "%e %M"] + command, stdout=subprocess.DEVNULL,
                            stderr=subprocess.PIPE, text=True)
    if result.returncode != 0:
        sys.stderr.write(result.stderr)
        raise SystemExit(f"failed: {' '.join(command)}")
    seconds, kilobytes = result.stderr.strip().splitlines()[-1].split()
    return float(seconds), float(kilobytes) / 1024.0


def main(tarv, work):
    # The demo writes its edge graph beside its results.
    demo = os.path.join(work, "demo")
    subprocess.run([tarv, "--no-progress", "demo", demo], check=True, stdout=subprocess.DEVNULL)
    graph = os.path.join(demo, "edges.graph")
    results = {}
    for name, shape in (("256", (256, 256, 256)), ("512", (256, 512, 512))):
        volume = ct_volume(shape, 3)
        raw = os.path.join(work, f"ct{name}.raw")
        tif = os.path.join(work, f"ct{name}.tif")
        volume.tofile(raw)
        nz, ny, nx = shape
        subprocess.run([tarv, "--no-progress", "convert", raw, tif, "--raw-size", f"{nx},{ny},{nz}", "--raw-type",
                        "int16"], check=True, stdout=subprocess.DEVNULL)
        results[f"edges{name}_file_MB"] = os.path.getsize(tif) / 2 ** 20
        out = os.path.join(work, f"edges{name}.tif")
        for threads in ("1", "2"):
            runs = [run([tarv, "--no-progress", "--threads", threads, "filter", graph, "-i",
                         f"0={tif}", "-o", out]) for _ in range(3)]
            results[f"edges{name}_t{threads}"] = statistics.median(r[0] for r in runs)
            results[f"edges{name}_t{threads}_MB"] = max(r[1] for r in runs)
        ours_raw = os.path.join(work, f"edges{name}.raw")
        subprocess.run([tarv, "--no-progress", "convert", out, ours_raw], check=True, stdout=subprocess.DEVNULL)
        ours = np.fromfile(ours_raw, dtype=np.uint8).reshape(shape)
        times = []
        for _ in range(1 if name == "512" else 2):
            start = time.perf_counter()
            peer = edges(np.fromfile(raw, dtype="<i2").reshape(shape))
            times.append(time.perf_counter() - start)
        results[f"edges{name}_scipy"] = statistics.median(times)
        results[f"edges{name}_differing"] = int(np.count_nonzero(ours != peer))
        for path in (raw, tif, out, ours_raw):
            os.remove(path)
    json.dump(results, sys.stdout, indent=1)
    print()


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2])
