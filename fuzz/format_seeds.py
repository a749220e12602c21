#!/usr/bin/env python3
"""Writes the seed corpora of the format harnesses with other software (nibabel, tifffile, pydicom,
PIL, VTK) and the file writers of the independent file tests:

    /usr/bin/python3 fuzz/format_seeds.py

Each seed is small (the harnesses take inputs up to 64 KiB); existing seeds are replaced.
"""
import pathlib
import sys

import nibabel as nib
import numpy as np
import tifffile
from PIL import Image

top = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(top.parent / "tools" / "tests"))
import independent_files_test as files  # noqa: E402


# Separates the files of a DICOM series input of the DICOM harness.
SERIES_SEPARATOR = b"\xffTARV-NEXT-FILE\xff"


def corpus(name):
    folder = top / "corpus" / name
    folder.mkdir(parents=True, exist_ok=True)
    return folder


def main():
    random = np.random.default_rng(1)
    ct = random.integers(-1024, 2000, size=(4, 5, 6)).astype(np.int16)

    nifti = corpus("nifti_fuzzer")
    image = nib.Nifti1Image(ct.T, files.oblique_affine())
    image.header.set_slope_inter(2.0, -1024.0)
    nib.save(image, nifti / "seed-oblique-int16.nii")
    nib.save(image, nifti / "seed-oblique-int16.nii.gz")
    nib.save(nib.Nifti1Image(random.standard_normal((3, 4, 2, 3)).astype(np.float32), np.eye(4)),
             nifti / "seed-float-4d.nii")
    vectors = nib.Nifti1Image(random.standard_normal((3, 2, 2, 1, 3)), np.eye(4))
    vectors.header.set_intent("vector")
    nib.save(vectors, nifti / "seed-vectors.nii")
    big = nib.Nifti1Image(ct.T.astype(">i2"), np.eye(4), header=nib.Nifti1Header(endianness=">"))
    nib.save(big, nifti / "seed-big-endian.nii")
    nib.save(nib.Nifti2Image(ct.T, np.eye(4)), nifti / "seed-nifti2.nii")

    stacks = corpus("tiff_stack_fuzzer")
    tifffile.imwrite(stacks / "seed-strips.tif", ct, photometric="minisblack")
    tifffile.imwrite(stacks / "seed-tiles.tif", random.standard_normal((2, 20, 18)).astype(np.float32),
                     tile=(16, 16), photometric="minisblack")
    tifffile.imwrite(stacks / "seed-planar-rgb.tif", random.integers(0, 256, size=(3, 8, 9)).astype(np.uint8),
                     photometric="rgb", planarconfig="separate")
    tifffile.imwrite(stacks / "seed-deflate-bigtiff.tif", ct.astype(np.uint16), bigtiff=True, compression="zlib",
                     photometric="minisblack", byteorder=">")

    meta = corpus("metaimage_fuzzer")
    files.write_metaimage(meta / "seed-local.mha", ct, (0.5, 0.6, 2.0), (-10.0, 20.5, 7.25),
                          np.array([[0.0, 1.0, 0.0], [-1.0, 0.0, 0.0], [0.0, 0.0, 1.0]]))
    files.write_metaimage(meta / "seed-compressed.mha", ct, (1, 1, 1), (0, 0, 0), np.eye(3), compressed=True)
    files.write_metaimage(meta / "seed-channels.mha", random.standard_normal((2, 3, 4, 2)).astype(np.float32),
                          (1, 2, 3), (4, 5, 6), np.eye(3), channels=2)

    nrrd = corpus("nrrd_fuzzer")
    files.write_nrrd(nrrd / "seed-ras.nrrd", ct, ["space: right-anterior-superior",
                                                   "space directions: (0,-0.5,0) (0.7,0,0) (0,0,2.5)",
                                                   "space origin: (10,-20,30)", "kinds: domain domain domain"])
    files.write_nrrd(nrrd / "seed-gzip-big.nrrd", ct, [], encoding="gzip", endian="big")
    files.write_nrrd(nrrd / "seed-vectors.nrrd", random.standard_normal((2, 3, 4, 3)).astype(np.float32),
                     ["space: left-posterior-superior", "space directions: none (1,0,0) (0,1,0) (0,0,1)",
                      "kinds: vector domain domain domain"])
    files.write_nrrd(nrrd / "seed-time.nrrd", random.integers(0, 9, size=(2, 2, 3, 4)).astype(np.uint8),
                     ["kinds: domain domain domain time", "spacings: 1 1 1 2.5"])

    dicom = corpus("dicom_fuzzer")
    folder = top.parent / "build" / "fuzz-seed-dicom"
    files.oblique_series(folder, count=2, uid="1.2.826.0.1.3680043.8.498.7", shuffle=False)
    for k, path in enumerate(sorted(folder.iterdir())):
        (dicom / f"seed-ct-{k}.dcm").write_bytes(path.read_bytes())
    # Series inputs: the harness writes the pieces between separators as the files of a folder.
    slices = [path.read_bytes() for path in sorted(folder.iterdir())]
    (dicom / "seed-series-in-order").write_bytes(SERIES_SEPARATOR.join(slices))
    (dicom / "seed-series-reversed").write_bytes(SERIES_SEPARATOR.join(reversed(slices)))
    other = top.parent / "build" / "fuzz-seed-dicom-other"
    files.oblique_series(other, count=1, uid="1.2.826.0.1.3680043.8.498.8", shuffle=False)
    (dicom / "seed-two-series").write_bytes(
        SERIES_SEPARATOR.join(slices + [path.read_bytes() for path in sorted(other.iterdir())]))

    probe = corpus("format_probe_fuzzer")
    for source in [nifti / "seed-oblique-int16.nii.gz", stacks / "seed-tiles.tif", meta / "seed-local.mha",
                   nrrd / "seed-ras.nrrd", dicom / "seed-ct-0.dcm"]:
        (probe / source.name).write_bytes(source.read_bytes())
    Image.fromarray(random.integers(0, 256, size=(6, 7, 3)).astype(np.uint8)).save(probe / "seed-rgb.png")
    Image.fromarray(random.integers(0, 256, size=(8, 8)).astype(np.uint8)).save(probe / "seed-gray.jpg")
    files.write_vti(probe / "seed-components.vti", random.standard_normal((2, 3, 4, 2)).astype(np.float32),
                    extent_start=(1, 2, 3))


if __name__ == "__main__":
    main()
