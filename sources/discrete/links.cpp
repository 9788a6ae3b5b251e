// Links and rigid bodies: the springs of springs.cpp with a unit or one-sided law,
// evaluated with the pass's factor times the penalty of their field, and the rigid
// body as one symmetric block per slave.
#include "kelt/discrete/links.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <vector>

#include "kelt/core/finite_rotation.h"

namespace kelt::core {

double field_penalty(const element_work_type& w, field_tag field) noexcept
{
    if (field == displacement_tag) return w.penalty_displacement;
    if (field == rotation_tag) return w.penalty_rotation;
    return 0.0;
}

Ptr<law_scalar> unit_law()
{
    Ptr<law_scalar> law(new law_scalar);
    return law->init(dense1D<double, 8>(1, 1.0)) == no_error ? law : Ptr<law_scalar>();
}

Ptr<law_scalar> one_sided_law(double below, double above, double shift)
{
    dense2D<double> table(2, 2, 0.0);
    table(1, 0) = std::numeric_limits<double>::max();
    table(0, 1) = below;
    table(1, 1) = above;
    Ptr<law_scalar_nl> law(new law_scalar_nl);
    return law->init(table, shift) == no_error ? Ptr<law_scalar>(law.get()) : Ptr<law_scalar>();
}

namespace {

// The spring's evaluation with its stiffness times the penalty P; the force it
// reports (second result, after the strain) is then the real one.
template <class Evaluate>
error_type penalised(element_work_type& w, double P, const Evaluate& evaluate)
{
    const double factor = w.factor;
    w.factor = factor * P;
    const error_type e = evaluate();
    w.factor = factor;
    if (w.state_out.size() >= 2) w.state_out[1] *= P;
    return e;
}

} // namespace

// ---------------------------------------------------------------- links

error_type link::init(unsigned node1_, unsigned node2_, field_tag field_)
{
    return spring::init(node1_, node2_, field_, unit_law());
}

error_type link::compute_element(pass_kind kind, element_work_type& w) const
{
    if (kind != kind_stiffness) return no_error;
    return penalised(w, field_penalty(w, field), [&] { return evaluate(w, committed_state(), trial_state()); });
}

error_type link_gnl::init(unsigned node1_, unsigned node2_, field_tag field_, double gap_)
{
    gap = gap_;
    // With the norm s >= 0: a positive gap is active for s <= gap, a gap at or
    // below 0 for s > -gap.
    return spring::init(node1_, node2_, field_, gap_ > 0.0 ? one_sided_law(1.0, 0.0, -gap_)
                                                           : one_sided_law(0.0, 1.0, gap_));
}

error_type link_directional::init(const dense1D<unsigned, 8>& IDs, const dense1D<double, 8>& c, double c0_)
{
    const error_type e = spring_directional::init(IDs, c, unit_law());
    if (e == no_error) c0 = c0_;
    return e;
}

error_type link_directional::init(unsigned node1, unsigned node2, field_tag field, const vector_fixed<double, 3>& dir,
                                  double c1, double c2, double c0_)
{
    const error_type e = spring_directional::init(node1, node2, field, dir, c1, c2, unit_law());
    if (e == no_error) c0 = c0_;
    return e;
}

double link_directional::penalty(const element_work_type& w) const noexcept
{
    return std::max(has_U ? w.penalty_displacement : 0.0, has_R ? w.penalty_rotation : 0.0);
}

error_type link_directional::compute_element(pass_kind kind, element_work_type& w) const
{
    if (kind != kind_stiffness) return no_error;
    return penalised(w, penalty(w), [&] { return evaluate(w, committed_state(), trial_state()); });
}

error_type link_directional_gnl::init(const dense1D<unsigned, 8>& IDs, const dense1D<double, 8>& c, double gap_,
                                      bool side_)
{
    gap = gap_, side = side_;
    return spring_directional::init(IDs, c, side_ ? one_sided_law(1.0, 0.0, gap_) : one_sided_law(0.0, 1.0, gap_));
}

error_type link_directional_gnl::init(unsigned node1, unsigned node2, field_tag field,
                                      const vector_fixed<double, 3>& dir, double gap_, bool side_)
{
    gap = gap_, side = side_;
    return spring_directional::init(node1, node2, field, dir, -1.0, 1.0,
                                    side_ ? one_sided_law(1.0, 0.0, gap_) : one_sided_law(0.0, 1.0, gap_));
}

error_type link_drill::init(const dense2D<double>& pos, unsigned node1, unsigned node2,
                            const vector_fixed<double, 3>& axis)
{
    // The drilling spring builds the list; this link keeps it with its unit law.
    Ptr<spring_drill> drill(new spring_drill(nullptr));
    clear_list();
    const error_type e = drill->init(pos, node1, node2, axis, unit_law());
    if (e != no_error) return e;
    DOFs = drill->DOFs, coefs = drill->coefs, c0 = drill->c0;
    has_U = drill->has_U, has_R = drill->has_R;
    law = drill->law;
    return no_error;
}

// ---------------------------------------------------------------- rigid bodies

namespace {

unsigned bits_of(unsigned mask, field_tag field) noexcept { return (mask & 248u) == unsigned(field) ? mask & 7u : 0u; }

// (e_j x r)[c]: how a unit rotation about axis j moves the point at arm r.
double turned(unsigned j, unsigned c, const double (&r)[3]) noexcept
{
    if (j == c) return 0.0;
    const unsigned k = 3 - j - c;
    // e_j x e_k = +e_c for the cyclic order (j, k, c), -e_c otherwise.
    return (k + 1) % 3 == c ? r[k] : -r[k];
}

} // namespace

unsigned rigid_body_st::displacement_bits() const noexcept
{
    return bits_of(first_mask, displacement_tag) | bits_of(second_mask, displacement_tag);
}

unsigned rigid_body_st::rotation_bits() const noexcept
{
    return bits_of(first_mask, rotation_tag) | bits_of(second_mask, rotation_tag);
}

error_type rigid_body_st::init(const dense1D<unsigned, 8>& nodes_, unsigned first, unsigned second, bool rotations)
{
    first_mask = first, second_mask = second, with_rotations = rotations;
    nodes.clear();
    if (nodes_.size() < 2) return no_error;
    return nodes.copy(nodes_) ? no_error : memory_error;
}

error_type rigid_body_st::init_diaphragm(const dense1D<unsigned, 8>& nodes_, unsigned normal)
{
    const unsigned a = normal % 3;
    return init(nodes_, 8u | (1u << ((a + 1) % 3)) | (1u << ((a + 2) % 3)), 24u | (1u << a), true);
}

unsigned rigid_body_st::normal_axis() const noexcept
{
    const unsigned D = displacement_bits(), R = rotation_bits();
    for (unsigned a = 0; a < 3; ++a)
        if (R == 1u << a && D == (7u & ~R) && with_rotations) return a;
    return 3;
}

void rigid_body_st::get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>&,
                                     unsigned field_selector, vector_fast& set) const
{
    if ((element != 0 && element != all_elements) || kind != kind_stiffness || nodes.size() < 2) return;
    const unsigned D = displacement_bits(), R = rotation_bits();
    for (unsigned i = 0; i < nodes.size(); ++i)
        for (unsigned place = 0; place < 6; ++place) {
            const bool rotation = place >= 3;
            if (!((rotation ? R : D) >> (place % 3) & 1u) || (rotation && i > 0 && !with_rotations)) continue;
            const unsigned ID = nodes[i] * 9 + place;
            if (field_selected(field_selector, place) && set.push_back(ID) == vector_fast::none)
                throw std::bad_alloc();
        }
}

