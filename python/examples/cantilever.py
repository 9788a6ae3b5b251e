"""A clamped steel cantilever of hexa27 solids, from Python: the C++ example
examples/cantilever.cpp step for step, with two load cases in one run, (a) an end
shear P spread over the end face and (b) the end face pushed down by the beam's
deflection. Prints each case beside Timoshenko beam theory, the support reactions
beside the load, and writes a PNG of the deflection line (matplotlib, Agg).

    python3 cantilever.py [picture.png] [elements along the length]
"""
import sys

import numpy as np

import kelt

L, b, h = 10.0, 1.0, 1.0
E, nu = 210000.0, 0.3
P = -100.0  # total shear force of case (a), along z

# Node order of a hexa27 as positions -1, 0, 1 along each local axis: corners,
# edge midpoints, face centres, centre.
_CORNERS = [(-1, -1, -1), (1, -1, -1), (1, 1, -1), (-1, 1, -1), (-1, -1, 1), (1, -1, 1), (1, 1, 1), (-1, 1, 1)]
_EDGES = [(0, 1), (1, 2), (2, 3), (3, 0), (4, 5), (5, 6), (6, 7), (7, 4), (0, 4), (1, 5), (2, 6), (3, 7)]
_FACES = [(0, 3, 7, 4), (1, 5, 6, 2), (0, 4, 5, 1), (3, 2, 6, 7), (0, 1, 2, 3), (4, 7, 6, 5)]


