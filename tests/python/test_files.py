"""Files through the package: the registry's formats both ways, geometry against nibabel, lazy
reading, refusals that say what, and writes that replace a file only by a complete one."""
import gzip
import os
import time

import nibabel as nib
import numpy as np
import pytest

import tarv
from conftest import ct_like


def test_nifti_written_by_nibabel_reads_as_nibabel_reads_it(tmp_path):
    volume = ct_like((6, 7, 8))  # (z, y, x)
    affine = np.array([[-0.8, 0.0, 0.0, 90.0], [0.0, -0.7, 0.0, 120.0], [0.0, 0.0, 2.5, -30.0], [0, 0, 0, 1]])
    image = nib.Nifti1Image(volume.T, affine)  # nibabel's axes are x, y, z
    image.header.set_slope_inter(2.0, -1024.0)
    nib.save(image, tmp_path / "ct.nii.gz")
    d = tarv.open(tmp_path / "ct.nii.gz")
    assert d.shape == (6, 7, 8) and d.dtype == np.int16
    assert np.array_equal(np.asarray(d), volume)
    assert d.modality_lut == (2.0, -1024.0)
    assert np.allclose(d.spacing, (0.8, 0.7, 2.5))
    # World coordinates are LPS: NIfTI's RAS with x and y negated.
    ras = affine @ np.array([3, 4, 5, 1.0])
    assert np.allclose(d.voxel_to_world(3, 4, 5), (-ras[0], -ras[1], ras[2]))


def test_written_nifti_reads_in_nibabel_with_the_same_affine(tmp_path):
    volume = np.arange(4 * 5 * 6, dtype=np.float32).reshape(4, 5, 6)
    d = tarv.Dataset.from_array(volume, spacing=(0.5, 0.6, 2.0), origin=(10.0, -20.0, 5.0))
    written = tarv.write(d, tmp_path / "out.nii")
    assert written["format"] == "nifti" and written["size"] == (6, 5, 4, 1, 1)
    image = nib.load(tmp_path / "out.nii")
    assert np.array_equal(np.asarray(image.dataobj).T, volume)
    lps = np.array([10.0 + 0.5 * 2, -20.0 + 0.6 * 3, 5.0 + 2.0 * 1])
    ras = image.affine @ np.array([2, 3, 1, 1.0])
    assert np.allclose(ras[:3], (-lps[0], -lps[1], lps[2]))


@pytest.mark.parametrize("name", ["v.tarv", "v.tif", "v.mha", "v.nii.gz", "v.vti", "v.raw"])
def test_formats_round_trip(tmp_path, name):
    volume = ct_like((5, 6, 7))
    d = tarv.Dataset.from_array(volume, spacing=(0.5, 0.5, 1.5))
    tarv.write(d, tmp_path / name)
    raw = dict(size=(7, 6, 5), element_type="int16") if name.endswith(".raw") else None
    back = tarv.open(tmp_path / name, raw=raw)
    assert np.array_equal(np.asarray(back), volume), name
    assert tarv.probe_format(tmp_path / name) == {"tarv": "tarv1", "tif": "tiff", "mha": "metaimage", "gz": "nifti-gz",
                                                  "vti": "vti", "raw": "raw"}[name.rsplit(".", 1)[1]]


def test_lazy_files_read_only_what_is_asked(tmp_path):
    volume = ct_like((8, 16, 16))
    tarv.write(tarv.Dataset.from_array(volume), tmp_path / "v.tif")
    lazy = tarv.open(tmp_path / "v.tif", lazy=True)
    assert not lazy.in_memory
    assert np.array_equal(lazy.to_array(np.s_[2:3, 4:9, :]), volume[2:3, 4:9, :])
    assert np.array_equal(np.asarray(lazy), volume)
    whole = tarv.open(tmp_path / "v.tif", lazy=False)
    assert whole.in_memory


def test_conversions_that_would_lose_values_are_refused_unless_said_how(tmp_path):
    d = tarv.Dataset.from_array(np.array([[[-1000, 0, 3000]]], dtype=np.int16))
    with pytest.raises(ValueError, match="give clamp=True or rescale=\\(low, high\\)"):
        tarv.write(d, tmp_path / "u.raw", element_type="uint16")
    assert not (tmp_path / "u.raw").exists()
    tarv.write(d, tmp_path / "c.raw", element_type=np.uint16, clamp=True)
    assert np.fromfile(tmp_path / "c.raw", dtype=np.uint16).tolist() == [0, 0, 3000]
    tarv.write(d, tmp_path / "r.raw", element_type="uint8", rescale=(0, 200))
    assert np.fromfile(tmp_path / "r.raw", dtype=np.uint8).tolist() == [0, 50, 200]


