"""Files written by other software, read by tarv, and files tarv writes, read by other software.

Producers and readers are Debian's Python packages (nibabel, numpy); every comparison is voxel by
voxel and geometry by geometry. Run with pytest; TARV_TOOL names the tool.
"""
import os
import subprocess

import nibabel as nib
import numpy as np
import pytest

TARV = os.environ.get("TARV_TOOL", "tarv")


def tarv(*args, ok=True):
    result = subprocess.run([TARV, "--no-progress", *map(str, args)], capture_output=True, text=True)
    if ok:
        assert result.returncode == 0, result.stderr
    return result


def info(path):
    fields = {}
    for line in tarv("info", path).stdout.splitlines()[1:]:
        key, _, value = line.strip().partition("  ")
        fields[key.strip()] = value.strip()
    return fields


def raw_voxels(path, dtype, shape):
    """A raw file tarv wrote: x fastest, then y, z, t; components fastest of all."""
    return np.fromfile(path, dtype=dtype).reshape(shape)


def oblique_affine():
    angle = np.deg2rad(20.0)
    rotation = np.array([[np.cos(angle), -np.sin(angle), 0.0],
                         [np.sin(angle) * 0.9, np.cos(angle) * 0.9, -0.43588989],
                         [np.sin(angle) * 0.43588989, np.cos(angle) * 0.43588989, 0.9]])
    affine = np.eye(4)
    affine[:3, :3] = rotation @ np.diag([0.8, 0.7, 2.5])
    affine[:3, 3] = [-91.5, 120.25, -33.0]
    return affine


def ct_like(shape, seed=3):
    random = np.random.default_rng(seed)
    return random.integers(-1024, 2000, size=shape).astype(np.int16)


@pytest.mark.parametrize("name", ["ct.nii", "ct.nii.gz"])
def test_nibabel_oblique_ct_with_rescale_reads_exactly(tmp_path, name):
    data = ct_like((7, 6, 5))
    image = nib.Nifti1Image(data, oblique_affine())
    image.header.set_slope_inter(2.0, -1024.0)
    image.set_qform(oblique_affine(), code=1)
    image.set_sform(oblique_affine(), code=1)
    nib.save(image, tmp_path / name)

    fields = info(tmp_path / name)
    assert fields["size"] == "7 x 6 x 5"
    assert fields["element type"] == "int16"
    assert fields["rescale"] == "slope 2, intercept -1024"
    # LPS: x and y of the RAS affine change sign.
    origin = [float(v) for v in fields["origin"].split(" (")[0].split(",")]
    assert np.allclose(origin, [91.5, -120.25, -33.0], atol=1e-4)
    spacing = [float(v) for v in fields["spacing"].split(" (")[0].split(",")]
    assert np.allclose(spacing, [0.8, 0.7, 2.5], atol=1e-5)

    tarv("convert", tmp_path / name, tmp_path / "out.raw")
    stored = raw_voxels(tmp_path / "out.raw", np.int16, (5, 6, 7))
    assert np.array_equal(stored, np.asarray(nib.load(tmp_path / name).dataobj.get_unscaled()).T)


def test_nifti_round_trip_keeps_affine_and_physical_values(tmp_path):
    data = ct_like((9, 8, 6), seed=5)
    image = nib.Nifti1Image(data, oblique_affine())
    image.header.set_slope_inter(0.5, -100.0)
    nib.save(image, tmp_path / "in.nii")
    tarv("convert", tmp_path / "in.nii", tmp_path / "out.nii.gz")
    before = nib.load(tmp_path / "in.nii")
    after = nib.load(tmp_path / "out.nii.gz")
    assert np.allclose(after.affine, before.affine, atol=1e-4)
    assert np.allclose(after.header.get_qform(), before.affine, atol=1e-4)
    assert after.get_data_dtype() == np.int16
    assert np.array_equal(after.get_fdata(), before.get_fdata())


