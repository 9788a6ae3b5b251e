"""The cost of running from Python: the clamped hexa8 block of 4n x n x n elements
(n = 20 is the reference block of static_bench) built from NumPy arrays, then
solver_static_linear.run timed around the Python call and beside the run's own
total timer, which is what the C++ run costs. Prints both and the overhead, and
the peak memory of the process beside the bytes of the input arrays.

    PYTHONPATH=build/python python3 bench/python_overhead.py [n] [threads] [repeats]

With repeats 0 only the model is built: n = 28 gives 9.5e4 nodes, for the memory
a model costs from Python beside its input arrays.
"""
import resource
import sys
import time

import numpy as np

import kelt


def block(ctx, n):
    nx, ny, nz = 4 * n, n, n
    gx, gy, gz = nx + 1, ny + 1, nz + 1
    k, j, i = (a.ravel() for a in np.meshgrid(np.arange(gz), np.arange(gy), np.arange(gx), indexing="ij"))
    points = np.stack([4.0 * i / nx, j / ny, k / nz], axis=1)  # nodes x 3, as a mesher gives them

    def node(i, j, k):
        return (k * gy + j) * gx + i

    k, j, i = (a.ravel() for a in np.meshgrid(np.arange(nz), np.arange(ny), np.arange(nx), indexing="ij"))
    cells = np.stack([node(i, j, k), node(i + 1, j, k), node(i + 1, j + 1, k), node(i, j + 1, k),
                      node(i, j, k + 1), node(i + 1, j, k + 1), node(i + 1, j + 1, k + 1), node(i, j + 1, k + 1)],
                     axis=1)  # elements x 8
    dofs = kelt.DOFs_mgr(len(points), True)
    dofs.set_nodes(np.flatnonzero(points[:, 0] == 0.0), kelt.displacement_tag, False)
    law = kelt.law_solid_StVenant()
    law.init([210000.0, 0.3, 0.0])
    solid = kelt.model_solid_lin()
    solid.init(law)
    model = kelt.numerical_model_stiff_lin(ctx)
    model.init(ctx, solid, cells.T, kelt.element_hexa8)
    problem = kelt.problem_data(ctx, points.T, dofs, model.get_ID(), 1)
    tip = np.flatnonzero(points[:, 0] == 4.0)
    problem.get_loads_mgr(0).record_DOF_loads(kelt.DOFs_mgr.ID(tip, kelt.displacement_tag, 2),
                                              np.full(tip.size, -1.0 / tip.size), 0)
    return problem, points.nbytes + cells.nbytes


def main():
    n = int(sys.argv[1]) if len(sys.argv) > 1 else 6
    threads = int(sys.argv[2]) if len(sys.argv) > 2 else 1
    repeats = int(sys.argv[3]) if len(sys.argv) > 3 else 3
    ctx = kelt.context()
    ctx.set_max_threads(threads)
    before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024
    problem, input_bytes = block(ctx, n)
    built = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024
    nodes = problem.get_pos_matrix().shape[1]
    print(f"{nodes} nodes: peak memory {before:.0f} MB after import, {built:.0f} MB with the model"
          f" ({built - before:.1f} MB); positions and cells as NumPy arrays {input_bytes / 2 ** 20:.1f} MB")
    solver = kelt.solver_static_linear()
    print(f"block {4 * n} x {n} x {n} hexa8, {threads} thread(s)")
    for r in range(repeats):
        data = kelt.solver_static_linear.data_type(problem)
        t0 = time.perf_counter()
        solver.run(data)
        wall = time.perf_counter() - t0
        print(f"run {r}: {data.nbr_free_DOFs} DOFs, Python call {wall:.4f} s, run's own total {data.time_total:.4f} s,"
              f" overhead {100 * (wall - data.time_total) / data.time_total:+.2f} %")
    peak = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024
    print(f"peak memory {peak:.0f} MB; input arrays {input_bytes / 2 ** 20:.1f} MB")


if __name__ == "__main__":
    main()
