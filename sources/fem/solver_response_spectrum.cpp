// Spectrum combination: per direction and component, the modal responses
// r_i = PF(i, d) φ_i combined as sqrt(Σ_ij rho_ij r_i r_j + (Σ_s r_s)²), the
// pseudo modes fully correlated, and the share of the pseudo modes in the sum of
// squares reported as a correction.
#include "kelt/fem/solver_response_spectrum.h"

#include <cmath>
#include <cstdio>
#include <new>
#include <vector>

#include "kelt/fem/solver_frame.h"

namespace kelt::fem {

symmetric_full<double> spectrum_combination_cqc::operator()(const dense1D<double, 8>& omega) const
{
    const unsigned n = omega.size();
    symmetric_full<double> rho;
    if (!rho.resize(n, 0.0)) throw std::bad_alloc();
    std::vector<double> x(n);
    for (unsigned i = 0; i < n; ++i) x[i] = damping_(omega[i]);
    for (unsigned i = 0; i < n; ++i)
        for (unsigned j = 0; j < n; ++j) {
            const double r = omega[i] / omega[j], a = x[i], b = x[j];
            const double num = 8.0 * std::sqrt(a * b * r) * r * (r * a + b);
            const double den = (1.0 - r * r) * (1.0 - r * r) + 4.0 * a * b * r * (1.0 + r * r) +
                               4.0 * r * r * (a * a + b * b);
            rho(i, j) = num / den;
        }
    return rho;
}

void solver_response_spectrum::data_type::PF_div_omega2()
{
    if (PF.rows() != omega.size()) {
        if (error_code != no_error) return;
        error_code = invalid_data_error;
        std::snprintf(msg_title, text_size, "%s", "DATA ERROR");
        std::snprintf(msg_detail, text_size, "%s",
                      "KELT solver_response_spectrum::PF_div_omega2: PF and frequencies size mismatch.\n");
        return;
    }
    for (unsigned i = 0; i < PF.rows(); ++i)
        for (unsigned d = 0; d < PF.cols(); ++d) PF(i, d) /= omega[i] * omega[i];
}

bool solver_response_spectrum::data_type::valid() const
{
    return has_numerical_model() && combination != nullptr;
}

namespace {

using data_type = solver_response_spectrum::data_type;

// Each array sized to the counts of the record: one row of PF and one pulsation
// per dynamic mode, one row of static_PF per pseudo mode, a column per direction,
// and the pseudo modes on the rows of the modes.
bool sizes_agree(const data_type& d, unsigned directions)
{
    const unsigned nd = d.nbr_dynamic_modes, ns = d.nbr_static_modes;
    if (d.omega.size() != nd || d.PF.rows() != nd || (nd && d.PF.cols() != directions)) return false;
    if (d.static_PF.rows() != ns || (ns && d.static_PF.cols() != directions)) return false;
    return ns == 0 || nd == 0 || d.pseudo_modes.rows() == d.modes.rows();
}

void spectrum_run(core::run_state& run, const response_spectrum_settings& s, data_type& data)
{
    const unsigned stride = s.stride, nd = data.nbr_dynamic_modes, ns = data.nbr_static_modes;
    const unsigned dyn_cols = data.modes.cols(), stat_cols = data.pseudo_modes.cols();
    if (dyn_cols % stride != 0 || stat_cols % stride != 0 || dyn_cols / stride != nd || stat_cols / stride != ns) {
        KELT_RAISE(run, invalid_data_error, "DATA ERROR");
        std::snprintf(data.msg_detail, run_status::text_size, "%s", "KELT solver_response_spectrum: stride error.\n");
        return;
    }
    if (!sizes_agree(data, s.nbr_directions)) {
        KELT_RAISE(run, invalid_data_error, "DATA ERROR");
        std::snprintf(data.msg_detail, run_status::text_size, "%s", "KELT solver_response_spectrum: invalid data.\n");
        return;
    }
    run.log(0, "SEISMIC SPECTRUM COMBINATION\n");
    const double start = core::wall_clock();
    const FEM_matrix& source = nd ? static_cast<const FEM_matrix&>(data.modes) : data.pseudo_modes;
    const unsigned rows = source.rows(), out_cols = s.nbr_directions * stride;
    const symmetric_full<double> rho = nd ? (*data.combination)(data.omega) : symmetric_full<double>();
    if (rho.size() != nd) {
        KELT_RAISE(run, invalid_data_error, "DATA ERROR");
        return;
    }
    data.response = FEM_matrix(source.get_IDs(), out_cols);
    if (!data.correction.resize(out_cols, 0.0) || (rows && out_cols && data.response.cols() != out_cols))
        throw std::bad_alloc();

    std::vector<double> r(std::size_t(nd) * rows), q(rows), out(rows);
    for (unsigned d = 0; d < s.nbr_directions; ++d)
        for (unsigned c = 0; c < stride; ++c) {
            if (run.stop_requested()) return;
            run.log(2, "Dir #%d, Component #%d\n", int(d), int(c));
            for (unsigned i = 0; i < nd; ++i) {
                const dense1D<double, 8> phi = data.modes.col(i * stride + c);
                for (unsigned k = 0; k < rows; ++k) r[std::size_t(i) * rows + k] = data.PF(i, d) * phi[k];
            }
            std::fill(q.begin(), q.end(), 0.0);
            for (unsigned m = 0; m < ns; ++m) {
                const dense1D<double, 8> psi = data.pseudo_modes.col(m * stride + c);
                for (unsigned k = 0; k < rows; ++k) q[k] += data.static_PF(m, d) * psi[k];
            }
            double T = 0.0, D = 0.0;
            for (unsigned k = 0; k < rows; ++k) {
                double sum = 0.0;
                for (unsigned i = 0; i < nd; ++i) {
                    const double ri = r[std::size_t(i) * rows + k];
                    for (unsigned j = 0; j < nd; ++j) sum += rho(i, j) * ri * r[std::size_t(j) * rows + k];
                }
                const double dyn = sum > 0.0 ? sum : 0.0;
                const double all = sum + q[k] * q[k];
                out[k] = all > 0.0 ? std::sqrt(all) : 0.0;
                D += dyn;
                T += out[k] * out[k];
            }
            const unsigned col = d * stride + c;
            if (rows && data.response.set_col(col, dense1D<double, 8>(rows, out.data())) != no_error)
                throw std::bad_alloc();
            const double corr = T > 0.0 && D < T ? std::sqrt((T - D) / T) : 0.0;
            data.correction[col] = corr;
            run.log(2, "Correction pseudo mode (norm2) = %.2f %%\n", 100.0 * corr);
        }
    run.log(1, "Dynamic modes                      : %d \n", int(nd));
    run.log(1, "Static modes                       : %d \n", int(ns));
    data.time_total = core::wall_clock() - start;
    run.log(0, "Total computing time               : %10.2f s.\n\n", data.time_total);
}

} // namespace

void solver_response_spectrum::run(data_type& data) const
{
    core::run_frame(settings, data, "KELT solver_response_spectrum: invalid settings.\n",
                    "KELT solver_response_spectrum: invalid data.\n",
                    [&](core::run_state& run) { spectrum_run(run, settings, data); });
}

} // namespace kelt::fem
