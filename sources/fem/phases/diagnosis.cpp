#include "kelt/fem/phases/diagnosis.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

#include "kelt/engine/factorize.h"
#include "kelt/engine/pivot.h"
#include "kelt/fem/phases/assembly.h"
#include "kelt/fem/solver_static_linear.h"

namespace kelt::core {

namespace {

constexpr unsigned none = 0xFFFFFFFFu;
const char* const place_names[9] = {"x", "y", "z", "rx", "ry", "rz", "T", "7", "8"};

// The nodes that elements join, and the models each node belongs to.
struct node_graph {
    std::vector<unsigned> parent;             // union-find over nodes
    std::vector<bool> held;                   // by root once closed: something holds the part
    std::vector<std::vector<unsigned>> models; // by node
    std::vector<bool> used;                   // by node: some element has it

    unsigned root(unsigned a)
    {
        while (parent[a] != a) a = parent[a] = parent[parent[a]];
        return a;
    }
};

node_graph connect(const numerical_model_base& model, pass_kind kind, const problem_data& problem,
                   const numbering& n)
{
    node_graph g;
    const unsigned nodes = problem.pos.cols();
    g.parent.resize(nodes);
    std::iota(g.parent.begin(), g.parent.end(), 0u);
    g.held.assign(nodes, false);
    g.models.resize(nodes);
    g.used.assign(nodes, false);
    std::vector<bool> held_node(nodes, false);
    std::vector<Ptr<numerical_model_base>> leaves;
    const_cast<numerical_model_base&>(model).collect_models(leaves);
    for (const Ptr<numerical_model_base>& m : leaves) {
        std::vector<unsigned> ptr, DOFs;
        if (m->get_elements_DOFs(all_elements, kind, problem.pos, all_fields, ptr, DOFs) != no_error) continue;
        for (std::size_t e = 0; e + 1 < ptr.size(); ++e) {
            unsigned first = none;
            bool held = false, single = true;
            for (unsigned k = ptr[e]; k < ptr[e + 1]; ++k) {
                const unsigned node = DOFs[k] / 9;
                if (DOFs[k] == none || node >= nodes) continue;
                if (n.free_IDs->rank(DOFs[k]) >= n.size()) held = true;
                if (g.models[node].empty() || g.models[node].back() != m->ID) g.models[node].push_back(m->ID);
                g.used[node] = true;
                if (first == none) first = node;
                else if (node != first) single = false, g.parent[g.root(node)] = g.root(first);
            }
            if (first != none && (held || single)) held_node[first] = true;
        }
    }
    for (unsigned v = 0; v < nodes; ++v)
        if (held_node[v]) g.held[g.root(v)] = true;
    for (auto& list : g.models) {
        std::sort(list.begin(), list.end());
        list.erase(std::unique(list.begin(), list.end()), list.end());
    }
    return g;
}

void add_models(std::vector<unsigned>& to, const std::vector<unsigned>& from)
{
    for (unsigned id : from)
        if (std::find(to.begin(), to.end(), id) == to.end()) to.push_back(id);
}

int print_models(char* text, unsigned size, const std::vector<unsigned>& models)
{
    int used = std::snprintf(text, size, models.size() > 1 ? "models" : "model");
    for (std::size_t i = 0; i < models.size() && i < 4 && used < int(size); ++i)
        used += std::snprintf(text + used, size - used, "%s %u", i ? "," : "", models[i]);
    if (models.size() > 4 && used < int(size)) used += std::snprintf(text + used, size - used, ", ...");
    return used;
}

// Solves the 6 x 6 normal equations of a rigid fit by elimination with partial
// pivoting; false when they are singular (a part on a line turns freely about it).
bool solve6(double A[6][6], double b[6], double x[6])
{
    int p[6];
    std::iota(p, p + 6, 0);
    double scale = 0.0;
    for (int i = 0; i < 6; ++i) scale = std::max(scale, std::fabs(A[i][i]));
    for (int c = 0; c < 6; ++c) {
        int best = c;
        for (int r = c + 1; r < 6; ++r)
            if (std::fabs(A[r][c]) > std::fabs(A[best][c])) best = r;
        if (std::fabs(A[best][c]) <= 1e-12 * scale) {
            // A direction the fit cannot see: it takes no part.
            for (int k = 0; k < 6; ++k) A[c][k] = A[k][c] = 0.0;
            A[c][c] = 1.0, b[c] = 0.0;
            best = c;
        }
        std::swap(A[c], A[best]);
        std::swap(b[c], b[best]);
        for (int r = c + 1; r < 6; ++r) {
            const double f = A[r][c] / A[c][c];
            for (int k = c; k < 6; ++k) A[r][k] -= f * A[c][k];
            b[r] -= f * b[c];
        }
    }
    for (int c = 5; c >= 0; --c) {
        double s = b[c];
        for (int k = c + 1; k < 6; ++k) s -= A[c][k] * x[k];
        x[c] = s / A[c][c];
    }
    return true;
}

// The kind of a mode z over the matrix positions.
mechanism classify(const std::vector<double>& z, const numbering& n, const problem_data& problem, node_graph& g)
{
    mechanism m;
    double amax = 0.0;
    for (double v : z) amax = std::max(amax, std::fabs(v));
    // What moves: components above a thousandth of the largest.
    struct moved { unsigned node, place; double value; };
    std::vector<moved> moves;
    for (unsigned r = 0; r < z.size(); ++r)
        if (std::fabs(z[r]) > 1e-3 * amax) moves.push_back({n.ID(r) / 9, n.ID(r) % 9, z[r]});
    std::vector<unsigned> nodes;
    for (const moved& v : moves) nodes.push_back(v.node);
    std::sort(nodes.begin(), nodes.end());
    nodes.erase(std::unique(nodes.begin(), nodes.end()), nodes.end());
    if (nodes.empty()) return m;
    m.first_node = nodes.front(), m.last_node = nodes.back(), m.nbr_nodes = unsigned(nodes.size());
    for (unsigned v : nodes) add_models(m.models, g.models[v]);
    std::sort(m.models.begin(), m.models.end());
    // Only rotations about one axis move: nodes that turn with nothing to hold
    // them, a beam's ends free in twist or a shell's drilling rotations.
    if (std::all_of(moves.begin(), moves.end(), [&](const moved& v) { return v.place == moves[0].place; }) &&
        moves[0].place >= 3 && moves[0].place < 6) {
        m.kind = mechanism_kind::free_rotation;
        m.node = nodes[0], m.component = moves[0].place;
        return m;
    }
    if (nodes.size() == 1) {
        const moved* big = &moves[0];
        for (const moved& v : moves)
            if (std::fabs(v.value) > std::fabs(big->value)) big = &v;
        m.node = nodes[0], m.component = big->place;
        m.kind = big->place >= 3 && big->place < 6 ? mechanism_kind::free_rotation
                 : big->place < 3                  ? mechanism_kind::free_translation
                                                   : mechanism_kind::unheld_field;
        if (moves.size() == 1) return m;
    }
    // A rigid motion u = t + w x (p - c), rotations w, fitted to every free DOF of
    // the moving nodes (those that stay are part of the fit too).
    double c[3] = {0.0, 0.0, 0.0};
    for (unsigned v : nodes)
        for (int k = 0; k < 3; ++k) c[k] += problem.pos(k, v) / double(nodes.size());
    double A[6][6] = {}, b[6] = {}, x[6] = {}, zz = 0.0;
    double extent = 0.0;
    for (unsigned r = 0; r < z.size(); ++r) {
        const unsigned id = n.ID(r), node = id / 9, place = id % 9;
        if (!std::binary_search(nodes.begin(), nodes.end(), node) || place > 5) continue;
        double row[6] = {};
        if (place < 3) {
            const double d[3] = {problem.pos(0, node) - c[0], problem.pos(1, node) - c[1], problem.pos(2, node) - c[2]};
            extent = std::max(extent, std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]));
            row[place] = 1.0;
            // (w x d)_place
            const int i1 = (place + 1) % 3, i2 = (place + 2) % 3;
            row[3 + i1] = d[i2];
            row[3 + i2] = -d[i1];
        } else {
            row[place] = 1.0;
        }
        for (int i = 0; i < 6; ++i) {
            b[i] += row[i] * z[r];
            for (int j = 0; j < 6; ++j) A[i][j] += row[i] * row[j];
        }
        zz += z[r] * z[r];
    }
    if (m.nbr_nodes == 1 && m.kind != mechanism_kind::hinge) return m;
    if (zz == 0.0) { // no displacement or rotation moves: a scalar field
        m.kind = mechanism_kind::unheld_field;
        return m;
    }
    double A0[6][6], b0[6];
    std::copy(&A[0][0], &A[0][0] + 36, &A0[0][0]);
    std::copy(b, b + 6, b0);
    solve6(A, b, x);
    // The residual |z - R x|² = zz - 2 x.b + x.A x.
    double xAx = 0.0, xb = 0.0;
    for (int i = 0; i < 6; ++i) {
        xb += x[i] * b0[i];
        for (int j = 0; j < 6; ++j) xAx += x[i] * A0[i][j] * x[j];
    }
    const double residual = std::max(0.0, zz - 2.0 * xb + xAx);
    std::copy(c, c + 3, m.centre);
    if (residual > 1e-6 * zz) {
        m.kind = mechanism_kind::hinge;
        return m;
    }
    const double t = std::sqrt(x[0] * x[0] + x[1] * x[1] + x[2] * x[2]);
    const double w = std::sqrt(x[3] * x[3] + x[4] * x[4] + x[5] * x[5]);
    if (w * std::max(extent, 1e-300) <= 1e-3 * t) {
        m.kind = mechanism_kind::rigid_translation;
        for (int k = 0; k < 3; ++k) m.axis[k] = x[k] / t;
    } else {
        m.kind = mechanism_kind::rigid_rotation;
        for (int k = 0; k < 3; ++k) m.axis[k] = x[3 + k] / w;
    }
    return m;
}

