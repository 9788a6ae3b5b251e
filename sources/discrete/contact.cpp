// Contact on rigid surfaces, block stops and cables: each evaluation recomputes
// which parts act from the state it is given, and hands out the consistent
// tangent of its own residual.
#include "kelt/discrete/contact.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

namespace kelt::core {

namespace {

constexpr double largest = std::numeric_limits<double>::max();

double dot3(const double* a, const double* b) noexcept { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

// dir / |dir|; false for a zero (or not finite) vector.
bool unit(const vector_fixed<double, 3>& v, double (&out)[3]) noexcept
{
    const double n = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    if (!(n > 0.0) || !std::isfinite(n)) return false;
    for (unsigned c = 0; c < 3; ++c) out[c] = v[c] / n;
    return true;
}

bool in_positions(const dense2D<double>& pos, unsigned node) noexcept { return pos.rows() >= 3 && node < pos.cols(); }

// Position plus displacement of a node.
void current(const element_work_type& w, unsigned node, double (&x)[3]) noexcept
{
    for (unsigned c = 0; c < 3; ++c)
        x[c] = w.pos(c, node) + (w.U.empty() ? 0.0 : w.U.get(field_DOF(node, displacement_tag, c)));
}

void insert_displacements(unsigned node, unsigned field_selector, vector_fast& set)
{
    for (unsigned c = 0; c < 3; ++c)
        if (field_selected(field_selector, c) &&
            set.push_back(field_DOF(node, displacement_tag, c)) == vector_fast::none)
            throw std::bad_alloc();
}

// Copies the assembled vector into the record when some entry is not 0.
[[nodiscard]] bool hand_out(element_work_type& w, const std::vector<unsigned>& IDs, const std::vector<double>& F)
{
    if (!w.DOFs.resize(unsigned(IDs.size()))) return false;
    std::copy(IDs.begin(), IDs.end(), w.DOFs.begin());
    if (std::none_of(F.begin(), F.end(), [](double f) { return f != 0.0; })) return true;
    if (!w.Fe.resize(unsigned(F.size()))) return false;
    std::copy(F.begin(), F.end(), w.Fe.begin());
    return true;
}

} // namespace

contact_law_value contact_law(double p, double g) noexcept
{
    contact_law_value v;
    if (p == largest || p == -largest) {
        if (p * g > 0.0) v.c = 1.0, v.e = 0.5 * g * g;
        return v;
    }
    const double x = p * g;
    if (!(x > 0.0)) return v;
    const double y = x * x;
    if (!std::isfinite(y)) { // so sharp that it is the switch
        v.c = 1.0, v.e = 0.5 * g * g;
        return v;
    }
    const double w = 1.0 / (1.0 + y);
    v.c = y * w; // 1 - w, without its cancellation for small y
    v.c1 = 2.0 * p * x * w * w;
    // e = (1 - ln(1 + y) / y) g² / 2; its series where the closed form cancels.
    v.e = (y <= 0.001 ? (0.5 - (1.0 / 3.0 - y / 4.0) * y) * y : 1.0 - std::log1p(y) / y) * 0.5 * g * g;
    return v;
}

// ---------------------------------------------------------------- rigid surfaces

error_type contact_rigid::set_nodes(const dense1D<unsigned, 8>& slaves, unsigned master_)
{
    nodes.clear();
    master = master_;
    std::vector<unsigned> list(slaves.begin(), slaves.end());
    std::sort(list.begin(), list.end());
    list.erase(std::unique(list.begin(), list.end()), list.end());
    list.erase(std::remove(list.begin(), list.end(), master_), list.end());
    if (!nodes.resize(unsigned(list.size()))) return memory_error;
    std::copy(list.begin(), list.end(), nodes.begin());
    return no_error;
}

void contact_rigid::get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>&, unsigned field_selector,
                                     vector_fast& set) const
{
    if ((element != 0 && element != all_elements) || kind != kind_stiffness || nodes.empty()) return;
    for (unsigned s : nodes) insert_displacements(s, field_selector, set);
    insert_displacements(master, field_selector, set);
}

void contact_rigid::turning_plane(const double (&n)[3], double (&P)[3][3]) const noexcept
{
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j) P[i][j] = (i == j ? 1.0 : 0.0) - n[i] * n[j];
}

