// SPDX-License-Identifier: MIT
//
// Start and end of a run: banners, the parameter file's name, the log.
#include <cstring>

#include "control/ov_input.h"
#include "control/ov_mpi.h"
#include "control/settings.h"
#include "control/utils.h"
#include "program/orvel_job.h"

using namespace orvel;

static const char* const version = "#####  Ver. 3.7v4e updated on 110530";

// A banner whose middle is an acknowledgement.
static void banner(std::FILE* stream, const char* acknowledgement) {
    ov_fprintf(stream,
               "#####\n"
               "#####  ORVEL - many-beam dynamical electron diffraction\n"
               "#####\n"
               "#####  by the ORVEL developers\n"
               "#####\n");
    ov_fprintf(stream, "%s", acknowledgement);
    ov_fprintf(stream,
               "#####\n"
               "#####  [Single CPU version]\n"
               "#####\n");
}

static void opening_title() {
    banner(stdout,
           "#####  We thank all who measured, computed and published the\n"
           "#####  scattering factors, space-group tables and algorithms\n"
           "#####  on which this program rests, and the users who report\n"
           "#####  every digit they doubt.\n");
}

static void opening_title_log(std::FILE* log) {
    banner(log,
           "#####  We thank all who measured, computed and published the\n"
           "#####  scattering factors, space-group tables and algorithms\n"
           "#####  on which this program rests.\n");
}

static void ending_title(std::FILE* log) {
    ov_fprintf(log,
               "\n"
               "If you publish results of this program, please cite the many-beam\n"
               "(Bloch wave) method and the sources of the scattering tables used.\n");
    ov_fprintf(log, "\nSee you again!!!\n");
}

[[noreturn]] static void name_too_long() {
    ov_abort(stdout, "$$ Parameter file name is too long. Abort.\n");
}

// The name from the command line, taken whole, or from the prompt, into name (name_max bytes).
static void take_parameter_file_name(int argc, char** argv, char* name) {
    if (argc > 2)
        ov_abort(stdout, "Usage: orvel parameter_file (with extension)\n");
    if (argc == 2) {
        if (std::strlen(argv[1]) >= name_max)
            name_too_long();
        copy_text(name, name_max, argv[1]);
        return;
    }
    ov_fprintf(stdout, "Parameter file (with file extension) >>");
    ov_fflush(stdout);
    if (fget_1s(name, stdin) == nullptr)
        ov_abort(stdout, "$$ No parameter file was given. Abort.\n");
}

int main(int argc, char** argv) {
    static_assert(name_max == line_max, "a name read at the prompt fills a line buffer");
    char parameter_file_name[name_max];
    char stem[name_max];
    char log_name[name_max];

    ov_init();
    ov_fprintf(stdout, "\n#####  Welcome to ORVEL\n");
    ov_fprintf(stdout, "%s\n", version);
    opening_title();
    read_ini_file();

    take_parameter_file_name(argc, argv, parameter_file_name);
    remove_extention(parameter_file_name, stem);
    if (std::snprintf(log_name, name_max, "%s_log.txt", stem) >= name_max)
        name_too_long();
    std::FILE* log = ov_fopen_chk_wmode(log_name);
    ov_keep(log);
    ov_fprintf(log, "%s\n", version);
    opening_title_log(log);
    ov_fprintf_stdo(log, "parameter_file: %s\n", parameter_file_name);

    ov_job(parameter_file_name, stem, log);

    ending_title(log);
    ov_fclose(log);
    ov_fprintf(stdout, "See \"%s\".  See you again!!\n\n", log_name);
    ov_exit();
}
