// SPDX-License-Identifier: MIT
#include "atom_names.h"
#include "checks.h"
#include "tds_integral.h"

#include "crystal/atom_bk.h"
#include "crystal/atomf.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>

namespace orvel::tables {

constexpr double pi = 3.14159265358979323846;
constexpr double check_kv = 100.0; // voltage at which f' is asked for: it goes as 1/beta

// What a list of errors says: root of the mean square, mean size, the size that 95 % stay below,
// and the largest with the name of its owner.
struct error_list {
    std::vector<double> sizes;
    double largest;
    std::string owner;
};

struct error_figures {
    double rms, mean, p95;
};

static void add_error(error_list& list, double error, const std::string& owner) {
    list.sizes.push_back(std::fabs(error));
    if (std::fabs(error) > std::fabs(list.largest)) {
        list.largest = error;
        list.owner = owner;
    }
}

static error_figures figures(error_list list) {
    std::sort(list.sizes.begin(), list.sizes.end());
    double sum = 0.0, squares = 0.0;
    for (double e : list.sizes) {
        sum += e;
        squares += e * e;
    }
    const double n = static_cast<double>(list.sizes.size());
    return {std::sqrt(squares / n), sum / n, list.sizes[list.sizes.size() * 95 / 100]};
}

static xdt_tbl read_row(const std::string& name) {
    char element[16];
    std::snprintf(element, sizeof element, "%s", name.c_str());
    return read_xdt_table(element);
}

// ---- X-ray rows ------------------------------------------------------------------------------

static void check_sums(check_log& log, const std::vector<atom_name>& names) {
    error_list atoms{}, ions{};
    for (const atom_name& a : names) {
        const xdt_tbl x = read_row(a.name);
        // a wrong Z shows as an error of thousands
        const double misfit = x.a1 + x.a2 + x.a3 + x.a4 + x.c - (a.z - a.charge);
        add_error(a.charge == 0 ? atoms : ions, misfit + 1e3 * (x.z - a.z), a.name);
    }
    check(log, names.size() == 226, "%zu names", names.size());
    const double rms_atoms = figures(atoms).rms, rms_ions = figures(ions).rms;
    check(log, rms_atoms < 0.0265 && std::fabs(atoms.largest) < 0.0585,
          "sum of a_i + c less the electrons, neutral: rms %.4f, largest %.4f (%s)", rms_atoms,
          atoms.largest, atoms.owner.c_str());
    check(log, rms_ions < 0.0075 && std::fabs(ions.largest) < 0.0275,
          "sum of a_i + c less the electrons, ions: rms %.4f, largest %.4f (%s)", rms_ions,
          ions.largest, ions.owner.c_str());
}

// The Mott factors of He to Cf against the elastic fits: relative error in ranges of s.
static void check_mott(check_log& log, const csv_table& kirkland) {
    static const struct {
        double from, to, rms_limit, largest_limit; // limits: the misfit known of the two sources
    } ranges[] = {
        {0.0, 0.0, 0.046, 0.125},
        {0.02, 0.05, 0.040, 0.30},
        {0.05, 0.1, 0.013, 0.15},
        {0.1, 0.2, 0.0075, 0.055},
        {0.2, 0.5, 0.0026, 0.035},
        {0.5, 2.0, 0.0010, 0.01},
    };
    constexpr int steps = 20;
    const std::size_t symbol = csv_column(kirkland, "symbol");
    for (const auto& range : ranges) {
        error_list errors{};
        for (std::size_t row = 1; row < kirkland.rows.size(); ++row) {
            const elastic_fit fit = read_elastic_fit(kirkland, row);
            const xdt_tbl x = read_row(kirkland.rows[row][symbol]);
            for (int i = 0; i <= steps; ++i) {
                const double s = range.from + (range.to - range.from) * i / steps;
                add_error(errors, atomsf_xdt(s * s, x) / elastic_factor(fit, s) - 1.0,
                          kirkland.rows[row][symbol]);
            }
        }
        const double rms = figures(errors).rms;
        check(log, rms < range.rms_limit && std::fabs(errors.largest) < range.largest_limit,
              "Mott factor against the elastic fit, s %g to %g: rms %.2f %%, largest %.1f %% (%s)",
              range.from, range.to, 100.0 * rms, 100.0 * errors.largest, errors.owner.c_str());
    }
}

// ---- the integral ----------------------------------------------------------------------------

// J of a sum of four Gaussians exp(-b s^2) in closed form.
static double gaussian_integral(const elastic_fit& fit, double s, double B) {
    double sum = 0.0;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            const double bi = 4.0 * fit.d[i], bj = 4.0 * fit.d[j];
            const double p = bi + bj, w = p + 2.0 * B;
            sum += fit.c[i] * fit.c[j] *
                   (pi / p * std::exp(-bi * bj * s * s / p) -
                    pi / w *
                        std::exp((bi - bj) * (bi - bj) * s * s / (4.0 * w) - p * s * s / 4.0 +
                                 B * s * s / 2.0));
        }
    return sum;
}