error_type contact_rigid::compute_element(pass_kind kind, element_work_type& w) const
{
    if (kind != kind_stiffness) return no_error;
    bool go = false;
    if (auto e = begin_discrete(w, go); e != no_error || !go || nodes.empty()) return e;
    const double k = w.factor * std::min(K_max, w.penalty_displacement);
    if (k == 0.0) return no_error;
    if (!in_positions(w.pos, master)) return invalid_data_error;
    for (unsigned s : nodes)
        if (!in_positions(w.pos, s)) return invalid_data_error;
    const bool matrix = w.matrix_mode != matrix_none, vector = w.vector_mode == 1;
    const bool material = w.matrix_mode == matrix_tangent || w.matrix_mode == matrix_material;
    const bool geometric = w.matrix_mode == matrix_tangent || w.matrix_mode == matrix_geometric;
    const unsigned ns = nodes.size();
    try {
        // The slaves' DOFs, then the master's, which every block shares.
        std::vector<unsigned> IDs(3 * (ns + 1));
        for (unsigned i = 0; i <= ns; ++i)
            for (unsigned c = 0; c < 3; ++c)
                IDs[3 * i + c] = field_DOF(i < ns ? nodes[i] : master, displacement_tag, c);
        std::vector<double> F(IDs.size(), 0.0);
        double y[3], energy = 0.0;
        current(w, master, y);
        for (unsigned i = 0; i < ns; ++i) {
            double x[3], d[3], n[3], g = 0.0, r = 0.0;
            current(w, nodes[i], x);
            for (unsigned c = 0; c < 3; ++c) d[c] = x[c] - y[c];
            surface(d, n, g, r);
            const contact_law_value law = contact_law(-sharpness, g);
            energy += law.e;
            if ((law.c == 0.0 && law.c1 == 0.0) || (!matrix && !vector)) continue;
            if (!w.U_ref.empty()) {
                g = 0.0;
                for (unsigned c = 0; c < 3; ++c)
                    g += n[c] * (w.U_ref.get(IDs[3 * i + c]) - w.U_ref.get(IDs[3 * ns + c]));
            }
            const double f = g * law.c;
            for (unsigned c = 0; c < 3; ++c) F[3 * i + c] -= k * f * n[c], F[3 * ns + c] += k * f * n[c];
            if (!matrix) continue;
            // (n, -n)(n, -n)' times the slope of the force, and the turn of the
            // normal, f / r in the plane where it turns.
            double K3[3][3] = {};
            const double t = law.c + law.c1 * g;
            if (material && t != 0.0)
                for (unsigned a = 0; a < 3; ++a)
                    for (unsigned b = 0; b < 3; ++b) K3[a][b] = t * n[a] * n[b];
            if (geometric && f != 0.0 && r > 0.0 && (!no_pull || f >= 0.0)) {
                double P[3][3];
                turning_plane(n, P);
                for (unsigned a = 0; a < 3; ++a)
                    for (unsigned b = 0; b < 3; ++b) K3[a][b] += f / r * P[a][b];
            }
            element_block& block = w.Kblocks.emplace_back();
            if (!block.K.resize(6, 0.0) || !block.DOFs.resize(6)) return memory_error;
            for (unsigned c = 0; c < 3; ++c) block.DOFs[c] = IDs[3 * i + c], block.DOFs[c + 3] = IDs[3 * ns + c];
            for (unsigned b = 0; b < 3; ++b)
                for (unsigned a = 0; a <= b; ++a) {
                    block.K(a, b) = block.K(a + 3, b + 3) = k * K3[a][b];
                    block.K(a, b + 3) = block.K(b, a + 3) = -k * K3[a][b];
                }
        }
        w.energy = k * energy;
        if (!hand_out(w, IDs, F)) return memory_error;
    } catch (const std::bad_alloc&) {
        return memory_error;
    }
    return no_error;
}

error_type contact_plane::init(const dense1D<unsigned, 8>& slaves, unsigned master_,
                               const vector_fixed<double, 3>& normal_, double offset_, double sharpness_, double K_max_)
{
    nodes.clear();
    if (!unit(normal_, normal)) return invalid_data_error;
    offset = offset_, sharpness = sharpness_, K_max = K_max_;
    return set_nodes(slaves, master_);
}

