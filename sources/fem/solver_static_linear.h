// Linear statics with many right-hand sides: one matrix, one factorisation, block
// solves of the load cases, and a preconditioned conjugate gradient for the cases
// that prescribe DOFs which other cases leave free. The sibling for steady heat
// conduction runs the same machinery on temperatures.
//
// The public handles come first; the working class `core::solver_static_linear`
// follows, with each phase a function of its own, so that the solvers built on it
// (Newton, condensation) can call them.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <new>
#include <vector>

#include "kelt/core/FEM_states.h"
#include "kelt/core/context.h"
#include "kelt/core/problem_data.h"
#include "kelt/core/types.h"
#include "kelt/elements/element_records.h"
#include "kelt/elements/internal_states.h"
#include "kelt/core/OOC_mgr.h"
#include "kelt/engine/assemblers.h"
#include "kelt/engine/conj_gradient.h"
#include "kelt/engine/factorize.h"
#include "kelt/engine/pivot.h"
#include "kelt/engine/profile.h"
#include "kelt/engine/skyline.h"
#include "kelt/engine/wall_clock.h"
#include "kelt/fem/FEM_matrix.h"
#include "kelt/fem/FEM_states.h"
#include "kelt/fem/problem_data.h"
#include "kelt/fem/solver_base.h"
#include "kelt/fem/solver_frame.h"
#include "kelt/math/dense1D.h"

namespace kelt::fem {

class solver_static_linear : public solver_base {
public:
    struct settings_type {
        bool RHS_only;         // stop after the right-hand sides: the output holds the loads
        bool force_pivots;     // replace bad pivots by 1 instead of stopping
        unsigned CG_max_iters; // of the gradient on DOFs prescribed by some cases only
        double CG_tolerance;   // relative to its first residual
        log_handler log_hdl;
        void* iteration_hdl;
        interrupt_handler interrupt_hdl;
        void* user_data;

        settings_type() { reset(); }
        void reset() noexcept
        {
            RHS_only = false;
            force_pivots = false;
            CG_max_iters = 100;
            CG_tolerance = 1e-8;
            log_hdl = nullptr;
            iteration_hdl = nullptr;
            interrupt_hdl = nullptr;
            user_data = nullptr;
        }
        bool valid() const noexcept { return true; }
    };

    // What a run reads (the problem, U_start) and fills (all the rest).
    class data_type : public problem_data {
    public:
        explicit data_type(const problem_data& p);
        data_type(const data_type& o);
        data_type& operator=(const data_type& o);
        ~data_type() override = default;

        // Outputs to zero, containers emptied, texts blank; inputs untouched.
        void clear_data_out();
        // The problem names a model of its context's registry.
        bool valid() const;
        bool error_raised() const noexcept { return error_code != no_error; }
        bool warning_raised() const noexcept { return warning_code != no_error; }

        FEM_states U_start; // optional: first column the starting state, with its internal states
        FEM_states U;       // one column per load case: free DOFs in solver order, then prescribed ones out of K
        FEM_matrix& U_ref;  // U seen as a plain matrix
        unsigned nbr_free_DOFs = 0;
        unsigned nbr_prescribed_in_K = 0;
        unsigned nbr_prescribed_out_K = 0;
        unsigned nbr_rows = 0;
        dense1D<double, 8> energies; // elastic energy per load case
        dense1D<unsigned, 8> bad_IDs;
        unsigned nbr_bad = 0;
        double pivot_min = 0.0;
        double pivot_max = 0.0;
        unsigned bad_pivot_ID = 0xFFFFFFFFu; // DOF of the offending pivot
        double K_size_MB = 0.0;
        double RHS_size_MB = 0.0;
        double& RHS_size_ref;
        double total_size_MB = 0.0; // compared with the context's limit
        bool uses_disk = false;
        error_type error_code = no_error;
        error_type warning_code = no_error;
        char msg_title[run_status::text_size] = {};
        char msg_detail[run_status::text_size] = {};
        double time_numbering = 0.0;
        double time_K_assembly = 0.0;
        double time_RHS_assembly = 0.0;
        double time_factorization = 0.0;
        double time_resolution = 0.0;
        double time_total = 0.0;

    private:
        void copy_fields(const data_type& o);
    };

    solver_static_linear() { settings.reset(); }
    solver_static_linear(const solver_static_linear&) = default;
    solver_static_linear& operator=(const solver_static_linear&) = default;
    ~solver_static_linear() override = default;

    void run(data_type& data) const;