static void check_integral(check_log& log) {
    const elastic_fit gaussians = {0, 4, {}, {}, {2.1, 1.3, 0.9, 0.2}, {7.5, 1.5, 0.275, 0.03}};
    static const struct {
        double s, B, J;
    } points[] = {{0, 0.5, 1.43202376},
                  {0.3, 0.5, 1.32842955},
                  {1, 0.5, 0.75622251},
                  {2, 0.5, 0.02969065},
                  {1, 2, 0.67570241}};
    double closed = 0.0, reference = 0.0;
    for (const auto& p : points) {
        const double J = tds_integral(gaussians, p.s, p.B);
        closed = std::max(closed, std::fabs(J / gaussian_integral(gaussians, p.s, p.B) - 1.0));
        reference = std::max(reference, std::fabs(J - p.J));
    }
    check(log, closed < 1e-12 && reference < 1e-8,
          "quadrature of Gaussians: within %.1e of the closed form, %.1e of the reference values",
          closed, reference);

    static const struct {
        double M, G;
    } limits[] = {{0, 0},
                  {0.0018, 0.06849123},
                  {0.008, 0.2302283},
                  {0.0257, 0.5567534},
                  {0.089, 1.282675},
                  {0.286, 2.337591},
                  {0.76, 2.697112},
                  {1.69, -0.000468843},
                  {2.58, -5.445397},
                  {8, -159.3359}};
    double worst = 0.0;
    for (const auto& l : limits)
        worst = std::max(worst, l.G == 0.0 ? std::fabs(tds_limit(l.M))
                                           : std::fabs(tds_limit(l.M) / l.G - 1.0));
    check(log, worst < 1e-6, "G(M) within %.1e of the reference values", worst);
}

static void check_refinement(check_log& log, const csv_table& kirkland) {
    double worst = 0.0;
    for (const std::size_t row : {5u, 13u, 54u, 78u})
        for (const double s : {0.0, 0.3, 1.0, 4.0, 8.9})
            for (const double B : {0.1, 0.5, 3.0}) {
                const elastic_fit fit = read_elastic_fit(kirkland, row);
                const double scale =
                    std::max(std::fabs(tds_integral(fit, s, B, 3)),
                             1e-3 * tds_integral(fit, 0.0, B, 3) * std::exp(B * s * s));
                worst = std::max(worst,
                                 std::fabs(tds_integral(fit, s, B, 3) - tds_integral(fit, s, B)) /
                                     scale);
            }
    check(log, worst < 1e-9, "quadrature with three times the steps (C, Si, Cs, Au): within %.1e",
          worst);
}

static void check_reference(check_log& log, const csv_table& kirkland,
                            const csv_table& reference) {
    static const struct {
        double B;
        const char* column;
    } columns[] = {{0.1, "KJ_B0.1"}, {0.5, "KJ_B0.5"}, {1.0, "KJ_B1"}, {2.0, "KJ_B2"}};
    double worst_f = 0.0, worst_J = 0.0;
    const std::size_t per_element = reference.rows.size() / kirkland.rows.size();
    for (std::size_t r = 0; r < reference.rows.size(); ++r) {
        const elastic_fit fit = read_elastic_fit(kirkland, r / per_element);
        const double s = csv_number(reference, r, csv_column(reference, "s"));
        const double f = csv_number(reference, r, csv_column(reference, "f"));
        worst_f = std::max(worst_f, std::fabs(elastic_factor(fit, s) / f - 1.0));
        for (const auto& c : columns) {
            const double KJ = csv_number(reference, r, csv_column(reference, c.column));
            worst_J =
                std::max(worst_J, std::fabs(tds_scale * tds_integral(fit, s, c.B) / KJ - 1.0));
        }
    }
    check(log, worst_f < 1e-7 && worst_J < 1e-6,
          "%zu values of f within %.1e, %zu of K J within %.1e of the reference",
          reference.rows.size(), worst_f, 4 * reference.rows.size(), worst_J);
}

