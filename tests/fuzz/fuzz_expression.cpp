// SPDX-License-Identifier: MIT
//
// Fuzz target of the expression language: the lines of an input are the value lines of a crystal of two sites
// and a data set, one after the other, which are then constrained, numbered and printed.
#include <cstdio>

#include "control/ov_input.h"
#include "crystal/cnstfunc.h"
#include "harness.h"
#include "refine/fitfunc.h"

using namespace orvel;

static void evaluate() {
    csd crystal = {};
    alloc_csd(1, 2, 1, crystal);
    crystal.site[1].bf = 1;
    crystal.lof_type = lof_f;
    alloc_csd_sub_cstr(2, 1, lof_f, crystal);
    fed set = {};
    set.num_reflex = set.num_thickness = 1;
    alloc_ed_arrays(set);
    const fit_value_list lists[2] = {list_csd_values(crystal), list_fed_values(1, &set)};
    std::FILE* file = std::fopen("lines", "r");
    for (const fit_value_list& list : lists)
        for (int i = 0; i < list.count; ++i)
            fget_fitpar(list.at[i].descriptor, list.at[i].value, file);
    constraint_csd(crystal);
    constraint_fed(1, &set);
    int num_fitpar, slots, num_csd, num_rst;
    count_num_fitpar(crystal, 1, &set, num_fitpar, slots, num_csd, num_rst);
    for (const fit_value_list& list : lists)
        for (int i = 0; i < list.count; ++i)
            fprintf_cstr(*list.at[i].descriptor, *list.at[i].value, "", file);
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const std::string rest(64, '\n'); // lines for all values
    orvel_fuzz::run_caught({{"lines", std::string(data, data + size) + "\n" + rest}}, evaluate);
    return 0;
}