void rigid_body_st::turned_arm(const double (&t)[3], const double (&r)[3], double (&q)[3], double (&dq)[3][3],
                               double (&d2q)[3][3][3]) const noexcept
{
    for (unsigned c = 0; c < 3; ++c) {
        q[c] = 0.0;
        for (unsigned j = 0; j < 3; ++j) {
            dq[c][j] = turned(j, c, r);
            q[c] += dq[c][j] * t[j];
            for (unsigned k = 0; k < 3; ++k) d2q[c][j][k] = 0.0;
        }
    }
}

void rigid_body_ft::turned_arm(const double (&t)[3], const double (&r)[3], double (&q)[3], double (&dq)[3][3],
                               double (&d2q)[3][3][3]) const noexcept
{
    // Q r = R(t) r - r = a t x r + b t x (t x r), with its derivatives in t from jets.
    using J = jet2<3>;
    const J tj[3] = {J::variable(0, t[0]), J::variable(1, t[1]), J::variable(2, t[2])};
    J a, b, c;
    turn_coefficients(tj[0] * tj[0] + tj[1] * tj[1] + tj[2] * tj[2], a, b, c);
    const J rj[3] = {J(r[0]), J(r[1]), J(r[2])};
    J turned[3];
    // Lambda^T with -t is Lambda: r - a (-t) x r + b t x (t x r).
    const J back[3] = {-tj[0], -tj[1], -tj[2]};
    turn_transposed(back, a, b, rj, turned);
    for (unsigned i = 0; i < 3; ++i) {
        q[i] = turned[i].v - r[i];
        for (unsigned j = 0; j < 3; ++j) {
            dq[i][j] = turned[i].g[j];
            for (unsigned k = 0; k < 3; ++k) d2q[i][j][k] = turned[i].h[j][k];
        }
    }
}