def hexa27_layout():
    at = [list(c) for c in _CORNERS]
    at += [[(_CORNERS[a][k] + _CORNERS[c][k]) // 2 for k in range(3)] for a, c in _EDGES]
    at += [[sum(_CORNERS[c][k] for c in f) // 4 for k in range(3)] for f in _FACES]
    return np.array(at + [[0, 0, 0]])


class Grid:
    """The box in a grid of hexa27 elements: nodes on a grid twice as fine."""

    def __init__(self, ex, ey, ez, lx, ly, lz):
        self.ex, self.ey, self.ez, self.lx, self.ly, self.lz = ex, ey, ez, lx, ly, lz
        self.gx, self.gy, self.gz = 2 * ex + 1, 2 * ey + 1, 2 * ez + 1

    def node(self, i, j, k):
        return (k * self.gy + j) * self.gx + i

    def nbr_nodes(self):
        return self.gx * self.gy * self.gz

    def points(self):
        """nodes x 3, C order: its transpose is the library's 3 x nodes."""
        k, j, i = np.meshgrid(np.arange(self.gz), np.arange(self.gy), np.arange(self.gx), indexing="ij")
        return np.stack([self.lx * i.ravel() / (self.gx - 1), self.ly * j.ravel() / (self.gy - 1),
                         self.lz * k.ravel() / (self.gz - 1)], axis=1)

    def connectivity(self):
        """27 x elements."""
        at = hexa27_layout()
        k, j, i = np.meshgrid(np.arange(self.ez), np.arange(self.ey), np.arange(self.ex), indexing="ij")
        i, j, k = i.ravel(), j.ravel(), k.ravel()
        return self.node(2 * i[None, :] + 1 + at[:, 0:1], 2 * j[None, :] + 1 + at[:, 1:2],
                         2 * k[None, :] + 1 + at[:, 2:3])

    @staticmethod
    def line_weights(elements):
        """Simpson's 1/6, 4/6, 1/6 of each element, summed in the same order as the C++."""
        w = [0.0] * (2 * elements + 1)
        for e in range(elements):
            w[2 * e] += 1.0 / (6.0 * elements)
            w[2 * e + 1] += 4.0 / (6.0 * elements)
            w[2 * e + 2] += 1.0 / (6.0 * elements)
        return w


def gap(value, reference):
    return abs(value - reference) / abs(reference)


def solve(along=10, log=None, threads=2):
    """The two cases, their reactions and the mid-length stress; returns a dict of results."""
    grid = Grid(along, 2, 2, L, b, h)
    ctx = kelt.context()
    ctx.set_max_threads(threads)

    nodes = np.arange(grid.nbr_nodes())
    dofs = kelt.DOFs_mgr(grid.nbr_nodes(), False)
    dofs.set_nodes(nodes, kelt.displacement_tag, True)
    k, j = np.meshgrid(np.arange(grid.gz), np.arange(grid.gy), indexing="ij")
    dofs.set_nodes(grid.node(0, j.ravel(), k.ravel()), kelt.displacement_tag, False)

    steel = kelt.law_solid_StVenant()
    steel.init([E, nu, 0.0])
    solid = kelt.model_solid_lin()
    solid.init(steel)
    model = kelt.numerical_model_stiff_lin(ctx)
    model.init(ctx, solid, grid.connectivity(), kelt.element_hexa27)

    points = grid.points()
    problem = kelt.problem_data(ctx, points.T, dofs, model.get_ID(), 2)

    I, A, G, kappa = b * h * h * h / 12.0, b * h, E / (2.0 * (1.0 + nu)), 5.0 / 6.0
    delta_bending, delta_shear = P * L * L * L / (3.0 * E * I), P * L / (kappa * G * A)
    delta_beam = delta_bending + delta_shear
    stiffness_beam = P / delta_beam

    wy, wz = grid.line_weights(grid.ey), grid.line_weights(grid.ez)
    tip = grid.gx - 1
    tip_forces = []
    shear = problem.get_loads_mgr(0)
    for kk in range(grid.gz):
        for jj in range(grid.gy):
            ID = int(kelt.DOFs_mgr.ID(grid.node(tip, jj, kk), kelt.displacement_tag, 2))
            tip_forces.append((ID, P * wy[jj] * wz[kk]))
            shear.record_DOF_load(ID, P * wy[jj] * wz[kk], 0)
    d = delta_beam
    push = problem.get_loads_mgr(1)
    for ID, force in tip_forces:
        push.record_DOF_prescribed_value(ID, d, 0)

    solver = kelt.solver_static_linear()
    solver.log = log
    data = kelt.solver_static_linear.data_type(problem)
    solver.run(data)

    centre = int(kelt.DOFs_mgr.ID(grid.node(tip, grid.gy // 2, grid.gz // 2), kelt.displacement_tag, 2))
    tip_a = data.U.getID_val(centre, 0)
    work_a, worst_b = 0.0, 0.0
    for ID, force in tip_forces:
        ua, ub = data.U.getID_val(ID, 0), data.U.getID_val(ID, 1)
        work_a += force * ua
        worst_b = max(worst_b, gap(ub, d))
    energy_a, energy_b = data.energies[0], data.energies[1]
    force_b = 2.0 * energy_b / d

    reactions = kelt.solver_reactions()
    supports = kelt.solver_reactions.data_type(problem)
    supports.U = data.U
    reactions.run(supports)
    Rz, root_moment = 0.0, 0.0
    stride = kelt.DOFs_mgr.stride()
    for r, ID in enumerate(supports.reactions.get_IDs()):
        node, place = ID // stride, ID % stride
        if points[node, 0] != 0.0:
            continue
        R = supports.reactions.get_val(r, 0)
        if place == 2:
            Rz += R
        if place == 0:
            root_moment += R * (points[node, 2] - h / 2)

    stresses = kelt.solver_stress_nodal()
    nodal = kelt.solver_stress_nodal.data_type(problem)
    nodal.U = data.U
    stresses.run(nodal)
    S = nodal.get_stress_tensor(grid.node(grid.gx // 2, grid.gy // 2, grid.gz - 1), 0, kelt.displacement_tag)
    sigma_beam = -P * (L / 2) * (h / 2) / I

    # The deflection of the axis, read off the result array with no copy.
    ids = data.U.get_IDs()
    axis = grid.node(np.arange(grid.gx), grid.gy // 2, grid.gz // 2)
    rows = {int(ID): r for r, ID in enumerate(ids)}
    U = data.U.values
    line = np.array([U[rows[ID], 0] if ID in rows else 0.0
                     for ID in kelt.DOFs_mgr.ID(axis, kelt.displacement_tag, 2)])
    return dict(tip_a=tip_a, delta_beam=delta_beam, delta_bending=delta_bending, delta_shear=delta_shear,
                energy_a=energy_a, work_a=work_a, energy_b=energy_b, worst_b=worst_b, force_b=force_b,
                stiffness_beam=stiffness_beam, d=d, Rz=Rz, root_moment=root_moment, sxx=S[0, 0],
                sigma_beam=sigma_beam, nbr_free_DOFs=data.nbr_free_DOFs, x=points[axis, 0], line=line)


def main():
    png = sys.argv[1] if len(sys.argv) > 1 else "cantilever.png"
    along = int(sys.argv[2]) if len(sys.argv) > 2 else 10
    print(f"kelt FEM {kelt.version()} from Python")
    r = solve(along, log=lambda level, text: print(f"  log {level} | {'  ' * level}{text}"))
    print(f"\n{r['nbr_free_DOFs']} free DOFs")
    print(f"(a) deflection at the centre of the end : {r['tip_a']:+.6e}   Timoshenko {r['delta_beam']:+.6e}"
          f"   gap {100 * gap(r['tip_a'], r['delta_beam']):.3f} %")
    print(f"    energy {r['energy_a']:.6e} = half the work of the loads {0.5 * r['work_a']:.6e}")
    print(f"(b) force holding the end 2 W / d = {r['force_b']:+.6e}   beam stiffness x d"
          f" {r['stiffness_beam'] * r['d']:+.6e}")
    print(f"(a) reactions at the root: sum Rz {r['Rz']:+.6e} against -P {-P:+.6e}; moment"
          f" {r['root_moment']:+.6e} against P L {P * L:+.6e}")
    print(f"    sigma_xx at the top, mid-length    : {r['sxx']:+.6e}   M c / I {r['sigma_beam']:+.6e}")
    # The tolerances of the C++ example, derived there.
    ok = (gap(r['Rz'], -P) < 1e-9 and gap(r['root_moment'], P * L) < 1e-9 and gap(r['sxx'], r['sigma_beam']) < 2e-2
          and gap(r['tip_a'], r['delta_beam']) < 2e-2 and gap(r['force_b'], r['stiffness_beam'] * r['d']) < 2e-2
          and gap(r['energy_a'], 0.5 * r['work_a']) < 1e-9 and r['worst_b'] < 1e-7 and r['energy_b'] > 0.0)

    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    x = r["x"]
    beam = P * x * x * (3 * L - x) / (6 * E * b * h ** 3 / 12) + P * x / (5 / 6 * E / (2 * (1 + nu)) * b * h)
    fig, ax = plt.subplots(figsize=(6, 3.5))
    ax.plot(x, r["line"], "o-", label="hexa27 solid, axis")
    ax.plot(x, beam, "--", label="Timoshenko beam")
    ax.set_xlabel("x")
    ax.set_ylabel("deflection w")
    ax.legend()
    fig.tight_layout()
    fig.savefig(png, dpi=100)
    print(f"wrote {png}")
    print("checks passed" if ok else "CHECK FAILED")
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