def test_four_and_five_dimensions(tmp_path):
    random = np.random.default_rng(11)
    series = random.standard_normal((4, 3, 2, 5)).astype(np.float32)
    image = nib.Nifti1Image(series, np.diag([1.5, 1.5, 3.0, 1.0]))
    image.header.set_xyzt_units("mm", "sec")
    image.header["pixdim"][4] = 2.0
    nib.save(image, tmp_path / "series.nii")
    fields = info(tmp_path / "series.nii")
    assert fields["time steps"] == "5"
    assert fields["spacing"].endswith("(t 2)")
    tarv("convert", tmp_path / "series.nii", tmp_path / "series.raw")
    assert np.array_equal(raw_voxels(tmp_path / "series.raw", np.float32, (5, 2, 3, 4)), series.T)

    vectors = random.standard_normal((4, 3, 2, 1, 3)).astype(np.float64)
    image = nib.Nifti1Image(vectors, np.eye(4))
    image.header.set_intent("vector")
    nib.save(image, tmp_path / "vectors.nii.gz")
    assert info(tmp_path / "vectors.nii.gz")["components"] == "3"
    tarv("convert", tmp_path / "vectors.nii.gz", tmp_path / "vectors.raw")
    stored = raw_voxels(tmp_path / "vectors.raw", np.float64, (2, 3, 4, 3))
    assert np.array_equal(stored, vectors[:, :, :, 0, :].transpose(2, 1, 0, 3))
    tarv("convert", tmp_path / "vectors.nii.gz", tmp_path / "again.nii")
    assert np.array_equal(nib.load(tmp_path / "again.nii").get_fdata(), vectors)


def test_big_endian_and_unsigned_types(tmp_path):
    for dtype in [">i2", ">u2", ">f8", "u1", "i1", "<u4", "<i8"]:
        data = (np.arange(60).reshape(5, 4, 3) * 3 - (0 if dtype[-2] in "u" else 40)).astype(dtype)
        header = nib.Nifti1Header(endianness=dtype[0] if dtype[0] in "<>" else "<")
        image = nib.Nifti1Image(data, np.eye(4), header=header)
        image.set_data_dtype(data.dtype)
        nib.save(image, tmp_path / "typed.nii")
        tarv("convert", tmp_path / "typed.nii", tmp_path / "typed.raw")
        native = data.dtype.newbyteorder("=")
        assert np.array_equal(raw_voxels(tmp_path / "typed.raw", native, (3, 4, 5)), data.T), dtype


def test_refusals_name_what_is_unsupported(tmp_path):
    image = nib.Nifti1Image(np.zeros((3, 3, 3), np.complex64), np.eye(4))
    nib.save(image, tmp_path / "complex.nii")
    result = tarv("convert", tmp_path / "complex.nii", tmp_path / "out.raw", ok=False)
    assert result.returncode == 1
    assert "complex samples" in result.stderr
    assert not (tmp_path / "out.raw").exists()
    (tmp_path / "short.nii").write_bytes((tmp_path / "complex.nii").read_bytes()[:300])
    result = tarv("info", tmp_path / "short.nii", ok=False)
    assert result.returncode == 1
    assert "not a NIfTI file" in result.stderr


tifffile = pytest.importorskip("tifffile")


def tiff_cases():
    random = np.random.default_rng(17)
    stack = random.integers(-30000, 30000, size=(6, 26, 21)).astype(np.int16)
    return {
        "strips": (stack, {"photometric": "minisblack"}),
        "tiled pages": (stack, {"tile": (16, 16), "photometric": "minisblack"}),
        "tiled float32 page": (random.standard_normal((26, 21)).astype(np.float32), {"tile": (16, 16)}),
        "float64 stack": (random.standard_normal((3, 9, 7)), {"photometric": "minisblack"}),
        "uint64 big-endian": (random.integers(0, 2**63, size=(2, 5, 4), dtype=np.uint64),
                              {"byteorder": ">", "photometric": "minisblack"}),
        "int8 bigtiff deflate": (random.integers(-128, 128, size=(4, 8, 8)).astype(np.int8),
                                 {"bigtiff": True, "compression": "zlib", "photometric": "minisblack"}),
        "rgb": (random.integers(0, 256, size=(3, 10, 12, 3)).astype(np.uint8), {"photometric": "rgb"}),
        "rgba uint16 planar": (random.integers(0, 65536, size=(2, 4, 9, 11)).astype(np.uint16),
                               {"photometric": "rgb", "planarconfig": "separate", "extrasamples": ["unassalpha"]}),
    }


def components_last(array, options):
    """tifffile's array in the raw order tarv writes: pages, rows, columns, samples."""
    if options.get("planarconfig") == "separate":
        return np.moveaxis(array, -3, -1)
    return array


@pytest.mark.parametrize("case", list(tiff_cases()))
def test_tifffile_stacks_read_exactly(tmp_path, case):
    data, options = tiff_cases()[case]
    tifffile.imwrite(tmp_path / "in.tif", data, **options)
    expected = components_last(tifffile.imread(tmp_path / "in.tif"), options)
    assert np.array_equal(expected, components_last(data, options))
    tarv("convert", tmp_path / "in.tif", tmp_path / "out.raw")
    stored = np.fromfile(tmp_path / "out.raw", dtype=data.dtype.newbyteorder("="))
    assert np.array_equal(stored, expected.ravel()), case


