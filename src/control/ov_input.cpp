// SPDX-License-Identifier: MIT
#include "control/ov_input.h"

#include <cstdlib>
#include <cstring>

#include "control/ov_mpi.h"
#include "control/settings.h"
#include "control/utils.h"

namespace orvel {

void data_format_error(const char* word, const char* found, const char* hint) {
    ov_fprintf(stdout, "$$ Data format error has been found at %s.\n$$ Abort.\n", word);
    ov_fprintf(stdout, "$$ buf=%s\n", found);
    if (hint != nullptr)
        ov_fprintf(stdout, "$$%s\n", hint);
    ov_exit_failed();
}

void table_format_error(const char* file_name) {
    ov_abort(stdout, "$$ Data format error in %s. Abort.\n", file_name);
}

void chk_data(const char* word, std::FILE* stream) {
    char found[line_max];
    fget_1s(found, stream);
    if (std::strcmp(found, word) != 0)
        data_format_error(word, found, nullptr);
    if (dbg.chk_data_dump_flag == 1)
        ov_fprintf(stdout, "$$ chk_data: %s ok.\n", word);
}

void chk_data_info(const char* word, const char* hint, std::FILE* stream) {
    char line[line_max] = "";
    comment_skip_fgets(line_max, line, stream);
    if (std::strcmp(rm_cr(line), word) != 0)
        data_format_error(word, line, hint);
}

[[noreturn]] static void unexpected_end_of_file() {
    ov_abort(stdout, "$$ Unexpected end of file. Abort.\n");
}

// A line of values into buf (size bytes).
static void fget_line(int size, char* buf, std::FILE* stream) {
    if (comment_skip_fgets(size, buf, stream) == nullptr)
        unexpected_end_of_file();
}

char* fget_1s(char* destination, std::FILE* stream) {
    char buf[line_max];
    char* line = comment_skip_fgets(line_max, buf, stream);
    const char* token = line != nullptr ? std::strtok(buf, separators) : nullptr;
    copy_text(destination, line_max, token != nullptr ? token : "");
    rm_cr(destination);
    return line != nullptr ? destination : nullptr;
}

void fget_word(char* destination, std::FILE* stream) {
    if (fget_1s(destination, stream) == nullptr)
        unexpected_end_of_file();
}

void fget_text(char* destination, std::FILE* stream) {
    fget_line(line_max, destination, stream);
    rm_cr(destination);
}

int fget_i(std::FILE* stream) {
    char buf[line_max];
    fget_line(line_max, buf, stream);
    return text_to_int(buf);
}

double fget_d(std::FILE* stream) {
    char buf[line_max];
    fget_line(line_max, buf, stream);
    return std::atof(buf);
}

int fget_reals(int n, double* values, int size, std::FILE* stream) {
    char buf[line_max];
    fget_line(size, buf, stream);
    return str_to_fs(n, rm_cr(buf), values);
}

void fget_2d(double* a, double* b, std::FILE* stream) {
    double v[2];
    fget_reals(2, v, line_max, stream);
    *a = v[0];
    *b = v[1];
}

void fget_3d(double* a, double* b, double* c, std::FILE* stream) {
    double v[3];
    fget_reals(3, v, line_max, stream);
    *a = v[0];
    *b = v[1];
    *c = v[2];
}

void fget_4d(double* a, double* b, double* c, double* d, std::FILE* stream) {
    double v[4];
    fget_reals(4, v, line_max, stream);
    *a = v[0];
    *b = v[1];
    *c = v[2];
    *d = v[3];
}

void fget_r_hkl(r_hkl* g, std::FILE* stream) { fget_3d(&g->h, &g->k, &g->l, stream); }

void fget_2i(int* a, int* b, std::FILE* stream) {
    double v[2];
    fget_reals(2, v, line_max, stream);
    *a = real_to_int(v[0]);
    *b = real_to_int(v[1]);
}

void fget_3i(int* a, int* b, int* c, std::FILE* stream) {
    double v[3];
    fget_reals(3, v, line_max, stream);
    *a = real_to_int(v[0]);
    *b = real_to_int(v[1]);
    *c = real_to_int(v[2]);
}

void fget_hkl(hkl* g, std::FILE* stream) { fget_3i(&g->h, &g->k, &g->l, stream); }

void fget_uvw(uvw* t, std::FILE* stream) { fget_3i(&t->u, &t->v, &t->w, stream); }

void fget_hkl_weight(hkl* g, double* weight, std::FILE* stream) {
    char buf[line_max];
    fget_line(line_max, buf, stream);
    int* const indices[3] = {&g->h, &g->k, &g->l};
    char* token = std::strtok(buf, separators);
    for (int* index : indices) {
        if (token == nullptr)
            ov_abort(stdout, "$$(fget_hkl_weight) Format error. Abort. buf=%s.", buf);
        *index = text_to_int(token);
        token = std::strtok(nullptr, separators);
    }
    *weight = token == nullptr || token[0] == '%' ? 1.0 : std::atof(token);
}

// The next token of a value line, which its kind makes necessary. buf shows the line up to its
// first separator.
static char* required_token(const char* buf) {
    char* token = std::strtok(nullptr, separators);
    if (token == nullptr)
        ov_abort(stdout, "$$ (fget_fitpar) Input data error. Abort.\n$$ buf=%s", buf);
    return token;
}

void fget_fitpar(fitpar* descriptor, double* value, std::FILE* stream) {
    static const struct {
        const char* word;
        const char* number;
        fitpar_kind kind;
    } kinds[] = {
        {"ADJ", "2", kind_adj},
        {"FIX", "0", kind_fix},
        {"CST", "-1", kind_cst},
        {"RST", "1", kind_rst},
    };
    static int generated_ids = 0;

    char buf[line_max];
    fget_line(line_max, buf, stream);
    const char* token = std::strtok(buf, separators);
    copy_text(descriptor->val_str, expr_max, token != nullptr ? token : "");

    const char* word = token != nullptr ? std::strtok(nullptr, separators) : nullptr;
    bool named = false;
    for (const auto& kind : kinds) {
        if (word == nullptr || (std::strcmp(word, kind.word) != 0 && std::strcmp(word, kind.number) != 0))
            continue;
        descriptor->idx = kind.kind;
        copy_text(descriptor->id, id_max, rm_cr(required_token(buf)));
        if (kind.kind == kind_rst)
            descriptor->rst = std::atof(required_token(buf));
        named = true;
        break;
    }
    if (!named) {
        descriptor->idx = kind_fix;
        std::snprintf(descriptor->id, id_max, "id%d", generated_ids++);
    }
    descriptor->esd = 0.0;
    descriptor->ini_val = descriptor->idx == kind_cst ? 0.0 : std::atof(descriptor->val_str);
    *value = descriptor->ini_val;
}

void fget_cal_g(int n, int num_exact_beam, int* index, const hkl* list, std::FILE* stream) {
    for (int i = 0; i < n; ++i) {
        hkl g;
        fget_hkl(&g, stream);
        int position = 0;
        while (position < num_exact_beam &&
               (list[position].h != g.h || list[position].k != g.k || list[position].l != g.l))
            ++position;
        if (position >= num_exact_beam)
            ov_abort(stdout, "$$ cal_g: %d %d %d is not found in the exact beams. Abort.\n", g.h, g.k, g.l);
        index[i] = position;
    }
}

void fget_cal_thick(int n, double* thickness, std::FILE* stream) {
    for (int i = 0; i < n; ++i)
        thickness[i] = fget_d(stream);
}

static const char* second_token(char* line) {
    if (std::strtok(line, separators) == nullptr)
        return "";
    const char* token = std::strtok(nullptr, separators);
    return token != nullptr ? token : "";
}

int second_int(char* line) { return text_to_int(second_token(line)); }

double second_double(char* line) { return std::atof(second_token(line)); }

} // namespace orvel
