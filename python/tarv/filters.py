"""One function per filter class of the library, named after it in snake_case.

``smooth(source, kernel_x_size=3, ...)`` is ``tarv.filter("SmoothDataset", source, ...)``: the
keyword arguments are the class's description entries in snake_case, with the library's defaults.
Each returns a computed dataset that keeps its sources alive; nothing is computed until elements
are asked for (``numpy.asarray``, ``compute``, ``tarv.write``).
"""
import re as _re

from . import _tarv
from . import filter as _filter

__all__ = []


def _snake(name):
    return _re.sub(r"(?<!^)(?=[A-Z])", "_", name).lower()


def _make(type_name):
    entries = _tarv.filter_entries(type_name)
    listed = "\n".join("    %s (%s, default %s)" % (_snake(name), name, value) for name, value in entries)

    def make(*sources, **entries):
        return _filter(type_name, *sources, **entries)

    make.__name__ = _snake(type_name[:-len("Dataset")] if type_name.endswith("Dataset") else type_name)
    make.__qualname__ = make.__name__
    make.__doc__ = "The library's %s over the source datasets.\n\nKeyword entries:\n%s\n" % (type_name, listed)
    return make


for _type in _tarv.filter_types():
    _function = _make(_type)
    globals()[_function.__name__] = _function
    __all__.append(_function.__name__)
del _type, _function
