"""Steady heat conduction along a bar of hexa8 elements, from Python: the C++
example examples/conduction.cpp step for step. Case (a) holds both ends, case (b)
holds x = 0 and lets a flux q enter at x = L; both fields are linear in x, which
trilinear elements reproduce at the nodes. Prints the largest gap to them and the
heat the held ends give back beside the heat through the bar.

    python3 conduction.py [picture.png] [elements along the length]
"""
import sys

import numpy as np

import kelt

L, b, h = 2.0, 0.1, 0.1  # m
k = 50.0  # W / (m K)
T0, T1 = 20.0, 120.0  # deg C
q = 5000.0  # W / m^2


def solve(along=20, threads=2):
    nx, ny, nz = along, 2, 2

    def node(i, j, l):
        return (l * (ny + 1) + j) * (nx + 1) + i

    nbr_nodes = (nx + 1) * (ny + 1) * (nz + 1)
    l, j, i = (a.ravel() for a in np.meshgrid(np.arange(nz + 1), np.arange(ny + 1), np.arange(nx + 1), indexing="ij"))
    pos = np.stack([L * i / nx, b * j / ny, h * l / nz])  # 3 x nodes, C order
    l, j, i = (a.ravel() for a in np.meshgrid(np.arange(nz), np.arange(ny), np.arange(nx), indexing="ij"))
    cells = np.stack([node(i, j, l), node(i + 1, j, l), node(i + 1, j + 1, l), node(i, j + 1, l),
                      node(i, j, l + 1), node(i + 1, j, l + 1), node(i + 1, j + 1, l + 1), node(i, j + 1, l + 1)])

    ctx = kelt.context()
    ctx.set_max_threads(threads)
    dofs = kelt.DOFs_mgr(nbr_nodes, False)
    dofs.set_nodes(np.arange(nbr_nodes), kelt.temperature_tag, True)
    conductivity = kelt.law_scalar()
    conductivity.init(k)
    physics = kelt.model_heat_conduction_3d()
    physics.init(conductivity)
    model = kelt.numerical_model_heat_conduction(ctx)
    model.init(ctx, physics, cells, kelt.element_hexa8)
    problem = kelt.problem_data(ctx, pos, dofs, model.get_ID(), 2)

    held, heated = problem.get_loads_mgr(0), problem.get_loads_mgr(1)
    area = b * h
    for ll in range(nz + 1):
        for jj in range(ny + 1):
            cold = int(kelt.DOFs_mgr.ID(node(0, jj, ll), kelt.temperature_tag, 0))
            hot = int(kelt.DOFs_mgr.ID(node(nx, jj, ll), kelt.temperature_tag, 0))
            share = (0.5 if jj in (0, ny) else 1.0) * (0.5 if ll in (0, nz) else 1.0) / (ny * nz)
            held.record_DOF_prescribed_value(cold, T0, 0)
            held.record_DOF_prescribed_value(hot, T1, 0)
            heated.record_DOF_prescribed_value(cold, T0, 0)
            heated.record_DOF_load(hot, q * area * share, 0)

    solver = kelt.solver_thermal_static_linear()
    data = kelt.solver_thermal_static_linear.data_type(problem)
    solver.run(data)

    worst, xs, Tas, Tbs = 0.0, [], [], []
    for ii in range(nx + 1):
        x = L * ii / nx
        exact_a, exact_b = T0 + (T1 - T0) * x / L, T0 + q * x / k
        for ll in range(nz + 1):
            for jj in range(ny + 1):
                ID = int(kelt.DOFs_mgr.ID(node(ii, jj, ll), kelt.temperature_tag, 0))
                Ta, Tb = data.U.getID_val(ID, 0), data.U.getID_val(ID, 1)
                worst = max(worst, max(abs(Ta - exact_a) / (T1 - T0), abs(Tb - exact_b) / (q * L / k)))
                if jj == ny // 2 and ll == nz // 2:
                    xs.append(x), Tas.append(Ta), Tbs.append(Tb)

    reactions = kelt.solver_reactions()
    ends = kelt.solver_reactions.data_type(problem)
    ends.U = data.U
    reactions.run(ends)
    cold_a = hot_a = cold_b = 0.0
    for ll in range(nz + 1):
        for jj in range(ny + 1):
            cold = int(kelt.DOFs_mgr.ID(node(0, jj, ll), kelt.temperature_tag, 0))
            hot = int(kelt.DOFs_mgr.ID(node(nx, jj, ll), kelt.temperature_tag, 0))
            cold_a += ends.reactions.getID_val(cold, 0)
            hot_a += ends.reactions.getID_val(hot, 0)
            cold_b += ends.reactions.getID_val(cold, 1)
    return dict(worst=worst, cold_a=cold_a, hot_a=hot_a, cold_b=cold_b,
                flow_a=k * area * (T1 - T0) / L, flow_b=q * area, x=xs, Ta=Tas, Tb=Tbs)


def main():
    png = sys.argv[1] if len(sys.argv) > 1 else "conduction.png"
    r = solve(int(sys.argv[2]) if len(sys.argv) > 2 else 20)
    print(f"largest gap to the linear field, relative to the rise along the bar: {r['worst']:.1e}")
    print(f"(a) heat at the held ends: cold {r['cold_a']:+.6e}, hot {r['hot_a']:+.6e} W"
          f"   k A (T1 - T0) / L = {r['flow_a']:.6e} W")
    print(f"(b) heat at the cold end : {r['cold_b']:+.6e} W   q A = {r['flow_b']:.6e} W")
    fa, fb = r["flow_a"], r["flow_b"]
    ok = (r["worst"] < 1e-6 and abs(r["cold_a"] + fa) < 1e-6 * fa and abs(r["hot_a"] - fa) < 1e-6 * fa
          and abs(r["cold_b"] + fb) < 1e-9 * fb)

    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    fig, ax = plt.subplots(figsize=(6, 3.5))
    ax.plot(r["x"], r["Ta"], "o", label="(a) both ends held")
    ax.plot(r["x"], r["Tb"], "s", label="(b) flux q at x = L")
    x = np.array(r["x"])
    ax.plot(x, T0 + (T1 - T0) * x / L, "k--", lw=0.8, label="linear fields")
    ax.plot(x, T0 + q * x / k, "k--", lw=0.8)
    ax.set_xlabel("x (m)")
    ax.set_ylabel("T (deg C)")
    ax.legend()
    fig.tight_layout()
    fig.savefig(png, dpi=100)
    print(f"wrote {png}")
    print("checks passed" if ok else "CHECK FAILED")
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