// ---- entries of orvelbk.dat ------------------------------------------------------------------

static double decoded(const bk_tbl& bk, int i, int j) {
    return (bk.f[i][j] * 10.0 / bk.mlt_fct - 1e-6 * bk.add_fct) * std::exp(bk.gms2[j]);
}

// Half a unit of the fifth figure of a number.
static double half_unit(double x) {
    return x == 0.0 ? 0.0 : 0.5001 * std::pow(10.0, std::floor(std::log10(std::fabs(x))) - 4.0);
}

// I(B, M) of silicon: reference values of five figures.
static void check_silicon(check_log& log) {
    static const double table[bk_num_b][bk_num_m] = {
        {0, 0.0011354, 0.0038167, 0.0092297, 0.021264, 0.038752, 0.044712, -7.772e-06, -0.090272,
         -2.6414},
        {0.0016422, 0.002495, 0.005332, 0.010987, 0.021236, 0.038097, 0.048002, 0.014987,
         -0.060114, -2.363},
        {0.0027102, 0.003373, 0.0056426, 0.011256, 0.022387, 0.037884, 0.048351, 0.019293,
         -0.05058, -2.2516},
        {0.0056366, 0.0060365, 0.0073902, 0.011181, 0.02231, 0.039095, 0.050165, 0.031626,
         -0.024555, -2.0142},
        {0.0090907, 0.0093352, 0.010166, 0.012478, 0.020263, 0.037021, 0.051144, 0.042355,
         0.0044674, -1.665},
        {0.011355, 0.011536, 0.012154, 0.013874, 0.019726, 0.034229, 0.049951, 0.045855, 0.016752,
         -1.3856},
    };
    const bk_tbl bk = read_atom_dat_table("Si");
    double worst = 0.0;
    for (int i = 0; i < bk_num_b; ++i)
        for (int j = 0; j < bk_num_m; ++j) {
            // half a unit of the reference's last figure, and half a code
            const double code = 0.5 * 10.0 / bk.mlt_fct * std::exp(bk.gms2[j]);
            const double digit = half_unit(table[i][j]);
            worst = std::max(worst, std::fabs(decoded(bk, i, j) - table[i][j]) / (code + digit));
        }
    check(log, worst <= 1.0,
          "decoded table of Si: %.2f of what rounding allows from the reference", worst);
}

static bool same_entry(const bk_tbl& a, const bk_tbl& b) {
    bool same = a.mlt_fct == b.mlt_fct && a.add_fct == b.add_fct &&
                std::equal(a.dt, a.dt + bk_num_s, b.dt);
    for (int i = 0; i < bk_num_b; ++i)
        same = same && std::equal(a.f[i], a.f[i] + bk_num_m, b.f[i]);
    return same;
}

// Every entry: the decoded values against the integral at the grid points, and f between them.
static void check_entries(check_log& log, const std::vector<atom_name>& names,
                          const csv_table& kirkland) {
    error_list codes{}, elastic{};
    int same = 0;
    for (std::size_t row = 0; row < kirkland.rows.size(); ++row) {
        const elastic_fit fit = read_elastic_fit(kirkland, row);
        const std::string symbol = kirkland.rows[row][csv_column(kirkland, "symbol")];
        const bk_tbl bk = read_atom_dat_table(symbol.c_str());
        for (int i = 1; i < bk_num_b; ++i)
            for (int j = 0; j < bk_num_m; ++j) {
                const double s = std::sqrt(bk.gms2[j] / bk.gm[i]);
                const double exact =
                    tds_scale * tds_integral(fit, s, bk.gm[i]) / elastic_factor(fit, s);
                const double unit = 10.0 / bk.mlt_fct * std::exp(bk.gms2[j]);
                add_error(codes, (decoded(bk, i, j) - exact) / unit, symbol);
            }
        for (int i = 0; i <= 600; ++i) {
            const double s = i * 0.01;
            add_error(elastic,
                      cub_int_2(s, bk_num_s, bk.dts, bk.dt) / 1000.0 / elastic_factor(fit, s) -
                          1.0,
                      symbol);
        }
        for (const atom_name& a : names)
            if (a.z == static_cast<int>(row) + 1 &&
                same_entry(read_atom_dat_table(a.name.c_str()), bk))
                ++same;
    }
    check(log, std::fabs(codes.largest) < 0.501,
          "%zu codes: largest distance from the integral %.4f units (%s)", codes.sizes.size(),
          std::fabs(codes.largest), codes.owner.c_str());
    const double rms = figures(elastic).rms;
    check(log, rms < 7e-4 && std::fabs(elastic.largest) < 2.9e-3,
          "interpolated f: rms %.3f %%, largest %.3f %% (%s)", 100.0 * rms,
          100.0 * elastic.largest, elastic.owner.c_str());
    check(log, same == 226, "%d names with the entry of their element", same);
}