// The sign that makes the largest component of an axis positive, and zeros for
// rounding: a direction reads the same whatever the mode's sign.
void tidy(double (&a)[3])
{
    int big = 0;
    for (int k = 1; k < 3; ++k)
        if (std::fabs(a[k]) > std::fabs(a[big])) big = k;
    const double s = a[big] < 0.0 ? -1.0 : 1.0;
    for (double& v : a) v = std::fabs(v) < 1e-9 ? 0.0 : s * v;
}

} // namespace

std::vector<floating_part> find_floating_parts(run_state& run, const numerical_model_base& model, pass_kind kind,
                                               const numbering& n)
{
    std::vector<floating_part> parts;
    if (!run.problem) return parts;
    node_graph g = connect(model, kind, *run.problem, n);
    std::vector<unsigned> slot(g.parent.size(), none);
    for (unsigned v = 0; v < g.parent.size(); ++v) {
        if (!g.used[v]) continue;
        const unsigned r = g.root(v);
        if (g.held[r]) continue;
        if (slot[r] == none) {
            slot[r] = unsigned(parts.size());
            parts.push_back({v, v, 0, {}});
        }
        floating_part& p = parts[slot[r]];
        p.first_node = std::min(p.first_node, v);
        p.last_node = std::max(p.last_node, v);
        ++p.nbr_nodes;
        add_models(p.models, g.models[v]);
    }
    char line[256];
    for (floating_part& p : parts) {
        std::sort(p.models.begin(), p.models.end());
        describe(p, line, sizeof line);
        run.log(1, "%s", line);
    }
    return parts;
}