error_type rigid_body_st::compute_element(pass_kind kind, element_work_type& w) const
{
    if (kind != kind_stiffness) return no_error;
    bool go = false;
    if (auto e = begin_discrete(w, go); e != no_error || !go || nodes.size() < 2) return e;
    if (w.pos.rows() < 3 || *std::max_element(nodes.begin(), nodes.end()) >= w.pos.cols()) return invalid_data_error;
    if (w.matrix_mode == matrix_geometric) return no_error;
    const bool matrix = w.matrix_mode == matrix_tangent || w.matrix_mode == matrix_material;
    const bool vector = w.vector_mode == 1;
    const bool by_reference = !w.U_ref.empty();
    const unsigned D = displacement_bits(), R = rotation_bits();
    const unsigned master = nodes[0];
    auto state = [&](unsigned ID) { return w.U.empty() ? 0.0 : w.U.get(ID); };
    try {
        // Block positions: the master's selected DOFs, then the slave's.
        int m_U[3] = {-1, -1, -1}, m_R[3] = {-1, -1, -1};
        unsigned IDs[12];
        unsigned nm = 0;
        for (unsigned c = 0; c < 3; ++c)
            if (D >> c & 1u) m_U[c] = int(nm), IDs[nm++] = field_DOF(master, displacement_tag, c);
        for (unsigned c = 0; c < 3; ++c)
            if (R >> c & 1u) m_R[c] = int(nm), IDs[nm++] = field_DOF(master, rotation_tag, c);
        double t[3] = {};
        for (unsigned j = 0; j < 3; ++j)
            if (m_R[j] >= 0) t[j] = state(IDs[m_R[j]]);
        std::vector<unsigned> all(IDs, IDs + nm);
        std::vector<double> F(nm, 0.0);
        if (matrix) w.Kblocks.reserve(nodes.size() - 1);
        double energy = 0.0;
        for (unsigned i = 1; i < nodes.size(); ++i) {
            const unsigned slave = nodes[i];
            if (slave == master) continue;
            unsigned n = nm;
            int s_U[3] = {-1, -1, -1}, s_R[3] = {-1, -1, -1};
            for (unsigned c = 0; c < 3; ++c)
                if (D >> c & 1u) s_U[c] = int(n), IDs[n++] = field_DOF(slave, displacement_tag, c);
            if (with_rotations)
                for (unsigned c = 0; c < 3; ++c)
                    if (R >> c & 1u) s_R[c] = int(n), IDs[n++] = field_DOF(slave, rotation_tag, c);
            double r[3];
            for (unsigned c = 0; c < 3; ++c) r[c] = w.pos(c, slave) - w.pos(c, master);
            const double r2 = r[0] * r[0] + r[1] * r[1] + r[2] * r[2];
            const double kU = w.factor * w.penalty_displacement;
            const double kR = w.factor * std::max(w.penalty_rotation, r2 * w.penalty_displacement);
            double q[3], dq[3][3], d2q[3][3][3];
            turned_arm(t, r, q, dq, d2q);
            // G is the derivative of g_U = U_s - U_m - Q r, H that of g_R = R_s - R_m,
            // both on the selected components.
            double G[3][12] = {}, H[3][12] = {}, gU[3] = {}, gR[3] = {};
            for (unsigned c = 0; c < 3; ++c) {
                if (s_U[c] < 0) continue;
                G[c][s_U[c]] = 1.0;
                G[c][m_U[c]] = -1.0;
                for (unsigned j = 0; j < 3; ++j)
                    if (m_R[j] >= 0) G[c][m_R[j]] = -dq[c][j];
                gU[c] = state(IDs[s_U[c]]) - state(IDs[m_U[c]]) - q[c];
            }
            for (unsigned c = 0; c < 3; ++c)
                if (s_R[c] >= 0) {
                    H[c][s_R[c]] = 1.0, H[c][m_R[c]] = -1.0;
                    gR[c] = state(IDs[s_R[c]]) - state(IDs[m_R[c]]);
                }
            // The block's matrix: kU G'G + kR H'H, and in a tangent the curvature of
            // the turned arm, -kU g_U . d2q, on the master's rotations.
            double K[12][12];
            for (unsigned a = 0; a < n; ++a)
                for (unsigned b = 0; b <= a; ++b) {
                    double k = 0.0;
                    for (unsigned c = 0; c < 3; ++c) k += kU * G[c][a] * G[c][b] + kR * H[c][a] * H[c][b];
                    K[a][b] = K[b][a] = k;
                }
            if (w.matrix_mode != matrix_material)
                for (unsigned j = 0; j < 3; ++j)
                    for (unsigned m = 0; m < 3 && m_R[j] >= 0; ++m)
                        if (m_R[m] >= 0)
                            for (unsigned c = 0; c < 3; ++c) K[m_R[j]][m_R[m]] -= kU * gU[c] * d2q[c][j][m];
            F.resize(F.size() + n - nm, 0.0);
            all.insert(all.end(), IDs + nm, IDs + n);
            const unsigned first = unsigned(F.size()) - (n - nm);
            auto at = [&](unsigned a) { return a < nm ? a : first + a - nm; };
            if (by_reference) {
                // The block's matrix times the reference, by the sign rule.
                double u[12];
                for (unsigned a = 0; a < n; ++a) u[a] = w.U_ref.get(IDs[a]);
                for (unsigned a = 0; a < n; ++a) {
                    double Ku = 0.0;
                    for (unsigned b = 0; b < n; ++b) Ku += K[a][b] * u[b];
                    energy += 0.5 * u[a] * Ku;
                    if (vector) F[at(a)] -= Ku;
                }
            } else {
                const bool moved_U = gU[0] != 0.0 || gU[1] != 0.0 || gU[2] != 0.0;
                const bool moved_R = with_rotations && (gR[0] != 0.0 || gR[1] != 0.0 || gR[2] != 0.0);
                energy += 0.5 * kU * (gU[0] * gU[0] + gU[1] * gU[1] + gU[2] * gU[2]);
                if (with_rotations) energy += 0.5 * kR * (gR[0] * gR[0] + gR[1] * gR[1] + gR[2] * gR[2]);
                if (vector && (moved_U || moved_R))
                    for (unsigned a = 0; a < n; ++a)
                        for (unsigned c = 0; c < 3; ++c)
                            F[at(a)] -= (moved_U ? kU * G[c][a] * gU[c] : 0.0) + (moved_R ? kR * H[c][a] * gR[c] : 0.0);
            }
            if (!matrix) continue;
            element_block& b = w.Kblocks.emplace_back();
            if (!b.K.resize(n, 0.0) || !b.DOFs.resize(n)) return memory_error;
            for (unsigned a = 0; a < n; ++a) b.DOFs[a] = IDs[a];
            for (unsigned a = 0; a < n; ++a)
                for (unsigned p = 0; p <= a; ++p) b.K(p, a) = K[p][a];
        }
        w.energy = energy;
        if (!w.DOFs.resize(unsigned(all.size()))) return memory_error;
        std::copy(all.begin(), all.end(), w.DOFs.begin());
        if (vector && std::any_of(F.begin(), F.end(), [](double f) { return f != 0.0; })) {
            if (!w.Fe.resize(unsigned(F.size()))) return memory_error;
            std::copy(F.begin(), F.end(), w.Fe.begin());
        }
    } catch (const std::bad_alloc&) {
        return memory_error;
    }
    return no_error;
}

} // namespace kelt::core
