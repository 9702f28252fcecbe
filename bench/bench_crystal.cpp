// SPDX-License-Identifier: MIT
#include "bench_crystal.h"

#include <cstdlib>

#include "bench_util.h"
#include "control/ov_mpi.h"
#include "control/settings.h"
#include "numeric/lb_eigmat.h"
#include "numeric/vecmat.h"

using namespace orvel;

namespace orvel_bench {

std::string crystal_block(const std::string& name) {
    const std::string text = text_of(ORVEL_SOURCE_DIR + name), last = "}CRYSTAL_STRUCTURE_DATA\n";
    const std::size_t begin = text.find("CRYSTAL_STRUCTURE_DATA{");
    return text.substr(begin, text.find(last) + last.size() - begin);
}

std::string index_line(hkl g) {
    return std::to_string(g.h) + " " + std::to_string(g.k) + " " + std::to_string(g.l) + "\n";
}

std::FILE* open_text(std::string& text) { return fmemopen(text.data(), text.size(), "r"); }

csd read_crystal(std::string text) {
    csd crystal;
    const int console = silence();
    const std::string before = enter(ORVEL_SOURCE_DIR "/data");
    text.insert(0, default_settings);
    std::FILE* file = open_text(text);
    read_eps_ctrl_params(file);
    input_csd_cstr(crystal, file, "unused");
    std::fclose(file);
    enter(before);
    end_silence(console);
    return crystal;
}

hkl* innermost_beams(int n, double g_max, int lz_max, uvw zone_uvw, r_hkl zolzbase1, csd& crystal, double kv) {
    beam_setup setup = {{zone_uvw, zone_uvw, zolzbase1, 0, 0, kv}, {}, 0, 0, nullptr};
    beam_search& bs = setup.beam_search;
    bs.flag_bs = method_sg;
    bs.num_g_limit = 100000;
    bs.lz_max = lz_max;
    bs.g_max = g_max;
    bs.disksize = 0.5;
    bs.sgbmin = bs.sgmax = 1e3; // no excitation error is as large
    bs.xigmax = 1e9;            // forbidden reflections have 1e10
    const int console = silence();
    make_beam_list(setup, false, crystal);
    end_silence(console);
    if (setup.num_exact_beam < n)
        ov_abort(stderr, "%d beams found, %d needed\n", setup.num_exact_beam, n);
    return setup.reflex_sel;
}

static zone new_zone() {
    const int num_out = 20;
    zone z = {};
    sd& cond = z.cond;
    z.crystal = read_crystal(crystal_block(gaas_file));
    const lattice lat = lattice_of(z.crystal);
    cond.zone_uvw = cond.normal_uvw = {1, 1, 0};
    cond.zolzbase1 = {0, 0, 2};
    cond.zolzbase2 = zolz_ort_base(cond.zone_uvw, cond.zolzbase1, lat);
    cond.kv = 100;
    cond.num_exact_beam = zone_beams;
    cond.reflex_sel = innermost_beams(zone_beams, 4, 1, cond.zone_uvw, cond.zolzbase1, z.crystal, cond.kv);
    cond.num_g = num_out;
    cond.out_beams = new_vector<int>(num_out);
    for (int r = 0; r < num_out; ++r)
        cond.out_beams[r] = r;
    cond.beam_search.flag_bs = method_manual;
    const int console = silence();
    z.vg = new_potential_matrix("", cond, z.crystal, lat, stdout);
    end_silence(console);
    z.problem = tilt_problem_of(cond, z.crystal, z.vg, lat);
    const double H = 0.31, G = -0.17;
    const r_hkl b1 = cond.zolzbase1, b2 = cond.zolzbase2;
    z.K_t = {(H * b1.h + G * b2.h) / 2, (H * b1.k + G * b2.k) / 2, (H * b1.l + G * b2.l) / 2};
    return z;
}

zone& gaas_zone() {
    static zone z = new_zone();
    return z;
}

tilt_problem problem_of(int num_exact, int num_bethe) {
    tilt_problem problem = gaas_zone().problem;
    problem.num_exact_beam = num_exact;
    problem.num_bethe_beam = num_bethe;
    return problem;
}

complex** new_structure_matrix(int n) {
    const tilt_problem p = problem_of(n, 0);
    work_cal_int work;
    alloc_work_cal_int(n, p.num_g, 0, work);
    select_tilt(p, gaas_zone().K_t, work);
    complex** a = new_matrix<complex>(to_size(n), to_size(n));
    construct_ug_mat_slct(work, p.kv, p.vg, work.Sg, work.beta_ge, a, work.room);
    free_work_cal_int(work);
    return a;
}

complex** new_eigenvectors(int n) {
    complex** a = new_structure_matrix(n);
    complex** vec = new_matrix<complex>(to_size(n), to_size(n));
    complex* val = new_vector<complex>(to_size(n));
    scratch room = {};
    eigmat(n, a, val, vec, room);
    free_scratch(room);
    std::free(val);
    free_matrix(a);
    return vec;
}

complex** new_block(int first, int n, const complex* const* matrix) {
    complex** block = new_matrix<complex>(to_size(n), to_size(n));
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            block[i][j] = matrix[first + i][first + j];
    return block;
}

} // namespace orvel_bench
