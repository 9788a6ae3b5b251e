"""kelt FEM from Python: the library's handles, records and solvers.

Arrays go in as NumPy arrays (copied once into the library's containers) and
results come back as arrays on the library's own buffers. A run releases the GIL,
stops on Ctrl-C with KeyboardInterrupt, and raises kelt.Error on an error code.
"""
from ._kelt import *  # noqa: F401,F403
import sys as _sys

from ._kelt import Error, io, version  # noqa: F401

_sys.modules[__name__ + ".io"] = io  # so that `import kelt.io` works too
