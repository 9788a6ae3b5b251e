import os
import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "examples"))


@pytest.fixture
def cpp_example():
    """Runs a C++ example program with every digit printed, on one thread (two threads
    may add independent blocks in either order); returns its numbers."""
    import subprocess

    folder = os.environ.get("KELT_EXAMPLES")
    if not folder:
        pytest.skip("KELT_EXAMPLES (the build's examples folder) is not set")

    def run(name, *args):
        out = subprocess.run([os.path.join(folder, "example_" + name), *map(str, args)], check=False,
                             capture_output=True, text=True, env={**os.environ, "KELT_EXACT": "1", "OMP_NUM_THREADS": "1"}).stdout
        line = next(l for l in out.splitlines() if l.startswith("exact "))
        return [float(v) for v in line.split()[1:]]

    return run