std::vector<mechanism> find_mechanisms(run_state& run, numerical_model_base& model, pass_kind kind,
                                       const numbering& n, const element_pass_type& pass)
{
    std::vector<mechanism> found;
    if (!run.problem || n.size() == 0) return found;
    // K afresh: the run's own may be half factored. The record's error stays.
    fem::run_status status;
    fem::solver_static_linear::settings_type quiet;
    run_state side(quiet, status);
    side.problem = run.problem;
    side.context = run.context;
    indexed_sym_matrix K;
    double timer = 0.0;
    if (!assemble_matrix(side, model, kind, pass, n, K, timer)) return found;
    std::vector<double> diagonal(n.size());
    for (unsigned r = 0; r < n.size(); ++r) diagonal[r] = K.matrix.get(r, r);
    pivot_force_relative checker;
    checker.diagonal = diagonal.data();
    if (factorize(K.matrix, checker, run.LLC_size(), run.threads()) != no_error) return found;
    std::vector<pivot_event> events = checker.events;
    std::sort(events.begin(), events.end(), [](const pivot_event& a, const pivot_event& b) { return a.index < b.index; });
    node_graph g = connect(model, kind, *run.problem, n);
    std::vector<double> z(n.size());
    char line[256];
    for (std::size_t i = 0; i < events.size() && i < max_mechanisms; ++i) {
        std::fill(z.begin(), z.end(), 0.0);
        z[events[i].index] = 1.0;
        if (backward(K.matrix, z.data(), run.threads()) != no_error) break;
        mechanism m = classify(z, n, *run.problem, g);
        m.pivot_ID = n.ID(events[i].index);
        tidy(m.axis);
        describe(m, line, sizeof line);
        run.log(1, "%s", line);
        found.push_back(std::move(m));
    }
    if (events.size() > max_mechanisms)
        run.log(1, "Zero-energy modes not described: %u more.\n", unsigned(events.size() - max_mechanisms));
    return found;
}