@pytest.mark.parametrize("codec", ["lzma", "lzw", "zstd", "packbits"])
def test_tiffcp_codecs_and_tiles(tmp_path, codec):
    data = np.random.default_rng(5).integers(0, 4000, size=(5, 40, 33)).astype(np.uint16)
    tifffile.imwrite(tmp_path / "plain.tif", data, photometric="minisblack")
    made = subprocess.run(["tiffcp", "-t", "-w", "16", "-l", "16", "-c", codec, tmp_path / "plain.tif",
                           tmp_path / "coded.tif"], capture_output=True, text=True)
    if made.returncode != 0:
        pytest.skip(f"tiffcp cannot write {codec} here: {made.stderr.strip()}")
    tarv("convert", tmp_path / "coded.tif", tmp_path / "out.raw")
    assert np.array_equal(np.fromfile(tmp_path / "out.raw", dtype=np.uint16).reshape(data.shape), data)


def test_tiff_stack_written_by_tarv_reads_in_tifffile(tmp_path):
    data = np.random.default_rng(8).standard_normal((4, 6, 5)).astype(np.float64)
    data.tofile(tmp_path / "in.raw")
    tarv("convert", tmp_path / "in.raw", tmp_path / "out.tif", "--format", "tiff-stack",
         "--raw-size", "5,6,4", "--raw-type", "double")
    assert np.array_equal(tifffile.imread(tmp_path / "out.tif"), data)


def test_tiff_refusals_say_what(tmp_path):
    palette = np.zeros((8, 8), np.uint8)
    tifffile.imwrite(tmp_path / "palette.tif", palette, photometric="palette",
                     colormap=np.zeros((3, 256), np.uint16))
    result = tarv("info", tmp_path / "palette.tif", ok=False)
    assert result.returncode == 1 and "palette colours" in result.stderr
    tifffile.imwrite(tmp_path / "mixed.tif", np.zeros((4, 4), np.uint8), photometric="minisblack")
    tifffile.imwrite(tmp_path / "mixed.tif", np.zeros((5, 4), np.uint8), photometric="minisblack", append=True)
    result = tarv("info", tmp_path / "mixed.tif", ok=False)
    assert result.returncode == 1 and "page 1" in result.stderr


pydicom = pytest.importorskip("pydicom")
from pydicom.dataset import FileDataset, FileMetaDataset  # noqa: E402
from pydicom.uid import ExplicitVRLittleEndian, generate_uid  # noqa: E402


def write_ct_slice(path, pixels, position, orientation, series_uid, slope=1.0, intercept=-1024.0, number=1):
    meta = FileMetaDataset()
    meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.2"
    meta.MediaStorageSOPInstanceUID = generate_uid()
    meta.TransferSyntaxUID = ExplicitVRLittleEndian
    ds = FileDataset(str(path), {}, file_meta=meta, preamble=b"\0" * 128)
    ds.SOPClassUID = meta.MediaStorageSOPClassUID
    ds.SOPInstanceUID = meta.MediaStorageSOPInstanceUID
    ds.Modality = "CT"
    ds.PatientName = "Phantom^Test"
    ds.StudyInstanceUID = "1.2.3.4"
    ds.SeriesInstanceUID = series_uid
    ds.SeriesDescription = "oblique phantom"
    ds.InstanceNumber = number
    ds.ImagePositionPatient = [f"{v:.6f}" for v in position]
    ds.ImageOrientationPatient = [f"{v:.6f}" for v in orientation]
    ds.PixelSpacing = ["0.75", "0.5"]
    ds.SliceThickness = "2.5"
    ds.RescaleSlope = f"{slope}"
    ds.RescaleIntercept = f"{intercept}"
    ds.Rows, ds.Columns = pixels.shape
    ds.SamplesPerPixel = 1
    ds.PhotometricInterpretation = "MONOCHROME2"
    ds.BitsAllocated = 16
    ds.BitsStored = 16
    ds.HighBit = 15
    ds.PixelRepresentation = 1 if pixels.dtype == np.int16 else 0
    ds.PixelData = pixels.tobytes()
    ds.is_little_endian = True
    ds.is_implicit_VR = False
    ds.save_as(str(path), write_like_original=False)


def oblique_series(folder, count=6, uid=None, shuffle=True):
    """Slices of an oblique CT series, written in a shuffled order; the volume (z, y, x) and geometry."""
    folder.mkdir(exist_ok=True)
    uid = uid or generate_uid()
    angle = np.deg2rad(15.0)
    row = np.array([np.cos(angle), np.sin(angle), 0.0])
    column = np.array([0.0, np.cos(0.3), -np.sin(0.3)])
    column -= row * row.dot(column)
    column /= np.linalg.norm(column)
    normal = np.cross(row, column)
    origin = np.array([-120.0, -95.5, 40.0])
    random = np.random.default_rng(21)
    volume = random.integers(-200, 3000, size=(count, 5, 7)).astype(np.int16)
    order = random.permutation(count) if shuffle else np.arange(count)
    for written, k in enumerate(order):
        write_ct_slice(folder / f"img{written:03d}.dcm", volume[k], origin + normal * 2.5 * k,
                       list(row) + list(column), uid, number=int(k) + 1)
    return volume, origin, row, column, normal, uid