    settings_type settings;
};

class solver_thermal_static_linear : public solver_base {
public:
    // The fields of the mechanical solver. `force_pivots` is kept for the shape of
    // the record only: conduction matrices are always factorised under the
    // stopping policy, and reset() leaves the field as it is.
    struct settings_type : solver_static_linear::settings_type {
        void reset() noexcept
        {
            const bool kept = force_pivots;
            solver_static_linear::settings_type::reset();
            force_pivots = kept;
        }
    };

    // The same record, its states temperatures.
    class data_type : public solver_static_linear::data_type {
    public:
        using solver_static_linear::data_type::data_type;
    };

    solver_thermal_static_linear() { settings.reset(); }
    solver_thermal_static_linear(const solver_thermal_static_linear&) = default;
    solver_thermal_static_linear& operator=(const solver_thermal_static_linear&) = default;
    ~solver_thermal_static_linear() override = default;

    void run(data_type& data) const;

    settings_type settings;
};

} // namespace kelt::fem

namespace kelt::core {

// The engine's types with which the solvers are instantiated.
struct OOC_matrix_types {
    using matrix_type = indexed_sym_matrix;
    using states_type = FEM_real_states;
    using vector_type = indexed_vector;
};


// Which physics a run solves: the kind of its matrix pass and of its load pass, and
// the words of its log.
enum class static_family { mechanical, thermal };

template <class Types, class Settings, class Data>
class solver_static_linear : public solver_base<Types, Settings, Data> {
public:
    using base = solver_base<Types, Settings, Data>;
    using matrix_type = typename Types::matrix_type;
    using states_type = typename Types::states_type;
    using vector_type = typename Types::vector_type;

    solver_static_linear(const Settings& s, Data& d, static_family f = static_family::mechanical)
        : base(s, d), family(f)
    {
    }

    // The whole run, inside the frame.
    void run();

    // The phases, in the order of a run; those that answer give false when the run
    // must end.
    [[nodiscard]] bool take_problem();
    void collect_prescribed();
    [[nodiscard]] bool number();
    void size_solution();
    void log_K_request();
    void log_RHS_request();
    void attach_states();
    [[nodiscard]] bool assemble_RHS();
    void log_RHS_norms();
    [[nodiscard]] bool assemble_K(matrix_type& K);
    [[nodiscard]] bool factorise(matrix_type& K, matrix_type* factor);
    void resolve();
    void report();
    // The solution wholly in core at the end of a run.
    void compact_solution();

    // Pieces of the resolution.
    [[nodiscard]] bool eliminate_prescribed(unsigned i);
    void solve_group(unsigned first, unsigned count);
    void solve_constrained(unsigned i);
    double prescribed_work(unsigned i);
    [[nodiscard]] bool gather_prescribed(unsigned i, dense1D<double, 8>& values);

    // Element passes.
    element_pass_type make_pass() const;
    DOF_values_view start_state() const;
    [[nodiscard]] error_type multiply_by_model(const double* x, matrix_product_assembler::row_range x_rows, double* y,
                                               matrix_product_assembler::row_range y_rows, double& energy);

    unsigned matrix_kind() const noexcept
    {
        return family == static_family::thermal ? kind_conduction : kind_stiffness;
    }
    unsigned load_kind() const noexcept
    {
        return family == static_family::thermal ? kind_thermal_load : kind_stiffness;
    }
    unsigned threads() const noexcept { return std::max(1u, this->context->process_mgr->max_threads); }
    unsigned LLC_size() const noexcept { return this->context->process_mgr->LLC_size; }
    // The statistics count the zeros of the whole matrix: not for a log nobody reads.
    void log_statistics(const symmetric_hybrid_OOC<double>& A) const
    {
        if (this->settings.log_hdl)
            print_statistics(A, [&](unsigned level, const char* line) { this->log(level, "%s", line); });
    }
    // The budget that large matrices share, null when all stay in core.
    OOC_mgr* OOC_manager() const noexcept { return this->context ? the_OOC_mgr(*this->context) : nullptr; }
    unsigned nbr_free() const noexcept { return free_IDs ? free_IDs->size() : 0; }
    // Column i of U: all its rows, empty when it cannot be had.
    dense1D<double, 8> column(unsigned i) { return U ? U->col(i) : dense1D<double, 8>(); }

