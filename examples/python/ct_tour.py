"""A tour of tarv from Python, cell by cell as in a notebook: open a CT, build a filter graph, look
at a slice, compare two segmentations.

    python3 ct_tour.py [CT file or DICOM folder] [output folder]

Without a CT it writes a synthetic one (a NIfTI file) first. Figures are saved as PNG files in the
output folder (default: ./ct-tour).
"""
import os
import sys

import matplotlib

matplotlib.use("Agg")  # files, no window
import matplotlib.pyplot as plt  # noqa: E402
import numpy as np  # noqa: E402

import tarv  # noqa: E402

out = sys.argv[2] if len(sys.argv) > 2 else "ct-tour"
os.makedirs(out, exist_ok=True)

# %% 1. Open a CT. Any format of tarv.formats(): NIfTI, a DICOM folder, MetaImage, NRRD, TIFF ...
if len(sys.argv) > 1:
    path = sys.argv[1]
else:
    rng = np.random.default_rng(0)
    z, y, x = np.ogrid[0:48, 0:96, 0:96]
    body = ((x - 48) / 40.0) ** 2 + ((y - 48) / 30.0) ** 2 < 1
    bone = ((x - 48) / 8.0) ** 2 + ((y - 60) / 8.0) ** 2 < 1
    hu = np.where(body, 40, -1000) + np.where(bone & body, 900, 0) + rng.normal(0, 25, (48, 96, 96))
    path = os.path.join(out, "phantom.nii.gz")
    tarv.write(tarv.Dataset.from_array(hu.astype(np.int16), spacing=(0.8, 0.8, 2.5), origin=(-38.4, -38.4, 0)), path)
ct = tarv.open(path)
print(ct, "spacing", ct.spacing, "origin", ct.origin, "modality LUT", ct.modality_lut)

# %% 2. A filter graph in Python: smoothing, gradient length, a threshold at 200 HU per mm.
smooth = tarv.filters.smooth(ct, kernel_x_size=3, kernel_y_size=3, kernel_z_size=3, margin_value=-1000)
gradients = [tarv.filters.gradient(smooth, gradient_dimensionality=3, gradient_direction=axis, gradient_filter_size=3)
             for axis in range(3)]
length = tarv.filters.vector_length(*gradients)
edges = tarv.filters.interval_threshold(length, minimal_foreground_threshold_value=200,
                                        maximal_foreground_threshold_value=1e300, foreground_value=1,
                                        background_value=0, set_foreground=True, set_background=True)
edges = tarv.filters.cast(edges, element_type="uint8")
edges.compute(progress=lambda fraction: None)  # on every core; Ctrl-C stops it
print("the graph as tarv filter reads it:\n" + tarv.describe_graph(edges, [(ct, 0)]))

# %% 3. Look at a slice: NumPy arrays are (z, y, x).
middle = ct.shape[0] // 2
figure, axes = plt.subplots(1, 3, figsize=(12, 4))
for axis, (title, dataset) in zip(axes, (("CT", ct), ("gradient length", length), ("edges", edges))):
    axis.imshow(dataset.to_array(np.s_[middle:middle + 1])[0], cmap="gray")
    axis.set_title(title)
    axis.axis("off")
figure.savefig(os.path.join(out, "slice.png"), dpi=80)

# %% 4. Two segmentations of the dense structures, compared.
dense = tarv.filters.interval_threshold(ct, minimal_foreground_threshold_value=300,
                                        maximal_foreground_threshold_value=1e300, foreground_value=1,
                                        background_value=0, set_foreground=True, set_background=True)
smooth_dense = tarv.filters.interval_threshold(smooth, minimal_foreground_threshold_value=300,
                                               maximal_foreground_threshold_value=1e300, foreground_value=1,
                                               background_value=0, set_foreground=True, set_background=True)
noisy = tarv.Dataset.from_array(np.asarray(dense).astype(np.uint8), spacing=ct.spacing, origin=ct.origin,
                                direction=ct.direction)
tarv.segmentation.remove_small_groups(noisy, maximal_size=10)
clean = tarv.Dataset.from_array(np.asarray(smooth_dense).astype(np.uint8), spacing=ct.spacing, origin=ct.origin,
                                direction=ct.direction)
measures = tarv.segmentation.compare(noisy, clean)
for name in ("voxels_a", "voxels_b", "dice", "jaccard", "hausdorff_distance", "average_border_distance"):
    print("%-24s %s" % (name, measures[name]))
tarv.write(clean, os.path.join(out, "dense.nii.gz"))