def test_pydicom_series_reads_in_order_with_geometry_and_rescale(tmp_path):
    volume, origin, row, column, normal, _ = oblique_series(tmp_path / "series")
    fields = info(tmp_path / "series")
    assert fields["format"] == "DICOM (read lazily)"
    assert fields["size"] == "7 x 5 x 6"
    assert fields["rescale"] == "slope 1, intercept -1024"
    assert np.allclose([float(v) for v in fields["origin"].split(" (")[0].split(",")], origin, atol=1e-5)
    assert np.allclose([float(v) for v in fields["spacing"].split(" (")[0].split(",")], [0.5, 0.75, 2.5], atol=1e-5)
    directions = [[float(v) for v in axis.split(",")] for axis in fields["direction"].split("  (")[0].split("/")]
    assert np.allclose(directions, [row, column, normal], atol=1e-5)
    tarv("convert", tmp_path / "series", tmp_path / "ct.raw")
    assert np.array_equal(raw_voxels(tmp_path / "ct.raw", np.int16, volume.shape), volume)


def test_dicom_series_to_nifti_gives_the_affine_and_hounsfield_values(tmp_path):
    volume, origin, row, column, normal, _ = oblique_series(tmp_path / "series")
    tarv("convert", tmp_path / "series", tmp_path / "ct.nii.gz")
    image = nib.load(tmp_path / "ct.nii.gz")
    # The affine that the DICOM tags imply, in RAS as NIfTI stores it.
    lps = np.eye(4)
    lps[:3, 0] = row * 0.5
    lps[:3, 1] = column * 0.75
    lps[:3, 2] = normal * 2.5
    lps[:3, 3] = origin
    ras = np.diag([-1, -1, 1, 1]) @ lps
    assert np.allclose(image.affine, ras, atol=1e-4)
    assert np.array_equal(image.get_fdata(), volume.T.astype(np.float64) - 1024.0)


def test_several_series_are_listed_and_one_is_chosen(tmp_path):
    first = oblique_series(tmp_path / "mixed", count=3, uid="1.2.826.0.1.3680043.8.498.1")
    oblique_series(tmp_path / "other", count=4, uid="1.2.826.0.1.3680043.8.498.2")
    for path in (tmp_path / "other").iterdir():
        path.rename(tmp_path / "mixed" / ("b" + path.name))
    result = tarv("info", tmp_path / "mixed", ok=False)
    assert result.returncode == 1
    assert "2 DICOM series: choose one with --series UID" in result.stderr
    assert "1.2.826.0.1.3680043.8.498.1 (3 files, oblique phantom)" in result.stderr
    tarv("convert", tmp_path / "mixed", tmp_path / "one.raw", "--series", "1.2.826.0.1.3680043.8.498.1")
    assert np.array_equal(raw_voxels(tmp_path / "one.raw", np.int16, first[0].shape), first[0])


@pytest.mark.parametrize("name", ["CT_small.dcm", "MR_small.dcm", "MR_small_RLE.dcm", "MR_small_bigendian.dcm",
                                  "MR_small_jp2klossless.dcm", "JPEG2000.dcm", "SC_rgb_rle_2frame.dcm",
                                  "SC_rgb_small_odd.dcm"])
def test_pydicom_shipped_files_match_pydicom(tmp_path, name):
    from pydicom.data import get_testdata_file
    path = get_testdata_file(name)
    if path is None:
        pytest.skip(f"{name} is not shipped here")
    ds = pydicom.dcmread(path)
    try:
        pixels = ds.pixel_array
    except Exception as error:  # pydicom needs a decoder plugin for some syntaxes
        pytest.skip(f"pydicom cannot decode {name} here: {error}")
    result = tarv("convert", path, tmp_path / "out.raw", ok=False)
    assert result.returncode == 0, result.stderr
    stored = np.fromfile(tmp_path / "out.raw", dtype=pixels.dtype.newbyteorder("="))
    assert np.array_equal(stored, pixels.ravel()), name
    fields = info(path)
    slope = float(getattr(ds, "RescaleSlope", 1))
    intercept = float(getattr(ds, "RescaleIntercept", 0))
    if (slope, intercept) != (1.0, 0.0):
        assert fields["rescale"] == f"slope {slope:g}, intercept {intercept:g}"