// Error of the interpolated f' with the Debye-Waller factor that it meets in the structure factor,
// over the larger of f' exp(-B s^2) and f'(0) / 10. forward is f'(0) beta.
static double interpolation_error(const bk_tbl& bk, const elastic_fit& fit, double s, double B,
                                  double forward) {
    double pair[2];
    atom_bk(bk, s, B, pair, check_kv);
    const double exact = tds_scale * tds_integral(fit, s, B);
    const double damping = std::exp(-B * s * s);
    return (pair[1] * beta(check_kv) - exact) * damping /
           std::max(std::fabs(exact) * damping, forward / 10.0);
}

static std::string place(const std::string& symbol, double s, double B) {
    char text[64];
    std::snprintf(text, sizeof text, "%s, s %.2f, B %.2f", symbol.c_str(), s, B);
    return text;
}

static void report_interpolation(check_log& log, const char* what, const error_list& e,
                                 double mean_limit, double p95_limit, double largest_limit) {
    const error_figures f = figures(e);
    check(log, f.mean < mean_limit && f.p95 < p95_limit && std::fabs(e.largest) < largest_limit,
          "atom_bk against the integral, %s: %zu points, mean %.2f %%, 95 %% below %.2f %%, "
          "largest %.2f %% (%s)",
          what, e.sizes.size(), 100.0 * f.mean, 100.0 * f.p95, 100.0 * std::fabs(e.largest),
          e.owner.c_str());
}

// Ten elements at 200 random points each; the seed is fixed, so they are the same every time.
static void check_random_points(check_log& log, const csv_table& kirkland) {
    error_list all{};
    std::mt19937 random(20);
    const auto uniform = [&random] {
        return (static_cast<double>(random()) + 0.5) / 4294967296.0;
    };
    for (const std::size_t z : {6u, 8u, 13u, 14u, 22u, 29u, 31u, 47u, 74u, 79u}) {
        error_list one{};
        const elastic_fit fit = read_elastic_fit(kirkland, z - 1);
        const std::string symbol = kirkland.rows[z - 1][csv_column(kirkland, "symbol")];
        const bk_tbl bk = read_atom_dat_table(symbol.c_str());
        for (int i = 0; i < 200; ++i) {
            const double s = 2.0 * uniform();
            const double B = 0.1 + 2.9 * uniform();
            const double error =
                interpolation_error(bk, fit, s, B, tds_scale * tds_integral(fit, 0.0, B));
            add_error(one, error, place(symbol, s, B));
            add_error(all, error, place(symbol, s, B));
        }
        report_interpolation(log, symbol.c_str(), one, 0.008, 0.02, 0.03);
    }
    report_interpolation(log, "ten elements, B 0.1 to 3", all, 0.0065, 0.016, 0.03);
}

// All elements on a grid of points.
static void check_all_elements(check_log& log, const csv_table& kirkland) {
    static const struct {
        const char* what;
        std::vector<double> B;
        double s_from, s_to, mean_limit, p95_limit, largest_limit;
    } ranges[] = {
        {"98 elements, s 0 to 2, B 0.1 to 2",
         {0.1, 0.13, 0.17, 0.22, 0.3, 0.4, 0.55, 0.75, 1.0, 1.4, 2.0},
         0.0,
         2.0,
         0.0065,
         0.016,
         0.042},
        {"98 elements, s 0 to 2, B 2.2 to 3", {2.2, 2.6, 3.0}, 0.0, 2.0, 0.0075, 0.018, 0.025},
        {"98 elements, s 2.2 to 4, B 0.2 to 1", {0.2, 0.45, 1.0}, 2.2, 4.0, 0.006, 0.012, 0.02},
        // below the grid's first B no mean of stencils exists, and M is extrapolated near s = 0
        {"hard materials, s 0 to 2, B 0.09", {0.09}, 0.0, 2.0, 0.01, 0.03, 0.1},
        {"hard materials, s 0 to 2, B 0.05", {0.05}, 0.0, 2.0, 0.02, 0.06, 0.2},
    };
    // elements whose B may be below 0.1
    static const std::vector<std::string> hard = {"Be", "B", "C", "N", "Si", "Mo",
                                                  "Ru", "Ta", "W", "Re", "Os", "Ir"};
    constexpr int steps = 20;
    for (const auto& range : ranges) {
        error_list errors{};
        for (std::size_t row = 0; row < kirkland.rows.size(); ++row) {
            const elastic_fit fit = read_elastic_fit(kirkland, row);
            const std::string symbol = kirkland.rows[row][csv_column(kirkland, "symbol")];
            if (range.B[0] < 0.1 && std::find(hard.begin(), hard.end(), symbol) == hard.end())
                continue;
            const bk_tbl bk = read_atom_dat_table(symbol.c_str());
            for (const double B : range.B) {
                const double forward = tds_scale * tds_integral(fit, 0.0, B);
                for (int i = 0; i <= steps; ++i) {
                    const double s = range.s_from + (range.s_to - range.s_from) * i / steps;
                    if (B * s * s <= bk.gms2[bk_num_m - 1]) // beyond, the program takes f' as 0
                        add_error(errors, interpolation_error(bk, fit, s, B, forward),
                                  place(symbol, s, B));
                }
            }
        }
        report_interpolation(log, range.what, errors, range.mean_limit, range.p95_limit,
                             range.largest_limit);
    }
}

