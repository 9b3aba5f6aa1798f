// The store's operations; see store.h.
#include "store/store.h"

#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include "store/entries.h"
#include "store/latest.h"

struct Path {
    char text[PATH_MAX];
};

static bool fail(int error) {
    errno = error;
    return false;
}

// Makes the path of a store's file in the folder that an environment variable names, or else in
// the built-in one. The variable does not count in programs that run with more rights than the
// one who starts them.
static bool path_make(const char* variable, const char* built_in, const char* name,
                      const char* ending, Path& path) {
    const char* folder = secure_getenv(variable);
    if (!folder || !*folder) folder = built_in;
    std::size_t length = 0;
    for (std::string_view part : {folder, "/", name, ending}) {
        if (part.size() >= sizeof path.text - length) return fail(ENAMETOOLONG);
        memcpy(path.text + length, part.data(), part.size());
        length += part.size();
    }
    path.text[length] = '\0';
    return true;
}

static bool run_path(const Store& store, const char* ending, Path& path) {
    return path_make("CPECTL_RUN_DIR", CPECTL_RUN_DIR, store.name, ending, path);
}

static bool flash_path(const Store& store, Path& path) {
    return path_make("CPECTL_FLASH_DIR", CPECTL_FLASH_DIR, store.name, "", path);
}

static bool running_read(const Store& store, FileContent& content, FileMark* mark = nullptr) {
    Path path;
    return run_path(store, "", path) && file_read(path.text, kContentMax, content, mark);
}

static bool committed_read(const Store& store, FileContent& content, FileMark* mark = nullptr) {
    Path path;
    return flash_path(store, path) && file_read(path.text, kContentMax, content, mark);
}

// Reads the file that counts. False, with errno, when it cannot be read; ENOENT when there is none.
static bool file_that_counts_read(const Store& store, FileContent& content, FileMark* mark) {
    if (running_read(store, content, mark)) return true;
    if (errno != ENOENT || !store.has_committed_copy) return false;
    return committed_read(store, content, mark);
}

// The mark of the file that counts; false when there is none, or that cannot be told.
static bool mark_that_counts(const Store& store, FileMark& mark) {
    Path path;
    if (run_path(store, "", path) && file_mark(path.text, mark)) return true;
    if (errno != ENOENT || !store.has_committed_copy) return false;
    return flash_path(store, path) && file_mark(path.text, mark);
}

bool store_read(const Store& store, FileContent& content) {
    if (file_that_counts_read(store, content, nullptr)) return true;
    if (errno != ENOENT) return false;
    content = {static_cast<char*>(malloc(1)), 0};
    return content.data != nullptr;
}

static char* value_make(std::string_view written) {
    char* value = static_cast<char*>(malloc(written.size() + 1));
    if (!value) return nullptr;
    value[value_unescape(written, value)] = '\0';
    return value;
}

static char* text_get(std::string_view content, std::string_view key) {
    Entry entry;
    if (entry_find(content, key, entry)) return value_make(entry.value);
    errno = 0;
    return nullptr;
}

// Brings the text up to date. False, with errno, when it cannot be read; 0 when there is none.
static bool latest_refresh(Latest& latest, const Store& store) {
    FileMark mark;
    if (latest.lasting && mark_that_counts(store, mark) && latest_is(latest, mark)) return true;

    const std::int64_t before = latest_now();
    FileContent content;
    if (!file_that_counts_read(store, content, &mark)) {
        latest.lasting = false;
        if (errno == ENOENT) errno = 0;
        return false;
    }
    latest_set(latest, content, mark, before);
    return true;
}

static char* get_from_file(const Store& store, std::string_view key) {
    FileContent content;
    if (!store_read(store, content)) return nullptr;
    char* value = text_get(content_view(content), key);
    free(content.data);
    return value;
}

char* store_get(const Store& store, std::string_view key) {
    static Latest latest;
    static const Store* latest_store;
    if (!latest_take(latest)) return get_from_file(store, key);
    if (latest_store != &store) latest.lasting = false;
    latest_store = &store;
    char* value =
        latest_refresh(latest, store) ? text_get(content_view(latest.content), key) : nullptr;
    latest_release(latest);
    return value;
}

static bool is_as_wanted(std::string_view content, std::string_view key,
                         const std::string_view* value) {
    Entry entry;
    const bool found = entry_find(content, key, entry);
    if (!value) return !found;
    return found && value_equals(entry.value, *value);
}

// Writes the running copy anew with one key changed.
static bool running_write(const Store& store, std::string_view content, std::string_view key,
                          const std::string_view* value) {
    Path path;
    if (!run_path(store, "", path)) return false;
    char* edited = static_cast<char*>(malloc(content_edit_size(content, key, value)));
    if (!edited) return false;
    const std::size_t size = content_edit(content, key, value, edited);
    const bool written =
        size <= kContentMax ? file_replace(path.text, {edited, size}, false) : fail(EFBIG);
    free(edited);
    return written;
}

static bool change_locked(const Store& store, std::string_view key, const std::string_view* value) {
    FileContent content;
    if (!store_read(store, content)) return false;
    const std::string_view text = content_view(content);
    const bool done = is_as_wanted(text, key, value) || running_write(store, text, key, value);
    free(content.data);
    return done;
}

bool store_change(const Store& store, std::string_view key, const std::string_view* value) {
    if (!key_valid(key)) return fail(EINVAL);
    if (value && value->size() > kValueMax) return fail(EFBIG);
    Path path;
    if (!run_path(store, ".lock", path)) return false;
    const int lock = lock_take(path.text);
    if (lock < 0) return false;
    const bool done = change_locked(store, key, value);
    lock_release(lock);
    return done;
}

// The mark in the lock stands from before the replacement until its folder is on the medium too.
// One that stays without need costs the next commit a needless wait.
static bool committed_replace(const char* path, std::string_view content, int lock) {
    if (!lock_mark(lock) || !file_replace(path, content, true)) return false;
    lock_unmark(lock);
    return true;
}

// Ends what a commit that was killed after its replacement has left undone.
static bool committed_settle(const char* path, int lock) {
    if (!lock_is_marked(lock)) return true;
    if (!folder_sync(path)) return false;
    lock_unmark(lock);
    return true;
}

static bool committed_update(const Store& store, std::string_view running, int lock) {
    Path path;
    if (!flash_path(store, path)) return false;
    FileContent committed;
    // One that cannot be read is no reason to leave it like that.
    if (file_read(path.text, kContentMax, committed)) {
        const bool equal = content_view(committed) == running;
        free(committed.data);
        if (equal) return committed_settle(path.text, lock);
    }
    return committed_replace(path.text, running, lock);
}

static bool commit_locked(const Store& store, int lock) {
    FileContent running;
    if (!running_read(store, running)) return errno == ENOENT;  // nothing was ever changed
    const bool done = committed_update(store, content_view(running), lock);
    free(running.data);
    return done;
}

bool store_commit(const Store& store) {
    Path path;
    // Not the lock of the changes: they need not wait for the flash. The running copy is read under
    // this lock, so that of two commits the later one writes the later content.
    if (!run_path(store, ".commit.lock", path)) return false;
    const int lock = lock_take(path.text);
    if (lock < 0) return false;
    const bool done = commit_locked(store, lock);
    lock_release(lock);
    return done;
}