def test_dicom_refusals_name_what_is_unsupported(tmp_path):
    from pydicom.data import get_testdata_file
    rtdose = get_testdata_file("rtdose_1frame.dcm")
    if rtdose is not None:
        result = tarv("info", rtdose, ok=False)
        assert result.returncode == 1
        assert result.stderr.strip().endswith("rtdose_1frame.dcm: a GridFrameOffsetVector without NumberOfFrames")
    volume = oblique_series(tmp_path / "gap", count=4, shuffle=False)[0]
    (tmp_path / "gap" / "img001.dcm").unlink()
    result = tarv("info", tmp_path / "gap", ok=False)
    assert result.returncode == 1 and "uneven slice spacing" in result.stderr
    (tmp_path / "empty").mkdir()
    (tmp_path / "empty" / "notes.txt").write_text("no images here")
    result = tarv("info", tmp_path / "empty", ok=False)
    assert result.returncode == 1 and "no DICOM files in the folder" in result.stderr
    assert volume.shape == (4, 5, 7)


from PIL import Image  # noqa: E402


@pytest.mark.parametrize("mode", ["L", "I;16", "RGB", "RGBA", "P"])
def test_pil_png_rows_top_down_with_every_component(tmp_path, mode):
    random = np.random.default_rng(31)
    if mode == "I;16":
        image = Image.fromarray(random.integers(0, 65536, size=(6, 9)).astype(np.uint16))
    elif mode == "P":
        image = Image.fromarray(random.integers(0, 4, size=(6, 9)).astype(np.uint8), "L").convert("P")
        image.putpalette([10, 20, 30, 200, 100, 50, 0, 255, 0, 90, 90, 90] + [0] * 756)
    else:
        channels = {"L": (), "RGB": (3,), "RGBA": (4,)}[mode]
        image = Image.fromarray(random.integers(0, 256, size=(6, 9) + channels).astype(np.uint8), mode)
    image.save(tmp_path / "in.png")
    # What PIL shows: rows top to bottom, a palette as its colours.
    expected = np.asarray(image.convert("RGB") if mode == "P" else image)
    tarv("convert", tmp_path / "in.png", tmp_path / "out.raw")
    stored = np.fromfile(tmp_path / "out.raw", dtype=expected.dtype.newbyteorder("="))
    assert np.array_equal(stored, expected.ravel()), mode


def test_one_component_is_chosen_for_formats_of_one(tmp_path):
    random = np.random.default_rng(32)
    pixels = random.integers(0, 256, size=(6, 9, 3)).astype(np.uint8)
    Image.fromarray(pixels, "RGB").save(tmp_path / "in.png")
    refused = tarv("convert", tmp_path / "in.png", tmp_path / "out.tarv", ok=False)
    assert refused.returncode == 1
    assert "the data has 3: choose one with --component" in refused.stderr
    assert not (tmp_path / "out.tarv").exists()
    for component in range(3):
        tarv("convert", tmp_path / "in.png", tmp_path / f"green{component}.raw", "--component", component)
        stored = np.fromfile(tmp_path / f"green{component}.raw", dtype=np.uint8).reshape(6, 9)
        assert np.array_equal(stored, pixels[:, :, component]), component
    missing = tarv("convert", tmp_path / "in.png", tmp_path / "x.raw", "--component", 3, ok=False)
    assert "--component 3: the data has components 0 to 2" in missing.stderr
    refused = tarv("slice", tmp_path / "in.png", tmp_path / "s.png", "--z", 0, ok=False)
    assert "3 components: choose one with --component" in refused.stderr
    tarv("slice", tmp_path / "in.png", tmp_path / "s.png", "--z", 0, "--component", 2, "--window", "0,255")
    assert np.array_equal(np.asarray(Image.open(tmp_path / "s.png")), pixels[:, :, 2])


def test_png_written_by_tarv_is_top_down_for_pil(tmp_path):
    plane = np.arange(4 * 6, dtype=np.uint8).reshape(4, 6) * 10
    plane.tofile(tmp_path / "in.raw")
    tarv("convert", tmp_path / "in.raw", tmp_path / "out.png", "--raw-size", "6,4,1", "--raw-type", "uint8")
    assert np.array_equal(np.asarray(Image.open(tmp_path / "out.png")), plane)
    tarv("slice", tmp_path / "out.png", tmp_path / "slice.png", "--z", "0", "--window", "0,255")
    assert np.array_equal(np.asarray(Image.open(tmp_path / "slice.png")), plane)


