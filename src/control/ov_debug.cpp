// SPDX-License-Identifier: MIT
#include "control/ov_debug.h"

#include <cstdarg>
#include <cstdlib>
#include <ctime>

#include "control/settings.h"

namespace orvel {

void error_exit(std::FILE* stream, const char* format, ...) {
    std::va_list values;
    va_start(values, format);
    ov_exit_with(stream, "$$ERROR: ", format, values);
}

static void print_percent(int percent) {
    ov_fprintf(stdout, "%d%%", percent);
    ov_fflush(stdout);
}

void progress_indicator(int i, int n) {
    static const int step = 5;
    static int next = step;
    if (i == 0)
        next = step;
    const int p = static_cast<int>(i * 100.0 / n);
    if (p > next) {
        if (next == step)
            ov_fprintf(stdout, "    ");
        for (; p >= next; next += step)
            print_percent(next);
    }
    if (i == n - 1) {
        for (; next <= 100 - step; next += step)
            print_percent(next);
    }
}

void exec_time_forecast(int n) {
    static const double shortest_forecast = 0.1; // seconds
    static double start = 0.0;
    static double latest = 0.0;

    if (n == -1) {
        ov_fprintf(stdout, "  Estimating exec. time .... ");
        ov_fflush(stdout);
    }
    latest = static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
    if (n == -1) {
        start = latest;
        return;
    }
    const double t = latest - start;
    if (n == 0) {
        ov_fprintf(stdout, "100%%\n");
        ov_fprintf(stdout, "    elapsed time: %g [min] = %g [hour]\n", t / 60, t / 3600);
    } else if (t > shortest_forecast) {
        ov_fprintf(stdout, " %.1lf [min] (1CPU)\n", t * n / 60);
        ov_fflush(stdout);
    } else {
        ov_fprintf(stdout, " Maybe not so long.\n");
    }
}

void dbg_mon(const char* text) {
    if (dbg.process_mon_flag != 1)
        return;
    ov_fprintf(stdout, "%s", text);
    ov_fflush(stdout);
}

void dbg_sel_vg_init(int num_exact_beam, int num_bethe_beam) {
    if (dbg.vg_sel_chk_flag == 0)
        return;
    char name[path_max];
    std::snprintf(name, sizeof name, "%s.dbg", dbg.base_name);
    dbg.dump_fp = ov_fopen_wmode(name);
    if (dbg.dump_fp == nullptr) {
        ov_fprintf(stdout, "Cannot open %s\n", name);
        return;
    }
    ov_fprintf(stdout, "$$ Debug output ==> %s\n", name);
    ov_fprintf(stdout, "$$ chk_sel_vg mode. No intensity calculation.\n");
    ov_fprintf(dbg.dump_fp, "H\tG\th\tk\t\tl\tnesel\tnbsel");
    for (int i = 0; i < num_exact_beam + num_bethe_beam; ++i)
        ov_fprintf(dbg.dump_fp, "\t%d", i);
    ov_fprintf(dbg.dump_fp, "\n");
}

bool dbg_sel_vg_active() { return dbg.dump_fp != nullptr; }

void dbg_sel_vg_pos(int ih, int ig) {
    if (dbg_sel_vg_active())
        ov_fprintf(dbg.dump_fp, "%d\t%d\t", ih, ig);
}

void dbg_sel_vg_row(r_hkl K_t, int num_beam, int nesel, int nbsel, const int* sel) {
    if (!dbg_sel_vg_active())
        return;
    ov_fprintf(dbg.dump_fp, "%g\t%g\t\t%g\t%d\t%d", K_t.h, K_t.k, K_t.l, nesel, nbsel);
    for (int beam = 0; beam < num_beam; ++beam) {
        int place = 0;
        while (place < nesel + nbsel && sel[place] != beam)
            ++place;
        int kind = 0;
        if (place < nesel)
            kind = 2;
        else if (place < nesel + nbsel)
            kind = 1;
        ov_fprintf(dbg.dump_fp, "\t%d", kind);
    }
    ov_fprintf(dbg.dump_fp, "\n");
}

void dbg_dump_term() {
    if (!dbg_sel_vg_active())
        return;
    ov_fclose(dbg.dump_fp);
    dbg.dump_fp = nullptr;
}

} // namespace orvel