def test_refusals_name_what_and_how(tmp_path):
    rgb = tarv.Dataset.from_array(np.zeros((1, 4, 5, 3), dtype=np.uint8), components=True)
    with pytest.raises(ValueError, match="choose one with component="):
        tarv.write(rgb, tmp_path / "x.tarv")
    tarv.write(rgb, tmp_path / "g.tarv", component=1)
    with pytest.raises(ValueError, match="no component 3"):
        tarv.write(rgb, tmp_path / "x.raw", component=3)
    with pytest.raises(ValueError, match="holds one time step.*choose one with time="):
        tarv.write(tarv.Dataset.from_array(np.zeros((2, 2, 3, 4), dtype=np.uint8)), tmp_path / "x.vti")
    with pytest.raises(ValueError, match="extension names no format"):
        tarv.write(rgb, tmp_path / "x.unknown")
    with pytest.raises(ValueError, match="unknown format"):
        tarv.write(rgb, tmp_path / "x.raw", format="gif")
    with pytest.raises(FileNotFoundError):
        tarv.open(tmp_path / "absent.nii")
    with pytest.raises(FileNotFoundError, match="does not exist"):
        tarv.write(rgb, tmp_path / "no" / "such" / "x.raw")
    (tmp_path / "junk.nii").write_bytes(b"\x00" * 100)
    with pytest.raises(ValueError, match="junk.nii"):
        tarv.open(tmp_path / "junk.nii")
    with pytest.raises(ValueError, match="raw file stores no layout"):
        tarv.open(tmp_path / "g.tarv", format="raw")
    with pytest.raises(TypeError):
        tarv.write(np.zeros(3), tmp_path / "x.raw")


def test_a_failed_write_leaves_the_old_file(tmp_path):
    target = tmp_path / "keep.raw"
    target.write_bytes(b"old")
    d = tarv.Dataset.from_array(np.array([[[-5, 5]]], dtype=np.int8))
    with pytest.raises(ValueError):
        tarv.write(d, target, element_type="uint8")
    assert target.read_bytes() == b"old"
    assert sorted(os.listdir(tmp_path)) == ["keep.raw"], "no temporary left"


def test_progress_is_reported_and_an_exception_stops_the_write(tmp_path):
    volume = ct_like((32, 64, 64))
    smooth = tarv.filters.smooth(tarv.Dataset.from_array(volume), kernel_x_size=3, kernel_y_size=3, kernel_z_size=3)
    seen = []
    tarv.write(smooth, tmp_path / "s.tarv", progress=seen.append)
    assert seen and all(0.0 <= f < 1.0 for f in seen) and seen == sorted(seen)

    class Stop(Exception):
        pass

    def stop(fraction):
        raise Stop()

    (tmp_path / "t.nii").write_bytes(b"old")
    again = tarv.filters.smooth(tarv.Dataset.from_array(volume), kernel_x_size=5)
    with pytest.raises(Stop):
        tarv.write(again, tmp_path / "t.nii", progress=stop)
    assert (tmp_path / "t.nii").read_bytes() == b"old"


def test_the_allocation_cap_refuses_what_a_header_claims(tmp_path):
    tarv.write(tarv.Dataset.from_array(np.zeros((10, 100, 100), dtype=np.int16)), tmp_path / "v.nii")
    default = tarv.allocation_cap()
    tarv.set_allocation_cap(100_000)
    try:
        with pytest.raises(MemoryError, match="allocation cap"):
            tarv.open(tmp_path / "v.nii")
    finally:
        tarv.set_allocation_cap(0)
    assert tarv.allocation_cap() == default
    assert tarv.open(tmp_path / "v.nii").shape == (10, 100, 100)


