"""Binary segmentations (non-zero voxels are the object): counts, groups and comparisons.

The measures are the library's, as ``tarv seg-compare`` prints them: Dice 2|A and B| / (|A| + |B|),
Jaccard |A and B| / |A or B|, the Hausdorff and average border distances in world units. Measures
without meaning (Dice of two empty segmentations, distances to an empty one) are None.
"""
from . import _tarv

__all__ = ["count", "compare", "dice", "jaccard", "hausdorff_distance", "average_border_distance", "group",
           "remove_small_groups"]


def count(segmentation, t=0):
    """The number of object voxels of time step t."""
    return _tarv._count(segmentation, t)


def compare(a, b, t=0):
    """Every measure of two segmentations of the same size and geometry, as a dict: voxels_a,
    voxels_b, shared, only_a, only_b, union, difference, dice, jaccard, hausdorff_distance,
    average_border_distance."""
    return _tarv._compare(a, b, t)


def dice(a, b, t=0):
    return compare(a, b, t)["dice"]


def jaccard(a, b, t=0):
    return compare(a, b, t)["jaccard"]


def hausdorff_distance(a, b, t=0):
    return compare(a, b, t)["hausdorff_distance"]


def average_border_distance(a, b, t=0):
    return compare(a, b, t)["average_border_distance"]


def group(segmentation, start, value=1, limit=2 ** 31 - 1):
    """The 6-connected voxels equal to value grown from start (x, y, z[, t]), as (x, y, z) tuples in
    the order found; growth stops past limit voxels."""
    return _tarv._group(segmentation, list(start), float(value), int(limit))


def remove_small_groups(segmentation, maximal_size, value=1):
    """Sets to 0, in place, every 6-connected group of voxels equal to value with at most
    maximal_size voxels. The segmentation must be held in memory (``tarv.Dataset.from_array`` or
    ``tarv.open(..., lazy=False)``)."""
    _tarv._remove_small_groups(segmentation, float(value), int(maximal_size))
