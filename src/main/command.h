// The command table: what the program can be asked to do.
#pragma once

#include <cstddef>
#include <cstdint>

struct cJSON;

inline constexpr std::size_t kMaxArguments = 32;

// Does one command and answers with a new object, or null when there is no answer to print. `argc`
// is the row's argument count, whatever the request holds; `args` is the parsed argument object,
// or null.
using Handler = cJSON* (*)(std::int32_t argc, const cJSON* args);

// One row of the table.
struct CommandEntry {
    const char* name;
    Handler handler;
    std::int32_t argc;                    // how many of argnames are set
    const char* argnames[kMaxArguments];  // for the help listing
};

inline constexpr std::size_t kCommandCount = 49;

// The rows in search and help order, and a row of nulls that ends them.
extern const CommandEntry handle[kCommandCount + 1];

// The first row whose name `request` begins with; null when there is none.
const CommandEntry* command_find(const char* request);

// Prints a line for each row on standard output.
void command_list();