def test_jpeg_rows_top_down(tmp_path):
    plane = np.zeros((16, 16), np.uint8)
    plane[:8] = 250
    Image.fromarray(plane).save(tmp_path / "in.jpg", quality=100)
    expected = np.asarray(Image.open(tmp_path / "in.jpg"))
    tarv("convert", tmp_path / "in.jpg", tmp_path / "out.raw")
    assert np.array_equal(np.fromfile(tmp_path / "out.raw", dtype=np.uint8).reshape(16, 16), expected)


vtk = pytest.importorskip("vtk")
from vtk.util import numpy_support  # noqa: E402


def write_vti(path, array, extent_start=(0, 0, 0), direction=None, cell=False, origin=(1.5, -2.0, 3.0)):
    image = vtk.vtkImageData()
    z, y, x = array.shape[:3]
    sx, sy, sz = extent_start
    image.SetExtent(sx, sx + x - 1, sy, sy + y - 1, sz, sz + z - 1)
    image.SetSpacing(0.5, 0.75, 2.0)
    image.SetOrigin(*origin)
    if direction is not None:
        image.SetDirectionMatrix(*np.asarray(direction).ravel())
    components = array.shape[3] if array.ndim == 4 else 1
    scalars = numpy_support.numpy_to_vtk(array.reshape(-1, components), deep=True)
    scalars.SetName("values")
    if cell:
        image.GetCellData().SetScalars(scalars)
    else:
        image.GetPointData().SetScalars(scalars)
    writer = vtk.vtkXMLImageDataWriter()
    writer.SetFileName(str(path))
    writer.SetInputData(image)
    assert writer.Write() == 1


def test_vti_extent_direction_and_components(tmp_path):
    random = np.random.default_rng(41)
    data = random.standard_normal((3, 4, 5, 3)).astype(np.float32)
    rotation = np.array([[0.0, -1.0, 0.0], [1.0, 0.0, 0.0], [0.0, 0.0, 1.0]])
    write_vti(tmp_path / "in.vti", data, extent_start=(2, 3, 1), direction=rotation)
    fields = info(tmp_path / "in.vti")
    assert fields["components"] == "3"
    # The first voxel sits at origin + direction (extent start ⊙ spacing).
    first = np.array([1.5, -2.0, 3.0]) + rotation @ (np.array([2, 3, 1]) * [0.5, 0.75, 2.0])
    assert np.allclose([float(v) for v in fields["origin"].split(" (")[0].split(",")], first, atol=1e-6)
    directions = [[float(v) for v in axis.split(",")] for axis in fields["direction"].split("  (")[0].split("/")]
    assert np.allclose(directions, rotation.T, atol=1e-9)
    tarv("convert", tmp_path / "in.vti", tmp_path / "out.raw")
    assert np.array_equal(np.fromfile(tmp_path / "out.raw", dtype=np.float32), data.ravel())


@pytest.mark.parametrize("dtype", [np.int64, np.uint64, np.int8, np.float64])
def test_vti_element_types_round_trip(tmp_path, dtype):
    data = (np.arange(24).reshape(2, 3, 4) * 3 - (5 if np.dtype(dtype).kind != "u" else 0)).astype(dtype)
    write_vti(tmp_path / "in.vti", data)
    tarv("convert", tmp_path / "in.vti", tmp_path / "out.raw")
    assert np.array_equal(np.fromfile(tmp_path / "out.raw", dtype=dtype), data.ravel())
    tarv("convert", tmp_path / "in.vti", tmp_path / "again.vti")
    reader = vtk.vtkXMLImageDataReader()
    reader.SetFileName(str(tmp_path / "again.vti"))
    reader.Update()
    back = numpy_support.vtk_to_numpy(reader.GetOutput().GetPointData().GetScalars())
    assert np.array_equal(back.astype(dtype), data.ravel())


def test_vti_refusals_say_what(tmp_path):
    write_vti(tmp_path / "cells.vti", np.zeros((2, 3, 4), np.float32), cell=True)
    result = tarv("info", tmp_path / "cells.vti", ok=False)
    assert result.returncode == 1 and "cell data" in result.stderr