void contact_plane::surface(const double (&d)[3], double (&n)[3], double& g, double& r) const noexcept
{
    for (unsigned c = 0; c < 3; ++c) n[c] = normal[c];
    g = dot3(normal, d) + offset;
    r = 0.0;
}

error_type contact_sphere::init(const dense1D<unsigned, 8>& slaves, unsigned master_, double radius_, double sharpness_,
                                double K_max_, bool no_pull_)
{
    radius = radius_, sharpness = sharpness_, K_max = K_max_, no_pull = no_pull_;
    return set_nodes(slaves, master_);
}

void contact_sphere::surface(const double (&d)[3], double (&n)[3], double& g, double& r) const noexcept
{
    r = std::sqrt(dot3(d, d));
    for (unsigned c = 0; c < 3; ++c) n[c] = r > 0.0 ? d[c] / r : d[c];
    g = r - radius;
}

error_type contact_cylinder::init(const dense1D<unsigned, 8>& slaves, unsigned master_,
                                  const vector_fixed<double, 3>& axis_, double radius_, double sharpness_,
                                  double K_max_, bool no_pull_)
{
    nodes.clear();
    if (!unit(axis_, axis)) return invalid_data_error;
    radius = radius_, sharpness = sharpness_, K_max = K_max_, no_pull = no_pull_;
    return set_nodes(slaves, master_);
}

void contact_cylinder::surface(const double (&d)[3], double (&n)[3], double& g, double& r) const noexcept
{
    const double along = dot3(d, axis);
    for (unsigned c = 0; c < 3; ++c) n[c] = d[c] - along * axis[c];
    r = std::sqrt(dot3(n, n));
    if (r > 0.0)
        for (double& v : n) v /= r;
    g = r - radius;
}

void contact_cylinder::turning_plane(const double (&n)[3], double (&P)[3][3]) const noexcept
{
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j) P[i][j] = (i == j ? 1.0 : 0.0) - n[i] * n[j] - axis[i] * axis[j];
}

// ---------------------------------------------------------------- block stops

error_type block_stops::init(const dense1D<unsigned, 8>& nodes_, field_tag field_,
                             const vector_fixed<double, 3>& direction_, double limit_)
{
    nodes.clear();
    law = nullptr;
    double d[3];
    if (!valid_field(field_) || !unit(direction_, d)) return invalid_data_error;
    for (unsigned c = 0; c < 3; ++c) direction[c] = -d[c];
    field = field_, limit = limit_;
    // Stiffness 1 above 0 and nothing below: the force is the positive part of s.
    law = one_sided_law(0.0, 1.0, 0.0);
    if (!law) return memory_error;
    return nodes.copy(nodes_) ? no_error : memory_error;
}

void block_stops::get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>&, unsigned field_selector,
                                   vector_fast& set) const
{
    if ((element != 0 && element != all_elements) || kind != kind_stiffness || !law) return;
    for (unsigned node : nodes)
        for (unsigned c = 0; c < 3; ++c) {
            const unsigned ID = field_DOF(node, field, c);
            if (field_selected(field_selector, ID % 9) && set.push_back(ID) == vector_fast::none)
                throw std::bad_alloc();
        }
}

error_type block_stops::compute_element(pass_kind kind, element_work_type& w) const
{
    if (kind != kind_stiffness) return no_error;
    bool go = false;
    if (auto e = begin_discrete(w, go); e != no_error || !go || nodes.empty() || !law) return e;
    const double k = w.factor * field_penalty(w, field);
    if (k == 0.0) return no_error;
    const bool matrix = w.matrix_mode == matrix_tangent || w.matrix_mode == matrix_material;
    const bool vector = w.vector_mode == 1;
    auto along = [&](const DOF_values_view& U, const unsigned(&IDs)[3]) {
        double s = 0.0;
        if (!U.empty())
            for (unsigned c = 0; c < 3; ++c) s += direction[c] * U.get(IDs[c]);
        return s;
    };
    try {
        std::vector<unsigned> all;
        std::vector<double> F;
        double energy = 0.0;
        for (unsigned node : nodes) {
            unsigned IDs[3];
            for (unsigned c = 0; c < 3; ++c) IDs[c] = field_DOF(node, field, c);
            double a = 0.0, f = 0.0, e = 0.0;
            law->get_force({ID, 0, 0}, along(w.U, IDs) - limit, a, f, e, nullptr, nullptr);
            energy += e;
            if (!w.U_ref.empty()) f = a * along(w.U_ref, IDs);
            all.insert(all.end(), IDs, IDs + 3);
            for (unsigned c = 0; c < 3; ++c) F.push_back(vector ? -k * f * direction[c] : 0.0);
            if (!matrix || a == 0.0) continue;
            element_block& block = w.Kblocks.emplace_back();
            if (!block.K.resize(3, 0.0) || !block.DOFs.resize(3)) return memory_error;
            for (unsigned b = 0; b < 3; ++b) {
                block.DOFs[b] = IDs[b];
                for (unsigned c = 0; c <= b; ++c) block.K(c, b) = k * a * direction[c] * direction[b];
            }
        }
        w.energy = k * energy;
        if (!hand_out(w, all, F)) return memory_error;
    } catch (const std::bad_alloc&) {
        return memory_error;
    }
    return no_error;
}

