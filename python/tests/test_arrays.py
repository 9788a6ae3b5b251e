"""Arrays in and out: inputs in any order and integer dtype, results as views."""
import gc

import numpy as np
import pytest

import kelt
import conduction


def small_bar(pos_order="C", cell_dtype=np.int64):
    """A 4-element bar of hexa8 conduction elements, both ends held; returns (problem, keep-alive)."""
    nx = 4
    n = 4 * (nx + 1)
    i = np.arange(n) % (nx + 1)
    c = np.arange(n) // (nx + 1)
    pos = np.asarray(np.stack([i * 0.5, (c % 2) * 0.1, (c // 2) * 0.1]), order=pos_order)
    e = np.arange(nx)
    cells = np.stack([e, e + 1, e + 1 + (nx + 1), e + (nx + 1)])
    cells = np.asarray(np.concatenate([cells, cells + 2 * (nx + 1)]), dtype=cell_dtype)
    ctx = kelt.context()
    dofs = kelt.DOFs_mgr(n, False)
    dofs.set_nodes(np.arange(n), kelt.temperature_tag, True)
    law = kelt.law_scalar()
    law.init(2.0)
    phys = kelt.model_heat_conduction_3d()
    phys.init(law)
    model = kelt.numerical_model_heat_conduction(ctx)
    model.init(ctx, phys, cells, kelt.element_hexa8)
    problem = kelt.problem_data(ctx, pos, dofs, model.get_ID(), 1)
    loads = problem.get_loads_mgr(0)
    ends = np.concatenate([np.arange(0, n, nx + 1), np.arange(nx, n, nx + 1)])
    temps = np.where(ends % (nx + 1) == 0, 10.0, 30.0)
    loads.record_DOF_prescribed_values(kelt.DOFs_mgr.ID(ends, kelt.temperature_tag, 0), temps, 0)
    return problem, pos, ctx


def solve(problem):
    solver = kelt.solver_thermal_static_linear()
    data = kelt.solver_thermal_static_linear.data_type(problem)
    solver.run(data)
    return data


def test_any_order_and_dtype_give_the_same_field():
    # The field is linear in x: 10 + 20 x / 2 at every node, whatever the layout of the inputs.
    results = []
    for order, dtype in [("C", np.int64), ("F", np.int32), ("C", np.uint32), ("F", np.float64)]:
        problem, pos, _ = small_bar(order, dtype)
        U = solve(problem).U
        ids = U.get_IDs()
        x = pos[0, ids // kelt.DOFs_mgr.stride()]
        np.testing.assert_allclose(U.values[:, 0], 10.0 + 20.0 * x / 2.0, rtol=1e-12)
        results.append(U.values[np.argsort(ids), 0])
    for r in results[1:]:
        assert np.array_equal(r, results[0])


def test_results_are_views_that_outlive_everything():
    problem, _, ctx = small_bar()
    data = solve(problem)
    U = data.U
    arr = U.values
    assert not arr.flags.owndata and arr.base is not None
    # A change through the library is seen in the array, and one through the array by the library.
    ID = int(U.get_IDs()[1])
    U.setID_val(ID, 0, 123.5)
    assert arr[1, 0] == 123.5
    arr[2, 0] = -7.25
    assert U.get_val(2, 0) == -7.25
    energies = data.energies
    kept, kept_e = arr.copy(), energies.copy()
    del U, data, problem, ctx
    gc.collect()
    assert np.array_equal(arr, kept) and np.array_equal(energies, kept_e)


def test_positions_are_copied_once_and_shared_back():
    problem, pos, _ = small_bar("F")
    view = problem.get_pos_matrix()
    assert view.shape == pos.shape and np.array_equal(view, pos)
    assert not np.shares_memory(view, pos)  # the library's own copy ...
    assert np.shares_memory(view, problem.get_pos_matrix())  # ... which the views share


def test_vectorised_IDs_match_the_scalar_ones():
    nodes = np.arange(7)
    comps = np.array([[0], [1], [2]])
    ids = kelt.DOFs_mgr.ID(nodes, kelt.displacement_tag, comps)
    assert ids.shape == (3, 7)
    for c in range(3):
        for n in nodes:
            assert ids[c, n] == kelt.DOFs_mgr.ID(int(n), kelt.displacement_tag, c)
    assert len(set(ids.ravel().tolist())) == ids.size


def test_negative_or_huge_indices_are_refused():
    ctx = kelt.context()
    law = kelt.law_scalar()
    law.init(1.0)
    phys = kelt.model_heat_conduction_3d()
    phys.init(law)
    model = kelt.numerical_model_heat_conduction(ctx)
    for bad in (np.full((8, 1), -1), np.full((8, 1), 2 ** 33), np.full((8, 1), 0.5)):
        with pytest.raises(kelt.Error) as e:
            model.init(ctx, phys, bad, kelt.element_hexa8)
        assert e.value.code == kelt.invalid_data_error


def test_a_result_goes_to_a_vtu_file(tmp_path):
    problem, pos, _ = small_bar()
    U = solve(problem).U
    out = kelt.io.vtu_writer(pos)
    out.add_point_field("T", 1, kelt.io.node_values(U, pos.shape[1], kelt.temperature_tag, 0, 0))
    out.write(str(tmp_path / "bar.vtu"))
    data = (tmp_path / "bar.vtu").read_bytes()
    assert b"UnstructuredGrid" in data and b'Name="T"' in data