    static_family family;
    unsigned nbr_cases = 0;
    double run_start = 0.0;
    numerical_model_base* model = nullptr; // held by the problem's context for the run
    // The prescribed DOFs of each case, sorted and unique, one case after the other.
    dense1D<unsigned, 8> prescribed_IDs;
    std::vector<unsigned> prescribed_offsets; // nbr_cases + 1
    dense1D<unsigned, 8> common_IDs;          // prescribed in every case: left out of K
    std::vector<bool> in_K;                   // per case: prescribes a DOF of K
    std::vector<bool> out_K;                  // per case: prescribes a DOF out of K
    Ptr<vector_fast> free_IDs = new vector_fast;
    profile_type profile;
    std::uint64_t K_bytes = 0;
    std::uint64_t index_bytes = 0;
    matrix_type K;      // factorised in place, unless the gradient needs it as it is
    matrix_type factor; // the factor when K must stay
    Ptr<states_type> U;
    Ptr<states_type> U_start;
};

// The problem that a record shares.
template <class Data>
Ptr<problem_data> problem_of(const Data& data)
{
    return Ptr<problem_data>(static_cast<problem_data*>(fem::core_of(data)));
}

template <class T, class S, class D>
void solver_static_linear<T, S, D>::run()
{
    if (!take_problem()) return;
    auto& data = *this->data;
    const char* banner = family == static_family::thermal
                             ? "THERMAL STATIC LINEAR RUN (KELT FEM 4.4.0.0) (%d RHS)\n"
                             : "STATIC LINEAR RUN (KELT FEM 4.4.0.0) (%d RHS)\n";
    this->log(0, banner, int(nbr_cases));
    run_start = wall_clock();

    collect_prescribed();
    if (!number()) return;
    size_solution();
    this->log(2, "Numbering and matrix profile       : %10.2f s.\n", data.time_numbering);
    if (family == static_family::mechanical) log_K_request();
    log_RHS_request();
    if (this->stop_requested()) return;

    attach_states();
    if (!assemble_RHS()) return;
    log_RHS_norms();
    if (family == static_family::thermal) log_K_request();
    if (!data.energies.resize(nbr_cases, 0.0)) {
        KELT_RAISE(*this, memory_error, "Memory error.");
        return;
    }
    std::fill(data.energies.begin(), data.energies.end(), 0.0);

    if (!this->settings.RHS_only) {
        if (!assemble_K(K)) return;
        // The gradient multiplies by K as assembled, so K then keeps its values and
        // a copy is factorised.
        const bool keep_K = data.nbr_prescribed_in_K > 0;
        if (!factorise(K, keep_K ? &factor : nullptr)) return;
    }
    if (const OOC_mgr* mgr = this->context ? the_OOC_mgr(*this->context) : nullptr)
        data.uses_disk = mgr->files_created.load() > 0;

    if (!this->settings.RHS_only) {
        if (this->stop_requested()) return;
        {
            phase_timer t(data.time_resolution);
            resolve();
        }
        this->log(1, "Resolution RHS                     : %10.2f s.\n", data.time_resolution);
        if (data.error_code != no_error || data.warning_code == interrupted_warning) return;
    }
    report();
    data.time_total = wall_clock() - run_start;
    this->log(0, "Total computing time               : %10.2f s.\n\n", data.time_total);
}

// The problem and its load cases; U emptied. False, with no log at all, when there
// is no load case.
template <class T, class S, class D>
bool solver_static_linear<T, S, D>::take_problem()
{
    auto& data = *this->data;
    Ptr<problem_data> p = problem_of(data);
    if (!p) return false;
    nbr_cases = p->nbr_load_cases();
    if (nbr_cases == 0) return false;
    U = static_cast<states_type*>(fem::core_of(data.U));
    if (!U) {
        U = new states_type;
        fem::attach(data.U, U.get());
    }
    U->clear();
    U_start = static_cast<states_type*>(fem::core_of(data.U_start));
    this->set_problem(p.get(), true);
    model = p->model();
    return model != nullptr;
}

// Each case's prescribed identifiers sorted and unique, and those common to all.
template <class T, class S, class D>
void solver_static_linear<T, S, D>::collect_prescribed()
{
    prescribed_IDs.clear();
    prescribed_offsets.assign(1, 0);
    std::vector<unsigned> list;
    for (unsigned i = 0; i < nbr_cases; ++i) {
        dense1D<unsigned, 8> ids;
        if (const loads_mgr* loads = this->problem->loads[i].get()) loads->prescribed_IDs(ids);
        list.assign(ids.begin(), ids.end());
        std::sort(list.begin(), list.end());
        list.erase(std::unique(list.begin(), list.end()), list.end());
        if (!prescribed_IDs.reserve(prescribed_IDs.size() + unsigned(list.size()), 2)) throw std::bad_alloc();
        for (unsigned id : list) prescribed_IDs.push_back(id);
        prescribed_offsets.push_back(prescribed_IDs.size());
    }
    // The intersection, kept in place by a merge with each further case.
    std::vector<unsigned> common(prescribed_IDs.begin(), prescribed_IDs.begin() + prescribed_offsets[1]);
    for (unsigned i = 1; i < nbr_cases && !common.empty(); ++i) {
        const unsigned* b = prescribed_IDs.begin() + prescribed_offsets[i];
        const unsigned* e = prescribed_IDs.begin() + prescribed_offsets[i + 1];
        std::size_t kept = 0;
        for (unsigned id : common) {
            while (b != e && *b < id) ++b;
            if (b != e && *b == id) common[kept++] = id;
        }
        common.resize(kept);
    }
    common_IDs.clear();
    if (!common_IDs.reserve(unsigned(common.size()), 1)) throw std::bad_alloc();
    for (unsigned id : common) common_IDs.push_back(id);
}

// The order of the free DOFs and the profile of K. DOFs blocked in the table and
// DOFs prescribed in every case stay out.
template <class T, class S, class D>
bool solver_static_linear<T, S, D>::number()
{
    auto& data = *this->data;
    {
        phase_timer t(data.time_numbering);
        error_type e = no_error;
        dense1D<unsigned, 8> model_DOFs, kept;
        std::vector<unsigned> ends, element_DOFs;
        const dense2D<double>& pos = this->problem->pos;
        if (e = model->get_model_DOFs(matrix_kind(), pos, all_fields, model_DOFs); e == no_error)
            e = model->get_elements_DOFs(all_elements, matrix_kind(), pos, all_fields, ends, element_DOFs);
        if (e == no_error) {
            const DOFs_mgr* table = this->problem->DOFs.get();
            if (!kept.reserve(model_DOFs.size(), 1)) throw std::bad_alloc();
            for (unsigned id : model_DOFs) {
                bool free_DOF = false;
                if (table) (void)table->get(id, free_DOF);
                if (free_DOF) kept.push_back(id);
            }
            e = number_and_profile(kept, ends, element_DOFs, common_IDs, this->settings.RHS_only, *free_IDs,
                                   profile, K_bytes, index_bytes);
        }
        if (e != no_error) KELT_RAISE(*this, e, "Model error.");
        data.K_size_MB = profile_megabytes(K_bytes, index_bytes);
    }
    this->log(1, "Nbr free DOFs            : %10llu \n", (unsigned long long)nbr_free());
    return !this->stop_requested();
}

// U: the free DOFs in solver order, then the prescribed DOFs out of K, one column
// per case; the counts and the memory check.
template <class T, class S, class D>
void solver_static_linear<T, S, D>::size_solution()
{
    auto& data = *this->data;
    const unsigned Nf = nbr_free();
    dense1D<unsigned, 8> rows;
    if (!rows.reserve(Nf + prescribed_IDs.size(), 1)) throw std::bad_alloc();
    for (unsigned r = 0; r < Nf; ++r) rows.push_back((*free_IDs)[r]);
    for (unsigned id : prescribed_IDs) rows.push_back(id); // repeats keep their first row
    const FEM_real sized = rows.size() ? FEM_real(rows, nbr_cases) : FEM_real();
    const unsigned expected = sized.IDs->size();
    if (sized.rows() != expected || (expected && sized.cols() != nbr_cases)) {
        KELT_RAISE(*this, memory_error, "Matrix allocation error.");
    } else {
        static_cast<FEM_real&>(*U) = sized;
        U->stress_mgrs.assign(U->cols(), nullptr);
        U->internal_states.assign(U->cols(), nullptr);
    }
    data.nbr_free_DOFs = Nf;
    data.nbr_rows = U->rows();
    data.nbr_prescribed_out_K = data.nbr_rows > Nf ? data.nbr_rows - Nf : 0;
    unsigned inside = 0;
    in_K.assign(nbr_cases, false);
    out_K.assign(nbr_cases, false);
    for (unsigned i = 0; i < nbr_cases; ++i)
        for (unsigned k = prescribed_offsets[i]; k < prescribed_offsets[i + 1]; ++k) {
            const bool inner = free_IDs->rank(prescribed_IDs[k]) < Nf;
            inside += inner;
            (inner ? in_K : out_K)[i] = true;
        }
    data.nbr_prescribed_in_K = inside;

    data.RHS_size_MB = double(data.nbr_rows) * double(U->cols()) * 8.0 * bytes_to_MB;
    data.total_size_MB += data.K_size_MB + data.RHS_size_MB;
    if (this->above_total_limit(data.total_size_MB))
        KELT_RAISE(*this, insufficient_memory_error, "Insufficient memory.");
}

template <class T, class S, class D>
void solver_static_linear<T, S, D>::log_K_request()
{
    if (K_bytes < 0xFFFFFFFFu)
        this->log(2, "Requested memory for K   : %10llu doubles (%.2f MB) \n", (unsigned long long)(K_bytes / 8),
                  this->data->K_size_MB);
    else
        this->log(2, "Requested memory for K   : more than %.2f GB ! \n", 3.9999999990686774);
}

template <class T, class S, class D>
void solver_static_linear<T, S, D>::log_RHS_request()
{
    const unsigned long long values = (unsigned long long)this->data->nbr_rows * (U ? U->cols() : 0);
    this->log(2, "Requested memory for RHS : %10llu doubles (%.2f MB) \n", values, this->data->RHS_size_MB);
}

// Each column gets its case's thermal loads; a starting state hands its internal
// states to the model.
template <class T, class S, class D>
void solver_static_linear<T, S, D>::attach_states()
{
    for (unsigned i = 0; i < U->cols() && i < this->problem->stresses.size(); ++i)
        (void)U->set_stress_mgr(i, this->problem->stresses[i].get());
    if (!U_start || U_start->cols() == 0) return;
    const auto* store = dynamic_cast<const internal_states*>(U_start->internal_state(0));
    if (!store) return;
    if (auto e = model->set_internal_states(*store); e != no_error) KELT_RAISE(*this, e, "Model error.");
}

template <class T, class S, class D>
DOF_values_view solver_static_linear<T, S, D>::start_state() const
{
    DOF_values_view v;
    if (U_start && U_start->cols() > 0) (void)v.assign(*U_start, 0);
    return v;
}

template <class T, class S, class D>
element_pass_type solver_static_linear<T, S, D>::make_pass() const
{
    element_pass_type pass;
    pass.pos = this->problem->pos;
    pass.penalty_displacement = this->problem->penalty_displacement;
    pass.penalty_rotation = this->problem->penalty_rotation;
    return pass;
}

// True when a case has thermal loads for some model.
inline bool has_thermal_loads(const stress_super_mgr* s) noexcept
{
    if (!s) return false;
    for (const auto& t : s->thermal)
        if (t) return true;
    return false;
}

// Column i: the loads of case i at time 0, then what its thermal loads give.
template <class T, class S, class D>
bool solver_static_linear<T, S, D>::assemble_RHS()
{
    auto& data = *this->data;
    {
        phase_timer t(data.time_RHS_assembly);
        for (unsigned i = 0; i < U->cols(); ++i) {
            if (this->stop_requested()) return false;
            vector_type target;
            target.values = column(i);
            target.IDs = U->IDs;
            if (target.values.size() != U->rows()) {
                KELT_RAISE(*this, internal_error, "Assembly error.");
                break;
            }
            std::fill(target.values.begin(), target.values.end(), 0.0);
            vector_assembler<vector_type> into(target, 1.0);
            element_pass_type pass = make_pass();
            pass.U = start_state();
            error_type e = no_error;
            if (const loads_mgr* loads = this->problem->loads[i].get()) {
                load_pass_type lp(into, 1.0, 0.0, i);
                lp.element_pass = &pass;
                e = loads->assemble(lp);
            }
            const stress_super_mgr* thermal = this->problem->stresses[i].get();
            if (e == no_error && has_thermal_loads(thermal)) {
                pass.U.clear();
                pass.has_thermal = true;
                pass.thermal = thermal;
                pass.matrix_mode = matrix_none;
                pass.vector = &into;
                e = model->run_elements(load_kind(), pass);
            }
            if (e != no_error) {
                KELT_RAISE(*this, e, "Assembly error.");
                break;
            }
        }
    }
    this->log(1, "Numerical assembly matrix RHS      : %10.2f s.\n", data.time_RHS_assembly);
    if (data.error_code != no_error) return false;
    return !this->stop_requested();
}

inline double two_norm(const dense1D<double, 8>& v) noexcept
{
    double s = 0.0;
    for (double x : v) s += x * x;
    return std::sqrt(s);
}

template <class T, class S, class D>
void solver_static_linear<T, S, D>::log_RHS_norms()
{
    for (unsigned i = 0; i < U->cols(); ++i)
        this->log(2, "%3d ||F||                : %+E \n", int(i), two_norm(U->col_read(i)));
}

// K on the profile, assembled through the model.
template <class T, class S, class D>
bool solver_static_linear<T, S, D>::assemble_K(matrix_type& A)
{
    auto& data = *this->data;
    if (this->stop_requested()) return false;
    {
        phase_timer t(data.time_K_assembly);
        const unsigned Nf = nbr_free();
        A.IDs = free_IDs;
        if (A.matrix.create(profile, Nf, 0.0, OOC_manager()) != no_error || A.nbr_rows() != Nf) {
            A.matrix.clear();
            KELT_RAISE(*this, memory_error, "Matrix allocation error.");
        } else {
            matrix_sym_assembler<matrix_type> into(A, 1.0);
            element_pass_type pass = make_pass();
            pass.U = start_state();
            pass.matrix = &into;
            error_type e = model->run_elements(matrix_kind(), pass);
            if (e == no_error && A.matrix.proxy()) e = A.matrix.proxy()->flush_pending(false);
            if (e != no_error) KELT_RAISE(*this, e, "Assembly error.");
        }
    }
    this->log(1, "Numerical assembly matrix K        : %10.2f s.\n", data.time_K_assembly);
    if (data.error_code != no_error) return false;
    log_statistics(A.matrix);
    return true;
}

// L D Lᵀ of K, in place, or of a copy in `into` when K must keep its values. The
// pivot extremes go to the record, with "Pivot error." on a bad pivot and "Pivot
// warning." when the pivots spread over more than 12 decades.
template <class T, class S, class D>
bool solver_static_linear<T, S, D>::factorise(matrix_type& A, matrix_type* into)
{
    auto& data = *this->data;
    if (this->stop_requested()) return false;
    matrix_type& F = into ? *into : A;
    {
        phase_timer t(data.time_factorization);
        error_type e = no_error;
        if (into) {
            into->IDs = A.IDs;
            if (into->matrix.create(profile, A.nbr_rows(), 0.0, OOC_manager()) != no_error || into->nbr_rows() != A.nbr_rows())
                e = memory_error;
            else
                e = copy_matrix_values(A.matrix, into->matrix);
        }
        const bool force = family == static_family::mechanical && this->settings.force_pivots;
        double counted = 0.0; // the phase timer counts the copy too
        if (e != no_error)
            KELT_RAISE(*this, e, "Matrix allocation error.");
        else
            factorize_matrix(F.matrix, *free_IDs, force, *this, counted, data.bad_pivot_ID);
    }
    this->log(1, "Factorization matrix K             : %10.2f s.\n", data.time_factorization);
    log_statistics(F.matrix);
    if (F.nbr_rows() > 0 && data.error_code == no_error) {
        this->log(2, "  pivot max              : %+E \n", data.pivot_max);
        this->log(2, "  pivot min              : %+E \n", data.pivot_min);
    }
    return data.error_code == no_error;
}

// y += -K x through the model, for x and y on ranges of the rows of U; the energy
// of the pass (x K x / 2 for the elements that report it) comes back.
template <class T, class S, class D>
error_type solver_static_linear<T, S, D>::multiply_by_model(const double* x, matrix_product_assembler::row_range x_rows,
                                                            double* y, matrix_product_assembler::row_range y_rows,
                                                            double& energy)
{
    matrix_product_assembler product(*U->IDs, x, x_rows, y, y_rows, -1.0);
    element_pass_type pass = make_pass();
    pass.U.rows = U->IDs;
    pass.U.values = dense1D<double, 8>(U->rows(), const_cast<double*>(x));
    pass.matrix = &product;
    const error_type e = model->run_elements(matrix_kind(), pass);
    energy = pass.total_energy;
    return e;
}

// The prescribed values of case i over the rows of U (0 elsewhere). False when
// the case has none.
template <class T, class S, class D>
bool solver_static_linear<T, S, D>::gather_prescribed(unsigned i, dense1D<double, 8>& values)
{
    const loads_mgr* loads = this->problem->loads[i].get();
    if (!loads || prescribed_offsets[i] == prescribed_offsets[i + 1]) return false;
    if (!values.resize(U->rows())) throw std::bad_alloc();
    std::fill(values.begin(), values.end(), 0.0);
    vector_null_assembler none;
    const load_pass_type lp(none, 1.0, 0.0, i);
    loads->prescribed_vector(lp, *U->IDs, values);
    return true;
}

// Prescribed values out of K: written into U's rows and taken to the right-hand
// side as F - K_fp u_p, whose pass gives the energy u_p K_pp u_p / 2.
template <class T, class S, class D>
bool solver_static_linear<T, S, D>::eliminate_prescribed(unsigned i)
{
    if (prescribed_offsets[i] == prescribed_offsets[i + 1]) return true;
    if (this->stop_requested()) return false;
    auto& data = *this->data;
    const unsigned Nf = nbr_free(), n = U->rows();
    dense1D<double, 8> values;
    if (!gather_prescribed(i, values)) return true;
    if (std::all_of(values.begin(), values.end(), [](double v) { return v == 0.0; })) return true;
    dense1D<double, 8> col = column(i);
    if (col.size() != n) {
        KELT_RAISE(*this, internal_error, "Solver error.");
        return false;
    }
    std::fill(values.begin(), values.begin() + Nf, 0.0); // those inside K are the gradient's
    std::copy(values.begin() + Nf, values.end(), col.begin() + Nf);
    if (!out_K[i]) return true;
    double energy = 0.0;
    if (auto e = multiply_by_model(values.data(), {Nf, n}, col.data(), {0, Nf}, energy); e != no_error) {
        KELT_RAISE(*this, e, "Assembly error.");
        return false;
    }
    data.energies[i] = energy;
    return true;
}

// Work of the prescribed rows out of K on the solution: u_p . K_pf u_f.
template <class T, class S, class D>
double solver_static_linear<T, S, D>::prescribed_work(unsigned i)
{
    const unsigned Nf = nbr_free(), n = U->rows();
    if (!out_K[i] || n == Nf) return 0.0;
    dense1D<double, 8> col = column(i);
    if (col.size() != n) return 0.0;
    if (std::all_of(col.begin() + Nf, col.end(), [](double v) { return v == 0.0; })) return 0.0;
    std::vector<double> product(n, 0.0); // -K_pf u_f on the rows out of K
    double unused = 0.0;
    if (auto e = multiply_by_model(col.data(), {0, Nf}, product.data(), {Nf, n}, unused); e != no_error) {
        KELT_RAISE(*this, e, "Assembly error.");
        return 0.0;
    }
    col = column(i);
    double work = 0.0;
    for (unsigned r = Nf; r < n; ++r) work -= product[r] * col[r];
    return work;
}

// Columns first .. first + count - 1 solved at once with the factor; each column's
// x . b goes, halved, to its energy.
template <class T, class S, class D>
void solver_static_linear<T, S, D>::solve_group(unsigned first, unsigned count)
{
    auto& data = *this->data;
    const matrix_type& F = factor.matrix.proxy() ? factor : K;
    const unsigned Nf = nbr_free();
    std::vector<double> energy(count, 0.0);
    if (Nf > 0) {
        // The block solve wants the columns at a constant stride in memory; a
        // store that does not give them so is solved a column at a time.
        std::vector<double*> cols(count);
        for (unsigned j = 0; j < count; ++j) cols[j] = column(first + j).data();
        bool strided = count > 1 && U->in_core(first, count) && column(first).data() == cols[0] && cols[1] > cols[0];
        for (unsigned j = 2; strided && j < count; ++j) strided = cols[j] - cols[j - 1] == cols[1] - cols[0];
        error_type e = no_error;
        if (strided) {
            const auto ld = unsigned(cols[1] - cols[0]);
            forward_multi(F.matrix, cols[0], ld, count, energy.data(), LLC_size(), threads());
            e = backward_multi(F.matrix, cols[0], ld, count, LLC_size(), threads());
        } else {
            for (unsigned j = 0; j < count && e == no_error; ++j) {
                double* x = column(first + j).data();
                energy[j] = forward(F.matrix, x, threads());
                e = backward(F.matrix, x, threads());
            }
        }
        if (e != no_error) KELT_RAISE(*this, e, "Solver error.");
    }
    for (unsigned j = 0; j < count; ++j) {
        const unsigned i = first + j;
        data.energies[i] += 0.5 * energy[j];
        data.energies[i] += prescribed_work(i);
    }
}

// A case that holds DOFs of K at given values: the gradient on K with those rows
// fixed, preconditioned by the factor.
template <class T, class S, class D>
void solver_static_linear<T, S, D>::solve_constrained(unsigned i)
{
    auto& data = *this->data;
    const unsigned Nf = nbr_free();
    dense1D<double, 8> values, b, x;
    (void)gather_prescribed(i, values);
    if (!b.resize(Nf) || !x.resize(Nf)) throw std::bad_alloc();
    dense1D<double, 8> col = column(i);
    if (col.size() != U->rows()) {
        KELT_RAISE(*this, internal_error, "Solver error.");
        return;
    }
    std::copy(col.begin(), col.begin() + Nf, b.begin());
    std::fill(x.begin(), x.end(), 0.0);
    std::vector<unsigned> fixed;
    for (unsigned k = prescribed_offsets[i]; k < prescribed_offsets[i + 1]; ++k)
        if (const unsigned r = free_IDs->rank(prescribed_IDs[k]); r < Nf) {
            fixed.push_back(r);
            b[r] = 0.0;
            x[r] = values[r];
        }
    conj_gradient_settings cg;
    cg.tol = this->settings.CG_tolerance;
    cg.max_iters = this->settings.CG_max_iters;
    double residual = 0.0;
    // The gradient reports through the solver's log and stops on its interrupt.
    struct observer_type final : iteration_observer {
        solver_static_linear& solver;
        explicit observer_type(solver_static_linear& s) : solver(s) {}
        void log(unsigned level, const char* line) override { solver.log(level, "%s", line); }
        bool stop_requested() override { return solver.stop_requested(); }
        void iteration(unsigned, double) override {}
    } observer(*this);
    const error_type e = conj_gradient_static(K.matrix, factor.matrix, fixed, b, x, cg, observer, residual, threads());
    col = column(i);
    std::copy(x.begin(), x.end(), col.begin());
    // x K x / 2 is x . b / 2 on the free rows, plus the work on the held ones.
    double xb = 0.0;
    for (unsigned r = 0; r < Nf; ++r) xb += x[r] * b[r];
    std::vector<double> Kx(Nf, 0.0);
    const double held = multiply_fixed(K.matrix, 1.0, x.data(), Kx.data(), fixed.data(), unsigned(fixed.size()),
                                       threads());
    data.energies[i] += 0.5 * xb + held + prescribed_work(i);
    // An interrupt ends the gradient unconverged: the warning tells it, not an error.
    if (e != no_error && data.error_code == no_error && data.warning_code != interrupted_warning)
        KELT_RAISE(*this, e, e == inf_nan_error ? "INF or NaN detected." : "Solver error.");
}

// Prescribed values out of K first, then the cases in groups: runs of cases solved
// by the factor alone, and one at a time those that need the gradient.
template <class T, class S, class D>
void solver_static_linear<T, S, D>::resolve()
{
    auto& data = *this->data;
    for (unsigned i = 0; i < U->cols(); ++i)
        if (!eliminate_prescribed(i)) return;
    for (unsigned i = 0; i < U->cols();) {
        if (this->stop_requested()) return;
        if (in_K[i]) {
            solve_constrained(i);
            ++i;
        } else {
            unsigned count = 1;
            while (i + count < U->cols() && !in_K[i + count]) ++count;
            solve_group(i, count);
            i += count;
        }
        if (data.error_code != no_error) return;
    }
}

// The extremes of one field over a column; both 0 when it has no row.
inline void field_range(const dense1D<double, 8>& col, const vector_fast& rows, unsigned first_place,
                        unsigned last_place, double& lo, double& hi) noexcept
{
    bool any = false;
    lo = hi = 0.0;
    for (unsigned r = 0; r < col.size() && r < rows.size(); ++r) {
        const unsigned place = rows[r] % DOFs_mgr::nbr_places;
        if (place < first_place || place > last_place) continue;
        const double v = col[r];
        if (!any || v < lo) lo = v;
        if (!any || v > hi) hi = v;
        any = true;
    }
}

template <class T, class S, class D>
void solver_static_linear<T, S, D>::report()
{
    const auto& data = *this->data;
    const bool thermal = family == static_family::thermal;
    for (unsigned i = 0; i < U->cols(); ++i) {
        const dense1D<double, 8> col = U->col_read(i);
        double lo = 0.0, hi = 0.0;
        if (thermal) {
            this->log(2, "%3d ||dTH||              : %+E \n", int(i), two_norm(col));
            field_range(col, *U->IDs, 6, 8, lo, hi);
            this->log(2, "%3d max temperature      : %+E \n", int(i), hi);
            this->log(2, "%3d min temperature      : %+E \n", int(i), lo);
            continue;
        }
        this->log(2, "%3d ||du||               : %+E \n", int(i), two_norm(col));
        field_range(col, *U->IDs, 0, 2, lo, hi);
        this->log(2, "%3d max displacement     : %+E \n", int(i), hi);
        this->log(2, "%3d min displacement     : %+E \n", int(i), lo);
        field_range(col, *U->IDs, 3, 5, lo, hi);
        this->log(2, "%3d max rotation         : %+E \n", int(i), hi);
        this->log(2, "%3d min rotation         : %+E \n", int(i), lo);
        this->log(2, "%3d elastic energy       : %+E \n", int(i), i < data.energies.size() ? data.energies[i] : 0.0);
    }
}

template <class T, class S, class D>
void solver_static_linear<T, S, D>::compact_solution()
{
    if (!U || U->cols() == 0) return;
    if (!U->force_incore() && !U->in_core(0, 1) && this->data->error_code == no_error) {
        auto& data = *this->data;
        data.error_code = memory_error;
        std::snprintf(data.msg_title, fem::run_status::text_size, "%s", "MEMORY ERROR");
        data.msg_detail[0] = 0;
    }
}

extern template class solver_static_linear<OOC_matrix_types, fem::solver_static_linear::settings_type,
                                           fem::solver_static_linear::data_type>;
extern template class solver_static_linear<OOC_matrix_types, fem::solver_thermal_static_linear::settings_type,
                                           fem::solver_thermal_static_linear::data_type>;

} // namespace kelt::core
