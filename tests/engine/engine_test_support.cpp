#include "engine_test_support.h"

#include <algorithm>
#include <cmath>

#include "kelt/math/dense1D.h"

namespace kelt::test {

dof_model grid_model(unsigned nx, unsigned ny, unsigned nz, unsigned per_node)
{
    dof_model m;
    auto node = [&](unsigned i, unsigned j, unsigned k) { return (k * (ny + 1) + j) * (nx + 1) + i; };
    const unsigned nodes = (nx + 1) * (ny + 1) * (nz + 1);
    for (unsigned n = 0; n < nodes; ++n)
        for (unsigned c = 0; c < per_node; ++c) m.DOFs.push_back(n * 9 + c);
    m.element_ptr.push_back(0);
    const unsigned kz = nz ? nz : 1, dk = nz ? 2 : 1;
    for (unsigned k = 0; k < kz; ++k)
        for (unsigned j = 0; j < ny; ++j)
            for (unsigned i = 0; i < nx; ++i) {
                for (unsigned c = 0; c < dk; ++c)
                    for (unsigned b = 0; b < 2; ++b)
                        for (unsigned a = 0; a < 2; ++a)
                            for (unsigned d = 0; d < per_node; ++d)
                                m.element_DOFs.push_back(node(i + a, j + b, k + c) * 9 + d);
                m.element_ptr.push_back(unsigned(m.element_DOFs.size()));
            }
    return m;
}

dof_model random_model(unsigned n, unsigned elements, unsigned max_size, unsigned seed)
{
    std::mt19937 gen(seed);
    dof_model m;
    for (unsigned i = 0; i < n; ++i) m.DOFs.push_back(i * 7 + (i % 3));
    m.element_ptr.push_back(0);
    for (unsigned e = 0; e < elements; ++e) {
        const unsigned size = 2 + gen() % (max_size - 1);
        const unsigned centre = gen() % n;
        for (unsigned k = 0; k < size; ++k) {
            // Mostly local couplings, now and then a far one.
            const unsigned spread = (gen() % 8 == 0) ? n : 12;
            const unsigned at = (centre + gen() % spread) % n;
            m.element_DOFs.push_back(m.DOFs[at]);
        }
        m.element_ptr.push_back(unsigned(m.element_DOFs.size()));
    }
    return m;
}

numbered number(dof_model model, const std::vector<unsigned>& prescribed)
{
    numbered out;
    dense1D<unsigned, 8> ids(unsigned(model.DOFs.size())), fixed(unsigned(prescribed.size()));
    std::copy(model.DOFs.begin(), model.DOFs.end(), ids.begin());
    std::copy(prescribed.begin(), prescribed.end(), fixed.begin());
    const error_type e = core::number_and_profile(ids, model.element_ptr, model.element_DOFs, fixed, false,
                                                  out.free_IDs, out.profile, out.value_bytes, out.index_bytes);
    if (e != no_error) out.profile.clear();
    return out;
}

void assemble_random_spd(const dof_model& model, const vector_fast& free_IDs, core::symmetric_hybrid_OOC<double>& A,
                         std::vector<double>& reference, unsigned seed)
{
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    const unsigned n = free_IDs.size();
    reference.assign(std::size_t(n) * n, 0.0);
    core::block_proxy_data* data = A.proxy();
    const unsigned elements = unsigned(model.element_ptr.size() - 1);
    for (unsigned e = 0; e < elements; ++e) {
        std::vector<unsigned> ranks;
        for (unsigned p = model.element_ptr[e]; p < model.element_ptr[e + 1]; ++p) {
            const unsigned r = free_IDs.rank(model.element_DOFs[p]);
            if (r != vector_fast::none) ranks.push_back(r);
        }
        const unsigned m = unsigned(ranks.size());
        // Ke = Gᵀ G + I: positive definite on the element.
        std::vector<double> G(std::size_t(m) * m), Ke(std::size_t(m) * m, 0.0);
        for (double& g : G) g = u(gen);
        for (unsigned i = 0; i < m; ++i)
            for (unsigned j = 0; j < m; ++j) {
                double s = i == j ? 1.0 : 0.0;
                for (unsigned k = 0; k < m; ++k) s += G[k + i * m] * G[k + j * m];
                Ke[i + j * m] = s;
            }
        for (unsigned i = 0; i < m; ++i)
            for (unsigned j = 0; j < m; ++j) {
                const unsigned ri = ranks[i], rj = ranks[j];
                reference[ri + std::size_t(rj) * n] += Ke[i + j * m];
                if (ri > rj) continue;
                const double v = Ke[i + j * m];
                (void)data->add_values(data->block_of_row(ri), ri, &v, &rj, 1, false);
            }
    }
    // Isolated DOFs get a diagonal of their own.
    for (unsigned r = 0; r < n; ++r)
        if (reference[r + std::size_t(r) * n] == 0.0) {
            reference[r + std::size_t(r) * n] = 2.0;
            const double v = 2.0;
            (void)data->add_values(data->block_of_row(r), r, &v, &r, 1, false);
        }
}

std::vector<double> rebuild(const core::symmetric_hybrid_OOC<double>& A)
{
    const unsigned n = A.nbr_rows();
    std::vector<double> L(std::size_t(n) * n, 0.0), D(n), out(std::size_t(n) * n, 0.0);
    for (unsigned i = 0; i < n; ++i) {
        D[i] = 1.0 / A.get(i, i);
        L[i + std::size_t(i) * n] = 1.0;
        for (unsigned c = i + 1; c < n; ++c) L[c + std::size_t(i) * n] = A.get(i, c); // L(c, i)
    }
    for (unsigned j = 0; j < n; ++j)
        for (unsigned k = 0; k <= j; ++k) {
            const double ljk = L[j + std::size_t(k) * n] * D[k];
            if (ljk == 0.0) continue;
            for (unsigned i = k; i < n; ++i) out[i + std::size_t(j) * n] += L[i + std::size_t(k) * n] * ljk;
        }
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i < j; ++i) out[i + std::size_t(j) * n] = out[j + std::size_t(i) * n];
    return out;
}

