"""Merges the Google Benchmark JSON of tarv_bench with the peer times of peers.py and the tool rows of
tool_rows.py into one table.

    table.py ours.json peers.json tools.json
"""

import json
import sys

# Reference figures for the rows whose peer is not run here (ITK), seconds, same kind of machine.
ITK = {
    "gradients": 0.56,
    "distances_128": 0.18,
    "remove_small": 0.80,
}


def load_ours(path):
    with open(path) as f:
        data = json.load(f)
    rows = {}
    for b in data["benchmarks"]:
        parts = b["run_name"].split("::")[-1].split("/")
        # Rows with an argument keep it: BM_EdgeGraphThreads/1.
        name = parts[0] + ("/" + parts[1] if len(parts) > 1 and parts[1].isdigit() else "")
        if b.get("run_type") == "aggregate" and b.get("aggregate_name") != "median":
            continue
        unit = {"ms": 1e-3, "us": 1e-6, "ns": 1e-9, "s": 1.0}[b.get("time_unit", "ns")]
        entry = rows.setdefault(name, {"times": [], "counters": {}})
        # Rows on several threads are timed by the clock on the wall (UseRealTime), the others by
        # processor time.
        key = "real_time" if name.endswith("/real_time") or "Threads" in name else "cpu_time"
        if b.get("run_type") == "aggregate":
            entry["median"] = b[key] * unit
        else:
            entry["times"].append(b[key] * unit)
        for key in ("peak_cache_MB", "file_MB", "hausdorff", "average_border", "remaining"):
            if key in b:
                entry["counters"][key] = b[key]
    for entry in rows.values():
        if "median" not in entry:
            t = sorted(entry["times"])
            entry["median"] = t[len(t) // 2]
    return rows


def main(ours_path, peers_path, tools_path, python_path=None):
    ours = load_ours(ours_path)
    with open(peers_path) as f:
        peers = json.load(f)
    with open(tools_path) as f:
        tools = json.load(f)

    def t(name):
        return ours[name]["median"]

    lines = []

    def row(work, ours_s, peer_name, peer_s, goal, met, note=""):
        ratio = f"{ours_s / peer_s:.2f}" if peer_s else "-"
        peer_text = f"{peer_s:.3f}" if peer_s else "-"
        lines.append(f"| {work} | {ours_s:.3f} | {peer_name} | {peer_text} | {ratio} | {goal} | {met}{note} |")

    voxels256 = 256 ** 3
    full = t("BM_FullReadGetElementIterator")
    rate = voxels256 / full / 1e6
    row("full read, getElement<double>(iterator), 256³ float", full, "numpy sum as float64", peers["full_read"],
        "≥ 300 Mvoxel/s", "yes" if rate >= 300 else "no", f" ({rate:.0f} Mvoxel/s)")
    copy = t("BM_CopyFrom512")
    memcpy = t("BM_Memcpy512")
    row("copyFrom into a dataset of the same shape, 512³ float", copy, "memcpy (same run)", memcpy, "≤ 1.25 × memcpy",
        "yes" if copy <= 1.25 * memcpy else "no")
    fresh = t("BM_CopyFrom512Fresh")
    row("copyFrom into an empty dataset, 512³ float", fresh, "malloc + memcpy (same run)", t("BM_MallocMemcpy512"),
        "-", "-")
    row("convertPartFrom to short, whole 512³ float", t("BM_ConvertPartFrom512"), "numpy astype(int16)",
        peers["convert_part"], "-", "-")
    smooth = t("BM_Smooth5x5x5")
    row("SmoothDataset 5×5×5, calculateFullDataset, 256³ float", smooth, "scipy correlate (full 5×5×5)",
        peers["smooth_full"], "≤ 0.33 × full", "yes" if smooth <= 0.33 * peers["smooth_full"] else "no")
    row("(same)", smooth, "scipy correlate1d ×3 (separable)", peers["smooth_separable"], "≤ 1 × separable",
        "yes" if smooth <= peers["smooth_separable"] else "no")
    grad = t("BM_Gradients3AndVectorLength")
    row("3-point gradients x, y, z + VectorLengthDataset, 256³ float", grad, "scipy correlate ×3 + sqrt",
        peers["gradients"], f"≤ ITK gradient {ITK['gradients']} s", "yes" if grad <= ITK["gradients"] else "no")
    chain = t("BM_Tarv1LazyChain")
    counters = ours["BM_Tarv1LazyChain"]["counters"]
    mb = counters.get("file_MB", 128.0)
    row("3 point-wise filters over lazily read TARV1 512×512×256", chain, "numpy fromfile + 3 ops",
        peers["tarv1_chain"], "≥ 500 MB/s of file", "yes" if mb / chain >= 500 else "no",
        f" ({mb / chain:.0f} MB/s; peak cache {counters.get('peak_cache_MB', 0):.0f} MB of a {mb:.0f} MB file)")
    write = t("BM_TiffPagedWrite")
    bare_write = t("BM_LibtiffTileWrite")
    row("paged TIFF write, 512×512×256 uint16", write, "bare libtiff tile loop", bare_write, "≤ 1.1 × libtiff",
        "yes" if write <= 1.1 * bare_write else "no")
    read = t("BM_TiffPagedLazyRead")
    bare_read = t("BM_LibtiffTileRead")
    row("paged TIFF lazy full read, 512×512×256 uint16", read, "bare libtiff tile loop", bare_read,
        "≤ 1.1 × libtiff", "yes" if read <= 1.1 * bare_read else "no")
    dist = t("BM_HausdorffAndAverageBorderDistance")
    row("Hausdorff + average border distance, two 256³ blobs", dist, "scipy distance_transform_edt",
        peers["distances"], "≤ 2 s", "yes" if dist <= 2.0 else "no",
        f" (ITK Hausdorff alone, 128³: {ITK['distances_128']} s)")
    row("removeSmallVoxelGroups (< 10 voxels), 256³, 10 %", t("BM_RemoveSmallVoxelGroups"),
        "scipy label + bincount", peers["remove_small"], f"- (ITK {ITK['remove_small']} s)", "-")

    for name, title in (("256", "256³"), ("512", "512×512×256")):
        scipy = tools[f"edges{name}_scipy"]
        file_mb = tools[f"edges{name}_file_MB"]
        differing = tools[f"edges{name}_differing"]
        for threads in ("1", "2"):
            wall = tools[f"edges{name}_t{threads}"]
            mb = tools[f"edges{name}_t{threads}_MB"]
            fast = wall <= 0.1 * scipy
            small = mb <= file_mb + 64
            row(f"edge graph, `tarv filter` paged TIFF → paged TIFF, {title} int16, {threads} thread{'s' if threads == '2' else ''}"
                " (wall)", wall, "numpy/scipy, float64 (wall)", scipy, "≤ 0.1 × scipy; peak ≤ file + 64 MB",
                "yes" if fast and small else ("time no, memory yes" if small else "no"),
                f" (peak {mb:.0f} MB, file {file_mb:.0f} MB; {differing} voxels differ from scipy's)")
    one = t("BM_EdgeGraphThreads/1")
    two = t("BM_EdgeGraphThreads/2")
    row("edge graph, calculateFullDataset, 256³ int16 in memory, 2 threads (wall)", two, "the same on 1 thread", one,
        "≥ 1.7× faster", "yes" if one / two >= 1.7 else "no", f" ({one / two:.2f}×)")
    every = t("BM_EveryFilterType")
    alone = max(t("BM_SmoothAlone"), t("BM_GradientAlone"), t("BM_DirectionFilteredAlone"))
    row("one filter of every type, streamed, 256³ int16", every, "its most expensive filter alone (streamed)", alone,
        "≤ 2 × that", "yes" if every <= 2 * alone else "no")

    if python_path:
        with open(python_path) as f:
            py = json.load(f)
        scipy = py["python_edges_scipy"]
        for threads in (1, 2):
            ours_s = py[f"python_edges_t{threads}"]
            row(f"edge graph from Python (`tarv.Graph` on a NumPy array), 256³ int16, {threads} thread"
                f"{'s' if threads == 2 else ''} (wall)", ours_s, "numpy/scipy script (wall)", scipy, "≤ 0.1 × scipy",
                "yes" if ours_s <= 0.1 * scipy else "no", f" ({py['python_edges_differing']} voxels differ)")
        one, two = py["map_graph_w1"], py["map_graph_w2"]
        row("`tarv.dask.map_graph`, edge graph, 512×512×256 int16, 2 dask workers (wall)", two,
            "the same with 1 worker", one, "≥ 1.6× faster", "yes" if one / two >= 1.6 else "no", f" ({one / two:.2f}×)")
        memcpy = py["memcpy_512"]
        row("`numpy.asarray(dataset)`, 512³ float in memory", py["asarray_512"], "memcpy of it (numpy.copyto)", memcpy,
            "≤ 1.1 × memcpy", "yes" if py["asarray_512"] <= 1.1 * memcpy else "no",
            " (a view: no copy)" if py["asarray_shares_memory"] else "")
        fresh = py["numpy_copy_512"]
        row("`tarv.Dataset.from_array`, 512³ float (a copy into new memory)", py["from_array_512"],
            "numpy copy into new memory (ndarray.copy)", fresh, "≤ 1.1 × that", "yes" if py["from_array_512"] <= 1.1 * fresh else "no",
            f" ({py['from_array_512'] / memcpy:.0f} × a memcpy into memory already touched)")

    print("| work | ours (s) | peer | peer (s) | ours / peer | goal | met |")
    print("|---|---|---|---|---|---|---|")
    print("\n".join(lines))


if __name__ == "__main__":
    main(*sys.argv[1:5])