// ---- a published parametrisation -------------------------------------------------------------

// It was fitted over a limited range of B s^2: compared where f' exp(-B s^2) is above f'(0) / 20.
static void check_published(check_log& log, const csv_table& kirkland,
                            const csv_table& published) {
    static const char* const names[] = {"a1", "b1", "a2", "b2", "a3", "b3", "a4", "b4", "c"};
    error_list integral{}, table{};
    for (std::size_t r = 0; r < published.rows.size(); ++r) {
        double p[9];
        for (std::size_t i = 0; i < 9; ++i)
            p[i] = csv_number(published, r, csv_column(published, names[i]));
        const double B = csv_number(published, r, csv_column(published, "B"));
        const auto row =
            static_cast<std::size_t>(csv_number(published, r, csv_column(published, "Z"))) - 1;
        const elastic_fit fit = read_elastic_fit(kirkland, row);
        const std::string symbol = published.rows[r][csv_column(published, "symbol")];
        const bk_tbl bk = read_atom_dat_table(symbol.c_str());
        const double forward = p[0] + p[2] + p[4] + p[6] + p[8];
        for (int i = 0; i <= 6; ++i) {
            const double s = 0.25 * i;
            double value = p[8], pair[2];
            for (int k = 0; k < 8; k += 2)
                value += p[k] * std::exp(-p[k + 1] * s * s);
            if (std::fabs(value) * std::exp(-B * s * s) < forward / 20.0)
                continue;
            atom_bk(bk, s, B, pair, check_kv);
            add_error(integral, tds_scale * tds_integral(fit, s, B) / value - 1.0, symbol);
            add_error(table, pair[1] * beta(check_kv) / value - 1.0, symbol);
        }
    }
    std::sort(integral.sizes.begin(), integral.sizes.end());
    std::sort(table.sizes.begin(), table.sizes.end());
    const double median[2] = {integral.sizes[integral.sizes.size() / 2],
                              table.sizes[table.sizes.size() / 2]};
    const double p95[2] = {figures(integral).p95, figures(table).p95};
    check(log, median[0] < 0.0012 && p95[0] < 0.0055,
          "published parametrisation against K J: %zu points, median %.2f %%, 95 %% below %.2f %%",
          integral.sizes.size(), 100.0 * median[0], 100.0 * p95[0]);
    check(log, median[1] < 0.005 && p95[1] < 0.015,
          "published parametrisation against the table: median %.2f %%, 95 %% below %.2f %%",
          100.0 * median[1], 100.0 * p95[1]);
}

void check_factors(check_log& log, const std::string& source_dir) {
    const csv_table kirkland = read_csv(source_dir + "electron_kirkland.csv", ',');
    const std::vector<atom_name> names =
        list_atom_names(read_csv(source_dir + "xray_4gauss.csv", ','));
    check_sums(log, names);
    check_mott(log, kirkland);
    check_integral(log);
    check_refinement(log, kirkland);
    check_reference(log, kirkland, read_csv(source_dir + "absorptive_reference.csv", ','));
    check_silicon(log);
    check_entries(log, names, kirkland);
    check_random_points(log, kirkland);
    check_all_elements(log, kirkland);
    check_published(log, kirkland, read_csv(source_dir + "absorptive_thomas2024.csv", ','));
}

} // namespace orvel::tables
