#include "kelt/io/deck_run.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <utility>

#include "kelt/core/element_catalogue.h"
#include "kelt/fem.h"
#include "kelt/fem/solver_reactions.h"
#include "kelt/fem/solver_static_linear.h"
#include "kelt/fem/solver_thermal_static_linear.h"
#include "kelt/io/text_file.h"

namespace kelt::io {

namespace {

file_status fault(const std::string& path, const std::string& why, error_type code = invalid_data_error)
{
    file_status st;
    st.code = code;
    st.file = path;
    st.text = path + ": " + why;
    return st;
}

// Everything a step's problem refers to, alive until its solve ends.
struct step_models {
    std::vector<std::unique_ptr<fem::law_base>> laws;
    std::vector<std::unique_ptr<fem::physics_model_base>> physics;
    std::vector<std::unique_ptr<fem::numerical_model_base>> models;
};

struct log_target {
    const deck_run_options* options;
};

void forward_log(void* user, unsigned level, const char* text)
{
    const deck_run_options& o = *static_cast<log_target*>(user)->options;
    if (!o.log) return;
    std::string line(2 * level + 2, ' ');
    line += text;
    while (!line.empty() && line.back() == '\n') line.pop_back();
    o.log(o.user, line.c_str());
}

// Fortran's E14.7 of the reference files: " 0.1000000E+01".
std::string fortran_e(double v)
{
    char out[32];
    if (v == 0.0) return " 0.0000000E+00";
    int e = int(std::floor(std::log10(std::fabs(v)))) + 1;
    double m = v / std::pow(10.0, e);
    if (std::fabs(m) >= 0.99999995) m /= 10.0, ++e; // rounding to 7 digits reaches 1
    std::snprintf(out, sizeof out, "%s0.%07.0fE%+03d", m < 0 ? "-" : " ", std::fabs(m) * 1e7, e);
    return out;
}

} // namespace

file_status run_deck(const std::string& deck_path, const deck_data& deck, const deck_run_options& options,
                     std::vector<deck_step_result>& results)
{
    // Each element to the material of its section, then groups by (material, block).
    const std::size_t nbr_elements = deck.elements.size();
    std::vector<int> material_of(nbr_elements, -1);
    for (const deck_section& s : deck.sections) {
        const deck_set* set = deck.element_set(s.elset);
        const int m = int(deck.material(s.material) - deck.materials.data());
        for (unsigned e : set->items) {
            if (material_of[e] >= 0) {
                const deck_element el = deck.elements[e];
                return fault(deck_path, "element " + std::to_string(deck.blocks[el.block].element_tags[el.cell]) +
                                            " is in two *SOLID SECTION sets");
            }
            material_of[e] = m;
        }
    }
    std::map<std::pair<int, unsigned>, std::vector<unsigned>> groups; // (material, block) -> cells
    for (std::size_t e = 0; e < nbr_elements; ++e) {
        const deck_element el = deck.elements[e];
        if (material_of[e] < 0)
            return fault(deck_path, "element " + std::to_string(deck.blocks[el.block].element_tags[el.cell]) +
                                        " has no *SOLID SECTION");
        groups[{material_of[e], el.block}].push_back(el.cell);
    }
    const unsigned nbr_nodes = deck.positions.cols();
    std::vector<char> in_mesh(nbr_nodes, 0); // nodes some element has
    for (const deck_block& b : deck.blocks)
        for (unsigned c = 0; c < b.cells.cols(); ++c)
            for (unsigned a = 0; a < b.cells.rows(); ++a) in_mesh[b.cells(a, c)] = 1;

    const bool expands = std::any_of(deck.materials.begin(), deck.materials.end(),
                                     [](const deck_material& m) { return m.has_expansion && m.expansion != 0.0; });
    log_target target{&options};
    std::vector<deck_step_result> out;
    for (std::size_t s = 0; s < deck.steps.size(); ++s) {
        const deck_step& step = deck.steps[s];
        const std::string where = "step " + std::to_string(s + 1) + ": ";
        const bool heat = step.procedure == deck_procedure::heat_steady;
        const field_tag field = heat ? temperature_tag : displacement_tag;
        if (options.log)
            options.log(options.user, (where + (heat ? "steady heat transfer" : "linear static")).c_str());

        fem::context ctx;
        if (options.threads) ctx.set_max_threads(options.threads);
        if (options.memory_MB) ctx.set_max_total_size(options.memory_MB);
        step_models keep;
        fem::numerical_model_composite model(ctx);
        for (const auto& [key, cells] : groups) {
            const deck_material& m = deck.materials[std::size_t(key.first)];
            const deck_block& b = deck.blocks[key.second];
            dense2D<unsigned> mesh(b.cells.rows(), unsigned(cells.size()));
            for (std::size_t c = 0; c < cells.size(); ++c)
                for (unsigned a = 0; a < b.cells.rows(); ++a) mesh(a, unsigned(c)) = b.cells(a, cells[c]);
            error_type e = no_error;
            if (heat) {
                if (!m.has_conductivity) return fault(deck_path, where + "material " + m.name + " has no *CONDUCTIVITY");
                auto law = std::make_unique<fem::law_scalar>();
                auto physics = std::make_unique<fem::model_heat_conduction_3d>();
                auto nm = std::make_unique<fem::numerical_model_heat_conduction>(ctx);
                if ((e = law->init(m.conductivity)) == no_error && (e = physics->init(*law)) == no_error)
                    e = nm->init(ctx, *physics, mesh, b.type);
                keep.laws.push_back(std::move(law)), keep.physics.push_back(std::move(physics));
                keep.models.push_back(std::move(nm));
            } else {
                if (!m.has_elastic) return fault(deck_path, where + "material " + m.name + " has no *ELASTIC");
                auto law = std::make_unique<fem::law_solid_StVenant>();
                auto physics = std::make_unique<fem::model_solid_lin>();
                auto nm = std::make_unique<fem::numerical_model_stiff_lin>(ctx);
                dense1D<double, 8> params;
                params.push_back(m.young), params.push_back(m.poisson), params.push_back(0.0);
                if ((e = law->init(params)) == no_error && (e = physics->init(*law)) == no_error)
                    e = nm->init(ctx, *physics, mesh, b.type);
                keep.laws.push_back(std::move(law)), keep.physics.push_back(std::move(physics));
                keep.models.push_back(std::move(nm));
            }
            if (e == no_error) e = model.insert(keep.models.back()->get_ID());
            if (e != no_error)
                return fault(deck_path, where + "the " + b.deck_type + " elements of material " + m.name +
                                            " cannot be built (error " + std::to_string(int(e)) + ")", e);
        }
        // Pressures: one face model a face type, one load an element of it.
        std::map<element_type, std::vector<const deck_pressure*>> faces;
        if (!heat)
            for (const deck_pressure& p : step.pressures) faces[p.face_type].push_back(&p);
        for (const auto& [type, list] : faces) {
            const unsigned n = kelt::nbr_nodes(type);
            dense2D<unsigned> mesh(n, unsigned(list.size()));
            for (std::size_t f = 0; f < list.size(); ++f)
                for (unsigned a = 0; a < n; ++a) mesh(a, unsigned(f)) = list[f]->nodes[a];
            auto nm = std::make_unique<fem::numerical_model_load_only>(ctx);
            error_type e = nm->init(ctx, mesh, type);
            if (e == no_error) e = model.insert(nm->get_ID());
            keep.models.push_back(std::move(nm));
            if (e != no_error) return fault(deck_path, where + "the pressed faces cannot be built", e);
        }

        fem::DOFs_mgr dofs(nbr_nodes, false);
        for (unsigned n = 0; n < nbr_nodes; ++n)
            if (in_mesh[n] && dofs.set(n, field, true) != no_error) return fault(deck_path, where + "DOFs", memory_error);
        dense2D<double> pos = deck.positions;
        fem::problem_data problem(ctx, pos, dofs, model.get_ID(), 1);
        fem::loads_mgr loads = problem.get_loads_mgr(0);
        // A node a conversion added is held where all its parents are, at their
        // interpolated value: a held face stays held whole.
        std::vector<deck_nodal_value> boundaries = step.boundaries;
        {
            std::map<std::pair<unsigned, unsigned>, double> value; // (node, dof)
            for (const deck_nodal_value& v : boundaries) value[{v.node, v.dof}] = v.value;
            for (const deck_added_node& n : deck.added_nodes)
                for (unsigned dof : {1u, 2u, 3u, 11u}) {
                    double sum = 0.0;
                    bool all = true;
                    for (std::size_t p = 0; all && p < n.parents.size(); ++p) {
                        const auto it = value.find({n.parents[p], dof});
                        all = it != value.end();
                        if (all) sum += n.weights[p] * it->second;
                    }
                    if (all) boundaries.push_back({n.node, dof, sum});
                }
        }
        for (const deck_nodal_value& v : boundaries) {
            // A heat step holds temperatures only; a static one translations only.
            if (heat != (v.dof == 11)) {
                if (heat || !expands) continue; // no thermal strain without expansion
                return fault(deck_path, where + "a temperature held in a static step (thermal strain) is not supported");
            }
            if (!in_mesh[v.node]) continue; // a node no element has moves nothing when held
            const unsigned ID = fem::DOFs_mgr::ID(v.node, field, heat ? 0 : v.dof - 1);
            if (loads.record_DOF_prescribed_value(ID, v.value, 0) != no_error)
                return fault(deck_path, where + "a held value cannot be recorded", memory_error);
        }
        if (!heat)
            for (const deck_nodal_value& v : step.forces) {
                if (!in_mesh[v.node])
                    return fault(deck_path, where + "node " + std::to_string(deck.node_tags[v.node]) +
                                                " is loaded but no element has it");
                if (loads.record_DOF_load(fem::DOFs_mgr::ID(v.node, field, v.dof - 1), v.value, 0) != no_error)
                    return fault(deck_path, where + "a force cannot be recorded", memory_error);
            }
        const auto faces_model = [&](element_type type) {
            unsigned k = 0;
            for (const auto& f : faces) {
                if (f.first == type) break;
                ++k;
            }
            return keep.models[keep.models.size() - faces.size() + k]->get_ID();
        };
        for (const auto& [type, list] : faces) {
            const unsigned ID = faces_model(type);
            for (std::size_t f = 0; f < list.size(); ++f) {
                fem::elementary_load pressure;
                pressure.kind = 2; // against the face's normal, which points out of the element
                pressure.values.push_back(list[f]->value);
                if (loads.record_NM_load(ID, unsigned(f), pressure, 0) != no_error)
                    return fault(deck_path, where + "a pressure cannot be recorded", memory_error);
            }
        }

        fem::solver_static_linear::data_type data(problem);
        if (heat) {
            fem::solver_thermal_static_linear solver;
            solver.settings.log_hdl = forward_log;
            solver.settings.user_data = &target;
            solver.run(data);
        } else {
            fem::solver_static_linear solver;
            solver.settings.log_hdl = forward_log;
            solver.settings.user_data = &target;
            solver.run(data);
        }
        if (data.error_raised())
            return fault(deck_path, where + data.msg_title + (data.msg_detail[0] ? ": " : "") + data.msg_detail,
                         data.error_code);
        deck_step_result r;
        r.procedure = step.procedure;
        r.time = double(s + 1);
        const unsigned comps = heat ? 1 : 3;
        r.values = dense2D<double>(comps, nbr_nodes, 0.0);
        for (unsigned n = 0; n < nbr_nodes; ++n)
            if (in_mesh[n])
                for (unsigned k = 0; k < comps; ++k) {
                    double v = 0.0;
                    if (data.U.getID_val(fem::DOFs_mgr::ID(n, field, k), 0, v) != no_error || !std::isfinite(v))
                        return fault(deck_path, where + "no finite value at node " + std::to_string(deck.node_tags[n]),
                                     invalid_data_error);
                    r.values(k, n) = v;
                }
        if (!heat) {
            // RF of the reference files: the internal forces K u, the reactions at
            // held DOFs and the applied forces elsewhere; the reactions solver on
            // the problem with its loads scaled to nothing gives them.
            const dense2D<double> no_loads(1, 1, 0.0);
            fem::problem_data unloaded(problem, no_loads);
            fem::solver_reactions reactions;
            fem::solver_reactions::data_type forces(unloaded);
            forces.U = data.U;
            reactions.run(forces);
            if (forces.error_raised())
                return fault(deck_path, where + "reactions: " + forces.msg_title, forces.error_code);
            r.forces = dense2D<double>(3, nbr_nodes, 0.0);
            for (unsigned n = 0; n < nbr_nodes; ++n)
                for (unsigned k = 0; in_mesh[n] && k < 3; ++k) {
                    double v = 0.0;
                    if (forces.reactions.getID_val(fem::DOFs_mgr::ID(n, field, k), 0, v) != no_error)
                        return fault(deck_path, where + "no reaction at node " + std::to_string(deck.node_tags[n]));
                    r.forces(k, n) = v;
                }
        }
        out.push_back(std::move(r));
    }
    results = std::move(out);
    file_status ok;
    ok.file = deck_path;
    return ok;
}

file_status write_deck_dat(const std::string& path, const deck_data& deck, const std::vector<deck_step_result>& results,
                           std::vector<std::string>& skipped)
{
    std::string text;
    for (std::size_t s = 0; s < results.size() && s < deck.steps.size(); ++s) {
        const deck_step_result& r = results[s];
        for (const deck_output& o : deck.steps[s].outputs) {
            if (o.card != "NODE PRINT") {
                if (o.card == "EL PRINT" || o.card == "EL FILE")
                    skipped.push_back("step " + std::to_string(s + 1) + ": *" + o.card + " (element values)");
                continue;
            }
            std::vector<unsigned> nodes = deck.node_set(o.set)->items;
            std::sort(nodes.begin(), nodes.end(),
                      [&](unsigned a, unsigned b) { return deck.node_tags[a] < deck.node_tags[b]; });
            const bool has_RF = std::find(o.variables.begin(), o.variables.end(), "RF") != o.variables.end();
            if (o.totals && !(has_RF && r.procedure == deck_procedure::static_linear))
                skipped.push_back("step " + std::to_string(s + 1) + ": TOTALS of *NODE PRINT");
            for (const std::string& v : o.variables) {
                const bool statics = r.procedure == deck_procedure::static_linear;
                const bool fits = ((v == "U" || v == "RF") && statics) || (v == "NT" && !statics);
                if (!fits) {
                    skipped.push_back("step " + std::to_string(s + 1) + ": *NODE PRINT " + v);
                    continue;
                }
                text += v == "U"    ? "\n displacements (vx,vy,vz) for set "
                        : v == "RF" ? "\n forces (fx,fy,fz) for set "
                                    : "\n temperatures for set ";
                text += o.set + " and time " + fortran_e(r.time) + "\n\n";
                const dense2D<double>& m = v == "RF" ? r.forces : r.values;
                char line[96];
                for (unsigned n : nodes) {
                    int len = std::snprintf(line, sizeof line, "%10zu", deck.node_tags[n]);
                    for (unsigned k = 0; k < m.rows(); ++k)
                        len += std::snprintf(line + len, sizeof line - std::size_t(len), "%14.6E", m(k, n));
                    text.append(line, std::size_t(len)).push_back('\n');
                }
                if (v == "RF" && o.totals) {
                    // The set's resultant: what the held nodes carry in all.
                    double total[3] = {0.0, 0.0, 0.0};
                    for (unsigned n : nodes)
                        for (unsigned k = 0; k < 3; ++k) total[k] += m(k, n);
                    text += "\n total force (fx,fy,fz) for set " + o.set + " and time " + fortran_e(r.time) + "\n\n";
                    const int len = std::snprintf(line, sizeof line, "      %14.6E%14.6E%14.6E\n", total[0], total[1],
                                                  total[2]);
                    text.append(line, std::size_t(len));
                }
            }
        }
    }
    return write_whole_file(path, text);
}

} // namespace kelt::io
