"""tarv: datasets for medical image analysis.

Volumes of up to four axes (x, y, z, t) with vector components, in twelve element types, placed in
patient (LPS) world space; filter graphs computed on demand; files of the formats CT and MR users
have (NIfTI, DICOM series, MetaImage, NRRD, TIFF, ...); binary segmentation measures.

Arrays use NumPy's axis order (t,) z, y, x (, c), x fastest in memory, as nibabel's
``get_fdata().T`` and SimpleITK's ``GetArrayFromImage``::

    import numpy as np, tarv
    ct = tarv.open("ct.nii.gz")              # lazily read where the format allows
    hu = np.asarray(ct)                      # (z, y, x), the file's element type
    smooth = tarv.filters.smooth(ct, kernel_x_size=3, kernel_y_size=3, kernel_z_size=3)
    tarv.write(smooth, "smooth.nii.gz")
"""
import os as _os

import numpy as _np

from . import _tarv
from ._tarv import (Dataset, Graph, allocation_cap, describe_graph, element_types, filter_entries, filter_types, formats,
                    probe_format, set_allocation_cap, set_thread_count, thread_count)

__all__ = ["Dataset", "Graph", "open", "write", "filter", "describe_graph", "filters", "segmentation",
           "formats", "probe_format", "element_types", "allocation_cap", "set_allocation_cap", "filter_types", "filter_entries", "set_thread_count",
           "thread_count"]


def open(path, lazy=True, format=None, series="", raw=None):  # noqa: A001 - the library's verb
    """Opens a dataset file (or a DICOM folder) through the library's format registry.

    The content tells the format, else the extension, unless ``format`` names it (see
    ``tarv.formats()``). With ``lazy`` the elements are read block by block as they are used where
    the format allows it (TARV1, paged TIFF, TIFF stacks, DICOM series); other files are read whole. ``series`` picks a DICOM
    series by its SeriesInstanceUID; a raw file needs ``raw=dict(size=(x, y, z[, t[, c]]),
    element_type=..., spacing=..., origin=..., byte_swap=..., header=...)``. Geometry is patient LPS.
    Raises FileNotFoundError, ValueError (naming what is unsupported) or OSError.
    """
    return _tarv._open(path, format=format, lazy=lazy, series=series, raw=raw)


def write(dataset, path, format=None, element_type=None, clamp=False, rescale=None, time=None, component=None,
          raw=None, progress=None):
    """Writes a dataset; the file is replaced only by a complete one.

    The format is ``format`` or the extension's. ``element_type`` converts the elements; values
    the type cannot hold are refused unless ``clamp=True`` or ``rescale=(low, high)`` (the data's
    range mapped linearly onto it). ``time`` and ``component`` write one time step or component.
    ``progress(fraction)`` is called as the work advances; Ctrl-C stops it and writes nothing.
    Returns a dict: format, size (x, y, z, t, c), element_type, bytes.
    """
    if not isinstance(dataset, Dataset):
        raise TypeError("write takes a tarv.Dataset, not " + type(dataset).__name__)
    return _tarv._write(dataset, path, format=format, element_type=element_type, clamp=clamp,
                        rescale=None if rescale is None else tuple(float(v) for v in rescale), time=time,
                        component=component, raw=raw, progress=progress)


def _from_array(array, spacing=(1.0, 1.0, 1.0), origin=(0.0, 0.0, 0.0), direction=None, components=False,
                time_spacing=1.0):
    """A new in-memory dataset holding a copy of the array.

    Shapes: (y, x), (z, y, x) or (t, z, y, x); with ``components=True`` a further last axis holds
    the vector components. ``spacing`` and ``origin`` are (x, y, z) in world units (patient LPS);
    ``direction`` is a 3 x 3 matrix whose columns are the world directions of the x, y, z axes.
    Every NumPy type of the twelve element types is taken, in either byte order.
    """
    array = _np.asarray(array)
    if array.dtype.byteorder not in "=|" and not array.dtype.isnative:
        array = array.astype(array.dtype.newbyteorder("="))
    array = _np.ascontiguousarray(array)
    shape = list(array.shape)
    c = shape.pop() if components else 1
    if components and array.ndim < 3 or len(shape) < 2 or len(shape) > 4:
        raise ValueError("from_array takes (y, x), (z, y, x) or (t, z, y, x) arrays, with components=True a "
                         "further last axis; got shape %s" % (array.shape,))
    while len(shape) < 4:
        shape.insert(0, 1)
    t, z, y, x = shape
    spacing = tuple(float(v) for v in spacing)
    origin = tuple(float(v) for v in origin)
    if len(spacing) != 3 or len(origin) != 3:
        raise ValueError("spacing and origin take x, y, z")
    direction = None if direction is None else _np.asarray(direction, dtype=float).tolist()
    return Dataset._from_array(array, [x, y, z, t, c], list(spacing) + [float(time_spacing)], list(origin) + [0.0],
                               direction)


def _box_of(dataset, box):
    """Start and end (x, y, z, t, c; inclusive) of a tuple of slices over the (t,) z, y, x axes."""
    x, y, z, t, c = dataset.size
    axes = ([t] if t > 1 else []) + [z, y, x]
    if not isinstance(box, tuple):
        box = (box,)
    if len(box) > len(axes):
        raise IndexError("the box has more axes than the dataset's (t,) z, y, x")
    box = box + (slice(None),) * (len(axes) - len(box))
    ranges = []
    for extent, part in zip(axes, box):
        if not isinstance(part, slice):
            raise TypeError("the box is a tuple of slices, as numpy.s_[10:20, :, 5:9]")
        first, stop, step = part.indices(extent)
        if step != 1 or stop <= first:
            raise IndexError("box slices must be non-empty, with step 1")
        ranges.append((first, stop - 1))
    if t <= 1:
        ranges.insert(0, (0, 0))
    (t0, t1), (z0, z1), (y0, y1), (x0, x1) = ranges
    return [x0, y0, z0, t0, 0], [x1, y1, z1, t1, c - 1]


def _to_array(self, box=None):
    """The elements as a NumPy array: all of them (as numpy.asarray), or a box given as slices over
    the (t,) z, y, x axes (``numpy.s_[10:20, :, 5:9]``), computing only what the box needs."""
    if box is None:
        return _np.asarray(self)
    start, end = _box_of(self, box)
    return self._array_of_box(start, end)


def _compute_box(self, box):
    """Computes the elements of a box (slices over the (t,) z, y, x axes) in bulk; returns the dataset."""
    start, end = _box_of(self, box)
    return self._compute_box(start, end)


Dataset.from_array = staticmethod(_from_array)
Dataset.to_array = _to_array
Dataset.compute_box = _compute_box


def filter(type_name, *sources, **entries):  # noqa: A001 - the library's name for it
    """A filter of the named class (``tarv.filter_types()``) over the source datasets.

    Entries are the class's description entries in snake_case (``kernel_x_size=5`` for
    KernelXSize; ``tarv.filter_entries(type)`` lists them with their defaults); element types may
    be given by name or NumPy dtype. The filter keeps its sources alive. ValueError names an
    entry or a value the class does not take.
    """
    for source in sources:
        if not isinstance(source, Dataset):
            raise TypeError("filter sources are tarv.Dataset objects, not " + type(source).__name__)
    named = {}
    for key, value in entries.items():
        name = "".join(part[:1].upper() + part[1:] for part in key.split("_"))
        if name == "ElementType" and not isinstance(value, (int, float)):
            value = _tarv._element_type_number(value)
        named[name] = value
    return _tarv._make_filter(type_name, list(sources), named)


from . import filters, segmentation  # noqa: E402
