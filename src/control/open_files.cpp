// SPDX-License-Identifier: MIT
#include "control/open_files.h"

#include <fcntl.h>
#include <unistd.h>

namespace orvel {

open_file open_files[open_max];

open_file* find_file(const std::FILE* stream) {
    for (open_file& file : open_files)
        if (file.stream == stream)
            return &file;
    return nullptr;
}

const char* name_of_output(const std::FILE* stream) {
    const open_file* file = find_file(stream);
    if (file != nullptr)
        return file->name;
    return stream == stdout ? "standard output" : "standard error"; // which nobody opens
}

// A table that ends early reads as complete, so it goes.
void remove_incomplete() {
    for (const open_file& file : open_files) {
        if (file.stream == nullptr || !file.removable)
            continue;
        close(open(file.name, O_WRONLY | O_TRUNC));
        unlink(file.name);
    }
}

// The system hands out the lowest descriptor that is free, so few numbers come up however many files
// are read.
struct input_file {
    int descriptor;
    char name[path_max]; // empty: no entry
};
static input_file inputs[2 * open_max];

// The entry of a descriptor, or the first empty one; null if there is neither.
static input_file* find_input(int descriptor) {
    for (input_file& input : inputs)
        if (input.descriptor == descriptor || input.name[0] == '\0')
            return &input;
    return nullptr;
}

void note_input(std::FILE* stream, const char* path) {
    input_file* input = find_input(fileno(stream));
    if (input == nullptr)
        return;
    input->descriptor = fileno(stream);
    std::snprintf(input->name, sizeof input->name, "%s", path);
}

const char* name_of_input(std::FILE* stream) {
    const input_file* input = stream != stdin ? find_input(fileno(stream)) : nullptr;
    return input != nullptr ? input->name : "standard input";
}

} // namespace orvel
