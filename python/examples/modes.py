"""The first vibration modes of a clamped steel cantilever of hexa27 solids,
10 x 1 x 0.6, from Python (the C++ example examples/modes.cpp step for step),
beside Euler-Bernoulli theory f = (beta L)^2 / (2 pi L^2) sqrt(E I / (rho A)) for
the two lowest bending modes in each plane; writes a PNG of the mode shapes.

    python3 modes.py [picture.png] [elements along the length]
"""
import math
import sys

import numpy as np

import kelt
from cantilever import Grid

L, b, h = 10.0, 1.0, 0.6  # t, N, mm
E, nu, rho = 210000.0, 0.3, 7.85e-9


def solve(along=16, threads=2):
    grid = Grid(along, 2, 2, L, b, h)
    ctx = kelt.context()
    ctx.set_max_threads(threads)
    dofs = kelt.DOFs_mgr(grid.nbr_nodes(), False)
    dofs.set_nodes(np.arange(grid.nbr_nodes()), kelt.displacement_tag, True)
    k, j = np.meshgrid(np.arange(grid.gz), np.arange(grid.gy), indexing="ij")
    dofs.set_nodes(grid.node(0, j.ravel(), k.ravel()), kelt.displacement_tag, False)

    steel, density = kelt.law_solid_StVenant(), kelt.law_scalar()
    steel.init([E, nu, 0.0])
    density.init(rho)
    solid, inertia = kelt.model_solid_lin(), kelt.model_solid_mass()
    solid.init(steel)
    inertia.init(density)
    cells = grid.connectivity()
    stiffness, mass = kelt.numerical_model_stiff_lin(ctx), kelt.numerical_model_mass(ctx)
    stiffness.init(ctx, solid, cells, kelt.element_hexa27)
    mass.init(ctx, inertia, cells, kelt.element_hexa27)
    beam = kelt.numerical_model_composite(ctx)
    beam.insert([stiffness.get_ID(), mass.get_ID()])
    points = grid.points()
    problem = kelt.problem_data(ctx, points.T, dofs, beam.get_ID(), 0)

    solver = kelt.solver_modal()
    solver.settings.max_modes = 4
    solver.settings.tolerance = 1e-8
    data = kelt.solver_modal.data_type(problem)
    solver.run(data)

    roots = [1.8751040687119611, 4.6940911329741745]
    theory = []
    for r in roots:
        factor = r * r / (2.0 * math.pi * L * L)
        theory.append((factor * math.sqrt(E * (b * h ** 3 / 12.0) / (rho * b * h)), "bending across h"))
        theory.append((factor * math.sqrt(E * (h * b ** 3 / 12.0) / (rho * b * h)), "bending across b"))
    theory.sort()
    # The axis' deflections of each mode, read off the modes' array (rows: free DOFs).
    axis = grid.node(np.arange(grid.gx), grid.gy // 2, grid.gz // 2)
    rows = {int(ID): r for r, ID in enumerate(data.modes.get_IDs())}
    shapes = [[np.array([data.modes.values[rows[ID], m] if ID in rows else 0.0
                         for ID in kelt.DOFs_mgr.ID(axis, kelt.displacement_tag, c)]) for c in (1, 2)]
              for m in range(data.modes.cols())]
    return data.freqs, theory, points[axis, 0], shapes, data.nbr_free_DOFs


def main():
    png = sys.argv[1] if len(sys.argv) > 1 else "modes.png"
    freqs, theory, x, shapes, free = solve(int(sys.argv[2]) if len(sys.argv) > 2 else 16)
    print(f"kelt FEM {kelt.version()} from Python; {free} free DOFs")
    # The tolerances of the C++ example: shear and rotary inertia lower the solid's
    # frequencies by about 3 (depth / L)^2, more on the shorter second waves.
    tolerance = [1e-2, 1e-2, 3e-2, 6e-2]
    ok = len(freqs) == 4
    for i, f in enumerate(freqs[:4]):
        g = abs(f - theory[i][0]) / theory[i][0]
        print(f"  mode {i + 1}: {f:12.2f} Hz   Euler-Bernoulli {theory[i][0]:12.2f} Hz ({theory[i][1]})"
              f"   gap {100 * g:.2f} %")
        ok = ok and g < tolerance[i]

    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    fig, ax = plt.subplots(figsize=(6, 3.5))
    for i, (v, w) in enumerate(shapes):
        main_part = v if np.abs(v).max() > np.abs(w).max() else w
        ax.plot(x, main_part / np.abs(main_part).max(), label=f"mode {i + 1}, {freqs[i]:.1f} Hz")
    ax.set_xlabel("x")
    ax.set_ylabel("normalised deflection")
    ax.legend()
    fig.tight_layout()
    fig.savefig(png, dpi=100)
    print(f"wrote {png}")
    print("checks passed" if ok else "CHECK FAILED")
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
