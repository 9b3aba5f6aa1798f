// The least that a store of one text file could do: no library, no lock, no escapes, no limits.
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include "operations.h"

enum { kContentMax = 1 << 16 };

static char content[kContentMax];

static const char* path_of(const char* folder, const char* name) {
    static char path[4][4096];
    static int used;
    char* made = path[used++ % 4];
    snprintf(made, sizeof path[0], "%s/%s", getenv(folder), name);
    return made;
}

static ssize_t file_load(void) {
    const int fd = open(path_of("BENCH_RUN_DIR", "plain"), O_RDONLY);
    if (fd < 0) return -1;
    const ssize_t size = read(fd, content, kContentMax - 1);
    close(fd);
    return size;
}

static int file_save(const char* folder, ssize_t size, int durable) {
    const char* next = path_of(folder, "plain.new");
    const int fd = open(next, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd < 0) return 1;
    if (write(fd, content, (size_t)size) != size || (durable && fsync(fd))) return 1;
    close(fd);
    if (rename(next, path_of(folder, "plain"))) return 1;
    if (!durable) return 0;
    const int folder_fd = open(getenv(folder), O_RDONLY | O_DIRECTORY);
    return folder_fd < 0 || fsync(folder_fd);
}

int value_get(void) {
    return file_load() < 0 || !strstr(content, "\n" BENCH_KEY "=");
}

int value_set(const char* value) {
    static char edited[kContentMax + 256];
    if (file_load() < 0) return 1;
    char* line = strstr(content, "\n" BENCH_KEY "=");
    if (!line) return 1;
    char* rest = strchr(line + 1, '\n');
    const int size = snprintf(edited, sizeof edited, "%.*s\n" BENCH_KEY "=%s%s",
                              (int)(line - content), content, value, rest ? rest : "\n");
    if (size >= kContentMax) return 1;
    memcpy(content, edited, (size_t)size);
    return file_save("BENCH_RUN_DIR", size, 0);
}

int value_commit(void) {
    const ssize_t size = file_load();
    return size < 0 || file_save("BENCH_FLASH_DIR", size, 1);
}