// ---------------------------------------------------------------- cables

error_type cable::init(const dense1D<unsigned, 8>& nodes_, const Ptr<law_scalar>& law_)
{
    nodes.clear();
    law = nullptr;
    if (!dynamic_cast<const law_spring*>(law_.get())) return invalid_data_error;
    law = law_;
    return nodes.copy(nodes_) ? no_error : memory_error;
}

void cable::get_element_DOFs(unsigned element, pass_kind kind, const dense2D<double>&, unsigned field_selector,
                             vector_fast& set) const
{
    if ((element != 0 && element != all_elements) || kind != kind_stiffness || !law) return;
    for (unsigned node : nodes) insert_displacements(node, field_selector, set);
}

double cable::get_stiffness_scale(field_tag f) const { return law ? law->get_stiffness_range(f).second : 0.0; }

error_type cable::compute_element(pass_kind kind, element_work_type& w) const
{
    if (kind != kind_stiffness) return no_error;
    return evaluate(w);
}

error_type cable::evaluate(element_work_type& w) const
{
    bool go = false;
    if (auto e = begin_discrete(w, go); e != no_error || !go || !law) return e;
    const unsigned n = nodes.size();
    for (unsigned node : nodes)
        if (!in_positions(w.pos, node)) return invalid_data_error;
    try {
        // Per segment: its current unit vector and length; the lengths of the
        // reference and current paths.
        std::vector<double> u(3 * (n ? n - 1 : 0)), l(n ? n - 1 : 0);
        double L0 = 0.0, L = 0.0;
        for (unsigned i = 0; i + 1 < n; ++i) {
            double a[3], b[3], A[3];
            current(w, nodes[i], a);
            current(w, nodes[i + 1], b);
            for (unsigned c = 0; c < 3; ++c) A[c] = w.pos(c, nodes[i + 1]) - w.pos(c, nodes[i]);
            L0 += std::sqrt(dot3(A, A));
            for (unsigned c = 0; c < 3; ++c) u[3 * i + c] = b[c] - a[c];
            l[i] = std::sqrt(dot3(&u[3 * i], &u[3 * i]));
            L += l[i];
            // A segment shrunk to a point has no direction.
            if (!(l[i] > 0.0)) return element_geometry_error;
            for (unsigned c = 0; c < 3; ++c) u[3 * i + c] /= l[i];
        }
        if (!(L0 > 0.0) || !std::isfinite(L0)) return element_geometry_error;
        // b = dL/du: each node gets the direction of the segment before it minus
        // that of the segment after it.
        std::vector<double> b(3 * n, 0.0);
        for (unsigned i = 0; i + 1 < n; ++i)
            for (unsigned c = 0; c < 3; ++c) b[3 * i + c] -= u[3 * i + c], b[3 * (i + 1) + c] += u[3 * i + c];
        const law_key key{ID, 0, 0};
        const auto& spring_law = static_cast<const law_spring&>(*law);
        // The strain of the law as a rod's: less the thermal strain, plus the
        // initial strain.
        auto mechanical = [&](double strain) {
            if (w.thermal) {
                dense1D<double, 8> T;
                if (!w.thermal->get_element_value(0, w.time, T)) w.thermal->get_uniform(w.time, T);
                if (!T.empty()) spring_law.get_thermal_strain(key, T[0], strain);
            }
            spring_law.add_initial_strain(key, strain);
            return strain;
        };
        const double s = mechanical((L - L0) / L0);
        double a = 0.0, T = 0.0, density = 0.0;
        law->get_force(key, s, a, T, density, committed_state(), trial_state());
        if (!w.state_out.resize(2)) return memory_error;
        w.state_out[0] = s;
        w.state_out[1] = T;
        w.energy = density * L0 * w.factor;
        if (!w.U_ref.empty()) {
            // The reference's strain in the linear form of the path's length.
            double dL = 0.0;
            for (unsigned i = 0; i < n; ++i)
                for (unsigned c = 0; c < 3; ++c)
                    dL += b[3 * i + c] * w.U_ref.get(field_DOF(nodes[i], displacement_tag, c));
            T = a * dL / L0;
        }
        if (a == 0.0 && T == 0.0) return no_error;
        const bool vector = w.vector_mode == 1 && T != 0.0;
        const bool material = w.matrix_mode == matrix_tangent || w.matrix_mode == matrix_material;
        const bool geometric = w.matrix_mode == matrix_tangent || w.matrix_mode == matrix_geometric;
        if (!w.DOFs.resize(3 * n)) return memory_error;
        for (unsigned i = 0; i < n; ++i)
            for (unsigned c = 0; c < 3; ++c) w.DOFs[3 * i + c] = field_DOF(nodes[i], displacement_tag, c);
        if (vector) {
            if (!w.Fe.resize(3 * n)) return memory_error;
            for (unsigned j = 0; j < 3 * n; ++j) w.Fe[j] = -w.factor * T * b[j];
        }
        if (w.matrix_mode == matrix_none) return no_error;
        if (!w.Ke.resize(3 * n, 0.0)) return memory_error;
        if (material)
            for (unsigned j = 0; j < 3 * n; ++j)
                for (unsigned i = 0; i <= j; ++i) w.Ke(i, j) = w.factor * a / L0 * b[i] * b[j];
        if (geometric && T != 0.0)
            for (unsigned i = 0; i + 1 < n; ++i) {
                // T / l (I - u u') in the four blocks of the segment's two nodes,
                // with the signs (+, -, -, +); a node met twice sums its entries.
                const double q = w.factor * T / l[i];
                const double* e = &u[3 * i];
                for (unsigned p = 0; p < 3; ++p)
                    for (unsigned r = 0; r < 3; ++r) {
                        const double v = q * ((p == r ? 1.0 : 0.0) - e[p] * e[r]);
                        const unsigned P0 = 3 * i + p, P1 = 3 * (i + 1) + p, R0 = 3 * i + r, R1 = 3 * (i + 1) + r;
                        auto add = [&](unsigned x, unsigned y, double value) {
                            if (x <= y) w.Ke(x, y) += value;
                        };
                        add(P0, R0, v), add(P1, R1, v), add(P0, R1, -v), add(P1, R0, -v);
                    }
            }
    } catch (const std::bad_alloc&) {
        return memory_error;
    }
    return no_error;
}

error_type cable_rigid::init(const dense1D<unsigned, 8>& nodes_, bool tension_only_, double p1_, double p2_)
{
    // Tension only: no stiffness up to the strain 0, 1 beyond; otherwise 1 throughout.
    dense2D<double> table(tension_only_ ? 2 : 1, 2, 0.0);
    table(table.rows() - 1, 0) = largest;
    table(table.rows() - 1, 1) = 1.0;
    Ptr<law_spring_nl> spring_law(new law_spring_nl);
    nodes.clear();
    law = nullptr;
    if (auto e = spring_law->init(table, 1.0, p1_, p2_, 0.0); e != no_error) return e;
    tension_only = tension_only_, p1 = p1_, p2 = p2_;
    return cable::init(nodes_, Ptr<law_scalar>(spring_law.get()));
}

error_type cable_rigid::compute_element(pass_kind kind, element_work_type& w) const
{
    if (kind != kind_stiffness) return no_error;
    const double factor = w.factor, P = w.penalty_displacement;
    w.factor = factor * P;
    const error_type e = evaluate(w);
    w.factor = factor;
    if (w.state_out.size() >= 2) w.state_out[1] *= P;
    return e;
}

} // namespace kelt::core