def write_metaimage(path, data, spacing, offset, matrix, channels=1, compressed=False, separate=False):
    """A MetaImage written by hand, as ITK writes them: TransformMatrix rows are the voxel axes."""
    import zlib
    z, y, x = data.shape[:3]
    met = {np.dtype(np.int16): "MET_SHORT", np.dtype(np.uint8): "MET_UCHAR", np.dtype(np.float32): "MET_FLOAT",
           np.dtype(np.float64): "MET_DOUBLE", np.dtype(np.uint16): "MET_USHORT"}[data.dtype]
    payload = np.ascontiguousarray(data).astype(data.dtype.newbyteorder("<")).tobytes()
    if compressed:
        payload = zlib.compress(payload)
    lines = ["ObjectType = Image", "NDims = 3", "BinaryData = True", "BinaryDataByteOrderMSB = False",
             f"CompressedData = {'True' if compressed else 'False'}"]
    if compressed:
        lines.append(f"CompressedDataSize = {len(payload)}")
    lines += ["TransformMatrix = " + " ".join(f"{v:.10g}" for v in np.asarray(matrix).ravel()),
              "Offset = " + " ".join(f"{v:.10g}" for v in offset),
              "CenterOfRotation = 0 0 0", "AnatomicalOrientation = RAI",
              "ElementSpacing = " + " ".join(f"{v:.10g}" for v in spacing),
              f"DimSize = {x} {y} {z}"]
    if channels > 1:
        lines.append(f"ElementNumberOfChannels = {channels}")
    lines.append(f"ElementType = {met}")
    if separate:
        (path.parent / (path.stem + ".raw")).write_bytes(payload)
        lines.append(f"ElementDataFile = {path.stem}.raw")
        path.write_text("\n".join(lines) + "\n")
    else:
        lines.append("ElementDataFile = LOCAL")
        path.write_bytes(("\n".join(lines) + "\n").encode() + payload)


@pytest.mark.parametrize("compressed,separate", [(False, False), (True, False), (False, True)])
def test_metaimage_reads_geometry_and_values(tmp_path, compressed, separate):
    data = ct_like((4, 5, 6), seed=9)
    matrix = np.array([[0.0, 1.0, 0.0], [-1.0, 0.0, 0.0], [0.0, 0.0, 1.0]])
    name = "ct.mhd" if separate else "ct.mha"
    write_metaimage(tmp_path / name, data, (0.5, 0.6, 2.0), (-10.0, 20.5, 7.25), matrix,
                    compressed=compressed, separate=separate)
    fields = info(tmp_path / name)
    assert fields["format"] == "MetaImage"
    assert fields["size"] == "6 x 5 x 4"
    directions = [[float(v) for v in axis.split(",")] for axis in fields["direction"].split("  (")[0].split("/")]
    assert np.allclose(directions, matrix, atol=1e-9)
    assert np.allclose([float(v) for v in fields["origin"].split(" (")[0].split(",")], [-10.0, 20.5, 7.25])
    tarv("convert", tmp_path / name, tmp_path / "out.raw")
    assert np.array_equal(raw_voxels(tmp_path / "out.raw", np.int16, data.shape), data)


def test_metaimage_written_by_tarv_reads_in_vtk(tmp_path):
    data = np.random.default_rng(4).standard_normal((3, 4, 5, 2)).astype(np.float32)
    write_metaimage(tmp_path / "in.mha", data, (1.0, 2.0, 3.0), (4.0, 5.0, 6.0), np.eye(3), channels=2)
    tarv("convert", tmp_path / "in.mha", tmp_path / "out.mha")
    reader = vtk.vtkMetaImageReader()
    reader.SetFileName(str(tmp_path / "out.mha"))
    reader.Update()
    image = reader.GetOutput()
    assert image.GetDimensions() == (5, 4, 3)
    assert np.allclose(image.GetSpacing(), (1.0, 2.0, 3.0)) and np.allclose(image.GetOrigin(), (4.0, 5.0, 6.0))
    back = numpy_support.vtk_to_numpy(image.GetPointData().GetScalars())
    assert np.array_equal(back.reshape(data.shape), data)
    header = (tmp_path / "out.mha").read_bytes().split(b"ElementDataFile")[0].decode()
    assert "TransformMatrix = 1 0 0 0 1 0 0 0 1" in header


def test_metaimage_refusals(tmp_path):
    (tmp_path / "bad.mha").write_text("ObjectType = Image\nNDims = 3\nDimSize = 4 4\nElementType = MET_SHORT\n"
                                      "ElementDataFile = LOCAL\n")
    result = tarv("info", tmp_path / "bad.mha", ok=False)
    assert result.returncode == 1
    write_metaimage(tmp_path / "short.mhd", ct_like((2, 3, 4)), (1, 1, 1), (0, 0, 0), np.eye(3), separate=True)
    raw = tmp_path / "short.raw"
    raw.write_bytes(raw.read_bytes()[:10])
    result = tarv("info", tmp_path / "short.mhd", ok=False)
    assert result.returncode == 1
    assert "the data holds 10 bytes, the header describes 48 (truncated)" in result.stderr
    write_metaimage(tmp_path / "packed.mha", ct_like((8, 9, 10)), (1, 1, 1), (0, 0, 0), np.eye(3), compressed=True)
    packed = (tmp_path / "packed.mha").read_bytes()
    (tmp_path / "packed.mha").write_bytes(packed[:-40])
    result = tarv("info", tmp_path / "packed.mha", ok=False)
    assert result.returncode == 1 and "(truncated or damaged)" in result.stderr