def test_dicom_series_read_file_by_file_equal_the_whole_read(tmp_path):
    pydicom = pytest.importorskip("pydicom")
    from pydicom.dataset import FileDataset, FileMetaDataset
    from pydicom.uid import ExplicitVRLittleEndian, generate_uid

    volume = ct_like((5, 6, 7))
    series = generate_uid()
    folder = tmp_path / "series"
    folder.mkdir()
    for z in (3, 0, 4, 1, 2):  # files in another order than their positions
        meta = FileMetaDataset()
        meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.2"
        meta.MediaStorageSOPInstanceUID = generate_uid()
        meta.TransferSyntaxUID = ExplicitVRLittleEndian
        ds = FileDataset(str(folder / ("s%d.dcm" % z)), {}, file_meta=meta, preamble=b"\0" * 128)
        ds.SOPClassUID = meta.MediaStorageSOPClassUID
        ds.SOPInstanceUID = meta.MediaStorageSOPInstanceUID
        ds.SeriesInstanceUID = series
        ds.StudyInstanceUID = series + ".1"
        ds.Modality = "CT"
        ds.Rows, ds.Columns = 6, 7
        ds.PixelSpacing = [0.75, 0.5]
        ds.SliceThickness = 2.0
        ds.ImageOrientationPatient = [1, 0, 0, 0, 1, 0]
        ds.ImagePositionPatient = [-10.0, 20.0, 2.0 * z]
        ds.SamplesPerPixel = 1
        ds.PhotometricInterpretation = "MONOCHROME2"
        ds.BitsAllocated, ds.BitsStored, ds.HighBit, ds.PixelRepresentation = 16, 16, 15, 1
        ds.RescaleSlope, ds.RescaleIntercept = 1, -1024
        ds.PixelData = volume[z].tobytes()
        ds.is_little_endian, ds.is_implicit_VR = True, False
        ds.save_as(str(folder / ("s%d.dcm" % z)), write_like_original=False)
    lazy = tarv.open(folder)
    whole = tarv.open(folder, lazy=False)
    assert not lazy.in_memory and whole.in_memory
    assert lazy.modality_lut == whole.modality_lut == (1.0, -1024.0)
    assert lazy.origin == whole.origin and lazy.spacing == whole.spacing
    assert np.array_equal(lazy.to_array(np.s_[3:4]), volume[3:4])
    assert np.array_equal(np.asarray(lazy), volume)
    assert np.array_equal(np.asarray(whole), volume)

    # A slice file rewritten in place under a lazy dataset: an error, not the new pixels.
    lazy = tarv.open(folder)
    assert np.array_equal(lazy.to_array(np.s_[0:1]), volume[0:1])
    time.sleep(0.03)  # file times are as fine as the kernel's clock tick
    with open(folder / "s2.dcm", "r+b") as f:
        f.seek(-volume[2].nbytes, os.SEEK_END)
        f.write((volume[2] + 7).tobytes())
    with pytest.raises(OSError, match="changed on disk since it was opened"):
        lazy.to_array(np.s_[2:3])

    # A malformed DICOM file in the folder is refused by name before GDCM reads it.
    (folder / "s2.dcm").write_bytes(b"\0" * 128 + b"DICM" + b"\x02\x00\x02\x00UI\x1a\x001.2.840.10008.5.1.4.1.1.2\0"
                                    + b"\x02\x00\x10\x00UI\x14\x001.2.840.10008.1.2.1\0"
                                    + b"\x08\x00\x3e\x10LO\x10\xe0oblique")
    with pytest.raises(ValueError, match=r"s2.dcm: element \(0008,103e\) of 57360 bytes runs past the end of the file"):
        tarv.open(folder)


def test_nifti_geometry_beyond_32_bit_floats_is_written_as_nifti2(tmp_path):
    volume = ct_like((3, 4, 5))
    d = tarv.Dataset.from_array(volume, spacing=(0.5, 0.5, 1.0), origin=(1e300, -2e200, 3.0))
    tarv.write(d, tmp_path / "far.nii")
    image = nib.load(tmp_path / "far.nii")
    assert isinstance(image, nib.Nifti2Image)
    assert np.allclose(image.affine[:3, 3], (-1e300, 2e200, 3.0))
    back = tarv.open(tmp_path / "far.nii")
    assert np.allclose(back.origin[:3], (1e300, -2e200, 3.0))
    assert np.array_equal(np.asarray(back), volume)


def _gzip_nrrd(path, data, compressed):
    header = b"NRRD0004\ntype: short\ndimension: 3\nsizes: 5 4 3\nendian: little\nencoding: gzip\n\n"
    path.write_bytes(header + compressed)


def test_nrrd_gzip_data_is_checked_before_it_is_read(tmp_path):
    volume = ct_like((3, 4, 5))
    good = gzip.compress(volume.tobytes())
    _gzip_nrrd(tmp_path / "good.nrrd", volume, good)
    assert np.array_equal(np.asarray(tarv.open(tmp_path / "good.nrrd")), volume)
    bad_check = bytearray(good)
    bad_check[-6] ^= 0xFF  # the CRC
    _gzip_nrrd(tmp_path / "crc.nrrd", volume, bytes(bad_check))
    with pytest.raises(ValueError, match="the gzip data is corrupt"):
        tarv.open(tmp_path / "crc.nrrd")
    _gzip_nrrd(tmp_path / "cut.nrrd", volume, good[: len(good) // 2])
    with pytest.raises(ValueError, match="the gzip data ends early"):
        tarv.open(tmp_path / "cut.nrrd")
    _gzip_nrrd(tmp_path / "short.nrrd", volume, gzip.compress(volume.tobytes()[:100]))
    with pytest.raises(ValueError, match="the gzip data holds 100 bytes, the header asks for 120"):
        tarv.open(tmp_path / "short.nrrd")
