// The `nvram` command-line tool: NVRAM for scripts and people.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string_view>

#include "store/entries.h"
#include "store/store.h"

enum ExitStatus {
    kDone = 0,
    kAbsent = 1,  // the key of a get has no value
    kFailed = 2,  // wrong use, or the store could not be read or written
};

static constexpr char kUsage[] =
    "usage: nvram get KEY         print the value of KEY; status 1 when it has none\n"
    "       nvram set KEY=VALUE   give KEY a value\n"
    "       nvram unset KEY       remove KEY\n"
    "       nvram show            print all as KEY=VALUE lines, newlines written \\n\n"
    "       nvram commit          write all to flash\n";

static ExitStatus failed(const char* what, std::string_view key) {
    const char* why = strerror(errno);
    fprintf(stderr, "nvram: %s%s%.*s: %s\n", what, key.empty() ? "" : " ",
            static_cast<int>(key.size()), key.data(), why);
    return kFailed;
}

static ExitStatus usage_refused() {
    fputs(kUsage, stderr);
    return kFailed;
}

static ExitStatus key_get(const char* key) {
    char* value = store_get(kNvram, key);
    if (!value) return errno ? failed("cannot get", key) : kAbsent;
    puts(value);
    free(value);
    return kDone;
}

static ExitStatus key_set(const char* assignment) {
    const char* equals = strchr(assignment, '=');
    if (!equals) return usage_refused();
    const std::string_view key(assignment, static_cast<std::size_t>(equals - assignment));
    const std::string_view value = equals + 1;
    return store_change(kNvram, key, &value) ? kDone : failed("cannot set", key);
}

static ExitStatus key_unset(const char* key) {
    return store_change(kNvram, key, nullptr) ? kDone : failed("cannot unset", key);
}

static ExitStatus all_show(const char*) {
    FileContent content;
    if (!store_read(kNvram, content)) return failed("cannot read the store", {});
    std::string_view rest = content_view(content);
    Entry entry;
    while (entry_next(rest, entry)) {
        fwrite(entry.line.data(), 1, entry.line.size(), stdout);
        putchar('\n');
    }
    free(content.data);
    return kDone;
}

static ExitStatus all_commit(const char*) {
    return store_commit(kNvram) ? kDone : failed("cannot commit", {});
}

static ExitStatus help_show(const char*) {
    fputs(kUsage, stdout);
    return kDone;
}

struct Command {
    const char* name;
    int argument_count;
    ExitStatus (*run)(const char* argument);
};

// clang-format off
static constexpr Command kCommands[] = {
    {"get",    1, key_get},
    {"set",    1, key_set},
    {"unset",  1, key_unset},
    {"show",   0, all_show},
    {"commit", 0, all_commit},
    {"-h",     0, help_show},
    {"--help", 0, help_show},
};
// clang-format on

static ExitStatus run(int count, char** arguments) {
    if (count < 1) return usage_refused();
    for (const Command& command : kCommands)
        if (strcmp(command.name, arguments[0]) == 0 && command.argument_count == count - 1)
            return command.run(arguments[1]);
    return usage_refused();
}

int main(int argc, char** argv) {
    const ExitStatus status = run(argc - 1, argv + 1);
    if (fflush(stdout) != 0 || ferror(stdout)) return failed("cannot print", {});
    return status;
}
