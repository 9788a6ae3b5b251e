"""Runs from Python: errors, warnings, the log, threads and Ctrl-C."""
import logging
import os
import re
import signal
import tempfile
import threading
import time

import numpy as np
import pytest

import kelt
import cantilever
from test_arrays import small_bar, solve


def floating_block(nx=2):
    """A hexa8 bar with nothing held: its stiffness is singular."""
    n = 4 * (nx + 1)
    i, c = np.arange(n) % (nx + 1), np.arange(n) // (nx + 1)
    pos = np.stack([i * 1.0, (c % 2) * 1.0, (c // 2) * 1.0])
    e = np.arange(nx)
    quad = np.stack([e, e + 1, e + 1 + (nx + 1), e + (nx + 1)])
    cells = np.concatenate([quad, quad + 2 * (nx + 1)])
    ctx = kelt.context()
    dofs = kelt.DOFs_mgr(n, False)
    dofs.set_nodes(np.arange(n), kelt.displacement_tag, True)
    law = kelt.law_solid_StVenant()
    law.init([210000.0, 0.3, 0.0])
    phys = kelt.model_solid_lin()
    phys.init(law)
    model = kelt.numerical_model_stiff_lin(ctx)
    model.init(ctx, phys, cells, kelt.element_hexa8)
    problem = kelt.problem_data(ctx, pos, dofs, model.get_ID(), 1)
    problem.get_loads_mgr(0).record_DOF_load(int(kelt.DOFs_mgr.ID(n - 1, kelt.displacement_tag, 2)), 1.0, 0)
    return problem, ctx


def run_static(problem, **settings):
    solver = kelt.solver_static_linear()
    for k, v in settings.items():
        setattr(solver.settings, k, v)
    data = kelt.solver_static_linear.data_type(problem)
    solver.run(data)
    return data


def call_singular():
    run_static(floating_block()[0])


def call_no_model():
    ctx = kelt.context()
    run_static(kelt.problem_data(ctx))


def call_bad_connectivity():
    ctx = kelt.context()
    law = kelt.law_solid_StVenant()
    law.init([210000.0, 0.3, 0.0])
    phys = kelt.model_solid_lin()
    phys.init(law)
    kelt.numerical_model_stiff_lin(ctx).init(ctx, phys, np.zeros((5, 2)), kelt.element_hexa8)


def call_empty_physics():
    ctx = kelt.context()
    kelt.numerical_model_stiff_lin(ctx).init(ctx, kelt.model_solid_lin(), np.zeros((8, 1)), kelt.element_hexa8)


def call_value_out_of_range():
    kelt.FEM_matrix(np.arange(3), 2).get_val(3, 0)


def call_DOF_out_of_range():
    kelt.DOFs_mgr(2, True).get(9 * 5)


def call_missing_mesh():
    kelt.io.read_gmsh("/nonexistent/part.msh")


def call_vtu_bad_cells():
    kelt.io.vtu_writer(np.zeros((3, 2))).add_cells(kelt.element_hexa8, np.zeros((8, 1)) + 5)


@pytest.mark.parametrize("call,code", [
    (call_missing_mesh, kelt.file_open_error),
    (call_vtu_bad_cells, kelt.element_index_error),
    (call_singular, kelt.pivot_error),
    (call_no_model, kelt.invalid_data_error),
    (call_bad_connectivity, kelt.connectivity_size_error),
    (call_empty_physics, kelt.invalid_data_error),
    (call_value_out_of_range, kelt.invalid_data_error),
    (call_DOF_out_of_range, kelt.invalid_data_error),
])
def test_every_error_raises_kelt_error_with_its_code(call, code):
    with pytest.raises(kelt.Error) as e:
        call()
    assert e.value.code == int(code)
    assert e.value.args[0] == int(code) and isinstance(e.value.title, str)


def test_a_warning_becomes_a_python_warning():
    # Forced pivots let the singular block through, with the pivot warning.
    with pytest.warns(RuntimeWarning, match=str(int(kelt.pivot_warning))):
        data = run_static(floating_block()[0], force_pivots=True)
    assert data.warning_code == kelt.pivot_warning and data.nbr_bad > 0


def test_log_to_a_callable_and_to_logging(caplog):
    problem, _, _ = small_bar()
    lines = []
    solver = kelt.solver_thermal_static_linear()
    solver.log = lambda level, text: lines.append((level, text))
    solver.run(kelt.solver_thermal_static_linear.data_type(problem))
    assert lines and all(isinstance(l, int) and t and not t.endswith("\n") for l, t in lines)
    solver.log = logging.getLogger("kelt.test")
    with caplog.at_level(logging.INFO, logger="kelt.test"):
        solver.run(kelt.solver_thermal_static_linear.data_type(problem))
    # The same lines but for the times they report.
    strip = lambda t: re.sub(r"[\d.]+ s\.", "", t).strip()
    assert [strip(r.getMessage()) for r in caplog.records] == [strip(t) for _, t in lines]


def test_an_exception_in_the_log_stops_the_run_and_comes_back():
    problem, _, _ = small_bar()

    def broken(level, text):
        raise ValueError("log refused")

    solver = kelt.solver_thermal_static_linear()
    solver.log = broken
    with pytest.raises(ValueError, match="log refused"):
        solver.run(kelt.solver_thermal_static_linear.data_type(problem))


def test_two_threads_with_their_own_contexts_match_a_serial_run():
    # One OpenMP thread a context, so that each run has one order of sums.
    serial = [cantilever.solve(3, threads=1), cantilever.solve(4, threads=1)]
    out = [None, None]

    def work(k):
        out[k] = cantilever.solve(3 + k, threads=1)

    threads = [threading.Thread(target=work, args=(k,)) for k in range(2)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    for s, p in zip(serial, out):
        assert np.array_equal(s["line"], p["line"])
        assert (s["tip_a"], s["energy_a"], s["energy_b"], s["sxx"]) == (p["tip_a"], p["energy_a"], p["energy_b"],
                                                                         p["sxx"])


def hexa8_block(ctx, nx, ny, nz):
    """A clamped block of hexa8 solids under an end load."""
    gx, gy, gz = nx + 1, ny + 1, nz + 1
    k, j, i = (a.ravel() for a in np.meshgrid(np.arange(gz), np.arange(gy), np.arange(gx), indexing="ij"))
    pos = np.stack([4.0 * i / nx, j / ny, k / nz])
    node = lambda i, j, k: (k * gy + j) * gx + i
    k, j, i = (a.ravel() for a in np.meshgrid(np.arange(nz), np.arange(ny), np.arange(nx), indexing="ij"))
    cells = np.stack([node(i, j, k), node(i + 1, j, k), node(i + 1, j + 1, k), node(i, j + 1, k),
                      node(i, j, k + 1), node(i + 1, j, k + 1), node(i + 1, j + 1, k + 1), node(i, j + 1, k + 1)])
    n = gx * gy * gz
    dofs = kelt.DOFs_mgr(n, True)
    dofs.set_nodes(np.flatnonzero(pos[0] == 0.0), kelt.displacement_tag, False)
    law = kelt.law_solid_StVenant()
    law.init([210000.0, 0.3, 0.0])
    phys = kelt.model_solid_lin()
    phys.init(law)
    model = kelt.numerical_model_stiff_lin(ctx)
    model.init(ctx, phys, cells, kelt.element_hexa8)
    problem = kelt.problem_data(ctx, pos, dofs, model.get_ID(), 1)
    tip = np.flatnonzero(pos[0] == 4.0)
    problem.get_loads_mgr(0).record_DOF_loads(kelt.DOFs_mgr.ID(tip, kelt.displacement_tag, 2),
                                              np.full(tip.size, -1.0 / tip.size), 0)
    return problem


@pytest.mark.parametrize("sender", ["pthread_kill", "os.kill"])
def test_ctrl_c_stops_a_factorisation_within_half_a_second_and_leaves_no_file(sender):
    with tempfile.TemporaryDirectory() as swap:
        ctx = kelt.context()
        ctx.set_max_threads(2)
        # The matrix partly in swap files, in the folder path + name.
        ctx.set_max_incore_size(4, os.path.dirname(swap) + "/", os.path.basename(swap) + "/")
        problem = hexa8_block(ctx, 20, 10, 10)
        main = threading.main_thread().ident
        sent = []

        def interrupt():
            sent.append(time.monotonic())
            if sender == "pthread_kill":
                signal.pthread_kill(main, signal.SIGINT)
            else:
                os.kill(os.getpid(), signal.SIGINT)

        # The signal goes 0.2 s into the factorisation, which starts when the
        # assembly of K has been logged.
        timer = threading.Timer(0.2, interrupt)
        solver = kelt.solver_static_linear()
        solver.log = lambda level, text: timer.start() if "assembly matrix K" in text else None
        with pytest.raises(KeyboardInterrupt):
            solver.run(kelt.solver_static_linear.data_type(problem))
        stopped = time.monotonic()
        timer.join()
        assert sent, "the run ended before the signal: make the block bigger"
        assert stopped - sent[0] < 0.5, f"stopped {stopped - sent[0]:.3f} s after the signal"
        assert os.listdir(swap) == []