std::size_t brute_force_factor_count(const std::vector<double>& reference, unsigned n)
{
    // Row patterns of the lower triangle, eliminated column by column.
    std::vector<std::vector<char>> below(n, std::vector<char>(n, 0));
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = j + 1; i < n; ++i) below[j][i] = reference[i + std::size_t(j) * n] != 0.0;
    std::size_t count = n;
    for (unsigned j = 0; j < n; ++j) {
        std::vector<unsigned> rows;
        for (unsigned i = j + 1; i < n; ++i)
            if (below[j][i]) rows.push_back(i);
        count += rows.size();
        for (unsigned a = 0; a < rows.size(); ++a)
            for (unsigned b = a + 1; b < rows.size(); ++b) below[rows[a]][rows[b]] = 1;
    }
    return count;
}

double max_abs(const std::vector<double>& v)
{
    double m = 0.0;
    for (double x : v) m = std::max(m, std::fabs(x));
    return m;
}

std::vector<element_matrix> random_element_matrices(const dof_model& model, unsigned seed)
{
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    std::vector<element_matrix> out;
    for (std::size_t e = 0; e + 1 < model.element_ptr.size(); ++e) {
        const unsigned first = model.element_ptr[e], m = model.element_ptr[e + 1] - first;
        element_matrix em;
        em.IDs = dense1D<unsigned, 8>(m);
        for (unsigned l = 0; l < m; ++l) em.IDs[l] = model.element_DOFs[first + l];
        (void)em.Ke.resize(m);
        std::vector<double> G(std::size_t(m) * m);
        for (double& g : G) g = u(gen);
        for (unsigned j = 0; j < m; ++j)
            for (unsigned i = 0; i <= j; ++i) {
                double s = i == j ? 1.0 : 0.0;
                for (unsigned k = 0; k < m; ++k) s += G[k + i * m] * G[k + j * m];
                em.Ke(i, j) = s;
            }
        out.push_back(em);
    }
    return out;
}

dense_sum_type dense_sum(const std::vector<element_matrix>& elements, const vector_fast& rows)
{
    dense_sum_type d;
    d.n = rows.size();
    const std::size_t nn = std::size_t(d.n) * d.n;
    d.sum.assign(nn, 0.0);
    d.magnitude.assign(nn, 0.0);
    d.terms.assign(nn, 0);
    for (const element_matrix& em : elements)
        for (unsigned j = 0; j < em.IDs.size(); ++j)
            for (unsigned i = 0; i < em.IDs.size(); ++i) {
                const unsigned ri = rows.rank(em.IDs[i]), rj = rows.rank(em.IDs[j]);
                if (ri == vector_fast::none || rj == vector_fast::none) continue;
                const std::size_t at = ri + std::size_t(rj) * d.n;
                d.sum[at] += em.Ke(i, j);
                d.magnitude[at] += std::fabs(em.Ke(i, j));
                ++d.terms[at];
            }
    return d;
}

std::vector<double> dense_solve(std::vector<double> A, std::vector<double> b, unsigned n)
{
    auto a = [&](unsigned i, unsigned j) -> double& { return A[i + std::size_t(j) * n]; };
    for (unsigned k = 0; k < n; ++k) {
        unsigned p = k;
        for (unsigned i = k + 1; i < n; ++i)
            if (std::fabs(a(i, k)) > std::fabs(a(p, k))) p = i;
        for (unsigned j = 0; j < n; ++j) std::swap(a(k, j), a(p, j));
        std::swap(b[k], b[p]);
        for (unsigned i = k + 1; i < n; ++i) {
            const double l = a(i, k) / a(k, k);
            if (l == 0.0) continue;
            for (unsigned j = k; j < n; ++j) a(i, j) -= l * a(k, j);
            b[i] -= l * b[k];
        }
    }
    for (unsigned k = n; k-- > 0;) {
        double s = b[k];
        for (unsigned j = k + 1; j < n; ++j) s -= a(k, j) * b[j];
        b[k] = s / a(k, k);
    }
    return b;
}

} // namespace kelt::test