void describe(const floating_part& p, char* text, unsigned size)
{
    int used = std::snprintf(text, size, "Floating part: nodes %u to %u (%u nodes) of ", p.first_node, p.last_node,
                             p.nbr_nodes);
    if (used < int(size)) used += print_models(text + used, size - used, p.models);
    if (used < int(size)) std::snprintf(text + used, size - used, ", joined to no support and no other part.\n");
}

void describe(const mechanism& m, char* text, unsigned size)
{
    int used = 0;
    switch (m.kind) {
    case mechanism_kind::free_rotation:
        if (m.nbr_nodes == 1)
            used = std::snprintf(text, size, "Zero-energy mode: free rotation %s of node %u (a beam end or a shell's "
                                             "drilling rotation that nothing holds), ",
                                 place_names[m.component], m.node);
        else
            used = std::snprintf(text, size, "Zero-energy mode: free rotation %s of nodes %u to %u (%u nodes) (beam "
                                             "ends free in twist, or drilling rotations), ",
                                 place_names[m.component], m.first_node, m.last_node, m.nbr_nodes);
        break;
    case mechanism_kind::free_translation:
        used = std::snprintf(text, size, "Zero-energy mode: free translation %s of node %u, ",
                             place_names[m.component], m.node);
        break;
    case mechanism_kind::rigid_translation:
        used = std::snprintf(text, size, "Zero-energy mode: rigid translation along (%.3g, %.3g, %.3g) of nodes %u "
                                         "to %u (%u nodes), ",
                             m.axis[0], m.axis[1], m.axis[2], m.first_node, m.last_node, m.nbr_nodes);
        break;
    case mechanism_kind::rigid_rotation:
        used = std::snprintf(text, size, "Zero-energy mode: rigid rotation about (%.3g, %.3g, %.3g) of nodes %u to "
                                         "%u (%u nodes), ",
                             m.axis[0], m.axis[1], m.axis[2], m.first_node, m.last_node, m.nbr_nodes);
        break;
    case mechanism_kind::unheld_field:
        used = std::snprintf(text, size, "Zero-energy mode: a field that nothing holds, nodes %u to %u (%u nodes), ",
                             m.first_node, m.last_node, m.nbr_nodes);
        break;
    case mechanism_kind::hinge:
        used = std::snprintf(text, size, "Zero-energy mode: hinge, nodes %u to %u (%u nodes) turn against each "
                                         "other, ",
                             m.first_node, m.last_node, m.nbr_nodes);
        break;
    }
    if (used < int(size)) used += print_models(text + used, size - used, m.models);
    if (used < int(size)) std::snprintf(text + used, size - used, ".\n");
}

} // namespace kelt::core
