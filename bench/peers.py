"""Times the numpy/scipy equivalents of the tarv_bench rows on the volumes that
`tarv_bench --write-volumes DIR` wrote, and prints {row: median seconds} as JSON.

Run with Debian's interpreter (/usr/bin/python3), which has numpy and scipy. Processor time, median
of the repetitions, single thread (numpy and scipy.ndimage run these on one thread).
"""

import json
import os
import statistics
import sys
import time

os.environ.setdefault("OMP_NUM_THREADS", "1")
os.environ.setdefault("OPENBLAS_NUM_THREADS", "1")

import numpy as np  # noqa: E402
from scipy import ndimage as ndi  # noqa: E402


def timed(f, repetitions):
    times = []
    for _ in range(repetitions):
        start = time.process_time()
        f()
        times.append(time.process_time() - start)
    return statistics.median(times)


def main(directory):
    n = 256
    float256 = np.fromfile(os.path.join(directory, "float256.raw"), dtype=np.float32).reshape(n, n, n)
    results = {}

    results["full_read"] = timed(lambda: np.add.reduce(float256, axis=None, dtype=np.float64), 3)

    float512 = np.fromfile(os.path.join(directory, "float512.raw"), dtype=np.float32).reshape(512, 512, 512)
    results["convert_part"] = timed(lambda: float512.astype(np.int16), 1)
    del float512

    b = np.array([1.0, 4.0, 6.0, 4.0, 1.0]) / 16.0
    weights = b[:, None, None] * b[None, :, None] * b[None, None, :]
    results["smooth_full"] = timed(lambda: ndi.correlate(float256, weights, mode="constant"), 3)

    def separable():
        out = ndi.correlate1d(float256, b, axis=0, mode="constant")
        out = ndi.correlate1d(out, b, axis=1, mode="constant")
        return ndi.correlate1d(out, b, axis=2, mode="constant")

    results["smooth_separable"] = timed(separable, 3)

    d = np.array([-0.5, 0.0, 0.5])
    s = np.array([0.18296875, 0.6340625, 0.18296875])
    masks = [
        s[:, None, None] * s[None, :, None] * d[None, None, :],  # x (last numpy axis)
        s[:, None, None] * d[None, :, None] * s[None, None, :],  # y
        d[:, None, None] * s[None, :, None] * s[None, None, :],  # z
    ]

    def gradients():
        g = [ndi.correlate(float256, m, mode="constant") for m in masks]
        return np.sqrt(g[0] * g[0] + g[1] * g[1] + g[2] * g[2])

    results["gradients"] = timed(gradients, 3)

    path = os.path.join(directory, "tarv_bench_chain.tarv1")

    def chain():
        samples = np.fromfile(path, dtype="<u2", offset=2048)
        v = samples / 4.0 - 100.0
        v = v * 0.5 + 10.0
        v = np.where((v >= 20.0) & (v <= 400.0), v, 0.0)
        v = np.where(v < 100.0, v, np.where(v <= 300.0, 100.0, 400.0 - v))
        return v.astype(np.float32)

    results["tarv1_chain"] = timed(chain, 3)

    a = np.fromfile(os.path.join(directory, "blobA.raw"), dtype=np.uint8).reshape(n, n, n) != 0
    bb = np.fromfile(os.path.join(directory, "blobB.raw"), dtype=np.uint8).reshape(n, n, n) != 0

    def distances():
        dta = ndi.distance_transform_edt(~a)
        dtb = ndi.distance_transform_edt(~bb)
        hausdorff = max(dtb[a].max(), dta[bb].max())
        border_a = a & ~ndi.binary_erosion(a, border_value=0)
        border_b = bb & ~ndi.binary_erosion(bb, border_value=0)
        dba = ndi.distance_transform_edt(~border_a)
        dbb = ndi.distance_transform_edt(~border_b)
        average = (dbb[border_a].sum() + dba[border_b].sum()) / (border_a.sum() + border_b.sum())
        return hausdorff, average

    results["distances"] = timed(distances, 1)

    mask = np.fromfile(os.path.join(directory, "mask256.raw"), dtype=np.uint8).reshape(n, n, n)

    def remove_small():
        m = mask.copy()
        labels, _ = ndi.label(m)
        counts = np.bincount(labels.ravel())
        small = counts < 10
        small[0] = False
        m[small[labels]] = 0
        return m

    results["remove_small"] = timed(remove_small, 3)
    json.dump(results, sys.stdout, indent=1)
    print()


if __name__ == "__main__":
    main(sys.argv[1])