def write_nrrd(path, data, header_lines, encoding="raw", detached=False, endian="little"):
    """A NRRD file written by hand from the format's text definition."""
    import gzip
    dtype = {np.dtype(np.int16): "short", np.dtype(np.uint8): "uchar", np.dtype(np.float32): "float",
             np.dtype(np.float64): "double", np.dtype(np.uint16): "ushort", np.dtype(np.int64): "int64"}[data.dtype]
    payload = np.ascontiguousarray(data).astype(data.dtype.newbyteorder("<" if endian == "little" else ">")).tobytes()
    if encoding == "gzip":
        payload = gzip.compress(payload)
    sizes = " ".join(str(n) for n in reversed(data.shape))
    lines = ["NRRD0004", f"type: {dtype}", f"dimension: {data.ndim}", f"sizes: {sizes}",
             f"endian: {endian}", f"encoding: {encoding}"] + header_lines
    if detached:
        (path.parent / (path.stem + ".raw")).write_bytes(payload)
        lines.append(f"data file: {path.stem}.raw")
        path.write_text("\n".join(lines) + "\n")
    else:
        path.write_bytes(("\n".join(lines) + "\n\n").encode() + payload)


@pytest.mark.parametrize("encoding,detached,endian", [("raw", False, "little"), ("gzip", False, "big"),
                                                      ("raw", True, "big")])
def test_nrrd_reads_geometry_and_values(tmp_path, encoding, detached, endian):
    data = ct_like((4, 5, 6), seed=13)
    name = "ct.nhdr" if detached else "ct.nrrd"
    # RAS space: x and y change sign on the way to LPS.
    write_nrrd(tmp_path / name, data, ["space: right-anterior-superior",
                                       "space directions: (0,-0.5,0) (0.7,0,0) (0,0,2.5)",
                                       "space origin: (10,-20,30)", "kinds: domain domain domain"],
               encoding=encoding, detached=detached, endian=endian)
    fields = info(tmp_path / name)
    assert fields["format"] == "NRRD"
    assert fields["size"] == "6 x 5 x 4"
    assert np.allclose([float(v) for v in fields["origin"].split(" (")[0].split(",")], [-10, 20, 30])
    assert np.allclose([float(v) for v in fields["spacing"].split(" (")[0].split(",")], [0.5, 0.7, 2.5])
    directions = [[float(v) for v in axis.split(",")] for axis in fields["direction"].split("  (")[0].split("/")]
    assert np.allclose(directions, [[0, 1, 0], [-1, 0, 0], [0, 0, 1]], atol=1e-12)
    tarv("convert", tmp_path / name, tmp_path / "out.raw")
    assert np.array_equal(raw_voxels(tmp_path / "out.raw", np.int16, data.shape), data)


def test_nrrd_vectors_and_time(tmp_path):
    vectors = np.random.default_rng(2).standard_normal((3, 4, 5, 3)).astype(np.float32)
    # The vector axis is the fastest: the last of numpy's shape, the first of the header's.
    write_nrrd(tmp_path / "v.nrrd", vectors, ["space: left-posterior-superior",
                                              "space directions: none (1,0,0) (0,1,0) (0,0,1)",
                                              "kinds: vector domain domain domain"])
    assert info(tmp_path / "v.nrrd")["components"] == "3"
    tarv("convert", tmp_path / "v.nrrd", tmp_path / "v.raw")
    assert np.array_equal(np.fromfile(tmp_path / "v.raw", dtype=np.float32), vectors.ravel())
    series = ct_like((2, 3, 4, 5), seed=3)
    write_nrrd(tmp_path / "t.nrrd", series, ["kinds: domain domain domain time", "spacings: 1 1 1 2.5"])
    fields = info(tmp_path / "t.nrrd")
    assert fields["time steps"] == "2" and fields["spacing"].endswith("(t 2.5)")


def test_nrrd_refusals(tmp_path):
    write_nrrd(tmp_path / "short.nrrd", ct_like((3, 4, 5)), [])
    cut = (tmp_path / "short.nrrd").read_bytes()[:-7]
    (tmp_path / "short.nrrd").write_bytes(cut)
    result = tarv("info", tmp_path / "short.nrrd", ok=False)
    assert result.returncode == 1 and "NRRD data cannot be read" in result.stderr
    (tmp_path / "huge.nrrd").write_text("NRRD0004\ntype: short\ndimension: 3\nsizes: 2147483647 2147483647 2\n"
                                        "encoding: raw\nendian: little\n\n")
    result = tarv("info", tmp_path / "huge.nrrd", ok=False)
    assert result.returncode == 1 and "too large" in result.stderr
