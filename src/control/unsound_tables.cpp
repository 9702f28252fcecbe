// SPDX-License-Identifier: MIT
#include "control/unsound_tables.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "control/limits.h"
#include "control/open_files.h"

namespace orvel {

// Of a file that is written again, the last text counts.
struct unsound_table {
    unsound_table* next;
    char name[path_max];
};
static unsound_table* unsound_tables = nullptr; // in the order of their finding

// The link that leads to a name, or the last one, which leads nowhere.
static unsound_table*& find_unsound(const char* name) {
    unsound_table** link = &unsound_tables;
    while (*link != nullptr && std::strcmp((*link)->name, name) != 0)
        link = &(*link)->next;
    return *link;
}

static void forget(unsound_table*& link) {
    unsound_table* table = link;
    if (table == nullptr)
        return;
    link = table->next;
    std::free(table);
}

void forget_unsound(const char* name) { forget(find_unsound(name)); }

static void print_unsound(const char* name) {
    std::fprintf(stderr, "$$Warning: %s holds values that are no numbers.\n", name);
}

static void note_unsound(const char* name) {
    auto* table = static_cast<unsound_table*>(std::malloc(sizeof(unsound_table)));
    if (table == nullptr) { // better early than never
        print_unsound(name);
        return;
    }
    table->next = nullptr;
    std::memcpy(table->name, name, sizeof table->name);
    find_unsound(name) = table;
}

void print_unsound_tables() {
    while (unsound_tables != nullptr) {
        print_unsound(unsound_tables->name);
        forget(unsound_tables);
    }
}

// Flags, width and precision of a conversion.
static bool is_layout(char c) { return (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '+' || c == ' '; }

// Whether one of the values is an infinite number or NaN; the format says which are real numbers. Every
// row of every table comes by, so no function of the library is called.
static bool has_no_number(const char* format, std::va_list values) {
    for (const char* c = format; *c != '\0'; ++c) {
        if (*c != '%')
            continue;
        do
            ++c;
        while (is_layout(*c));
        int longs = 0;
        for (; *c == 'l'; ++c)
            ++longs;
        switch (*c) {
        case 'e':
        case 'f':
        case 'g':
            if (!std::isfinite(va_arg(values, double)))
                return true;
            break;
        case 's':
            va_arg(values, const char*);
            break;
        case 'c':
        case 'd':
        case 'u':
            static_cast<void>(longs == 0   ? va_arg(values, int)
                              : longs == 1 ? va_arg(values, long)
                                           : va_arg(values, long long));
            break;
        case '%':
            break;
        default: // what takes another kind of value
            return false;
        }
    }
    return false;
}

void chk_numbers(const std::FILE* stream, const char* format, std::va_list values) {
    if (stream == stdout || !has_no_number(format, values))
        return;
    open_file* file = find_file(stream);
    if (file == nullptr || !file->chk_numbers)
        return;
    file->chk_numbers = false;
    note_unsound(file->name);
}

} // namespace orvel
