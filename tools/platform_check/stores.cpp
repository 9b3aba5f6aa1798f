// The checks of the two key-value stores.
#include <cstdio>
#include <cstring>

#include "checks.h"
#include "library.h"
#include "mvram.h"
#include "nvram.h"
#include "reader.h"

namespace {

constexpr char kScratchKey[] = "CPECTL_PLATFORM_CHECK";
constexpr char kAbsentKey[] = "CPECTL_PLATFORM_CHECK_ABSENT";  // never set
constexpr std::size_t kLongest = 1000;  // a request's arguments have 1023 bytes in all

// One store and its calls.
struct Store {
    const char* soname;
    const char* getter;
    decltype(nvram_get)* get;
    decltype(nvram_set)* set;
    decltype(nvram_commit)* commit;  // null for a store without
};

// Keys that cpectl reads, some of which every gateway has.
constexpr const char* kUsualKeys[] = {"HOSTNAME",    "PRODUCT_TYPE", "LAN_DEF_MAC", "LAN_IF_MAC",
                                      "LAN_IP",      "LAN_NETMASK",  "ADMIN_AUTH",  "WAN1_TYPE",
                                      "WAN2_TYPE",   "WAN1_RUN_IP",  "WAN2_RUN_IP", "KERNEL_TYPE",
                                      "PPTPC_ENABLE"};
constexpr std::size_t kUsualCount = sizeof kUsualKeys / sizeof kUsualKeys[0];

struct Sample {
    const char* what;
    const char* value;
};

char longest[kLongest + 1];  // filled when it is needed

constexpr Sample kSamples[] = {
    {"a plain value", "office"},
    {"a value with blanks and signs", " a=b  'c' \"d\" $e `f` \\g #h %s "},
    {"a value in UTF-8", "B\xc3\xbcro"},
    {"a value with a line end", "first\nsecond"},
    {"a value of 1000 bytes", longest},
    {"an empty value", ""},
};

bool same(const char* a, const char* b) {
    return a && b && std::strcmp(a, b) == 0;
}

void check_absent(const Store& store) {
    doing("reading a key that is absent");
    const char* value = store.get(kAbsentKey);
    if (!value) return say_ok("an absent key gives null");
    say_wrong(
        "an absent key gives a text of %zu bytes instead of null: cpectl takes the key for "
        "set",
        std::strlen(value));
}

// The texts of several keys, all held at once.
void check_texts_stay(const Store& store) {
    const char* texts[kUsualCount];
    char copies[kUsualCount][64];
    std::size_t present = 0;
    for (const char* key : kUsualKeys) {
        doing("reading %s", key);
        texts[present] = store.get(key);
        if (!texts[present]) continue;
        std::snprintf(copies[present], sizeof copies[present], "%s", texts[present]);
        present++;
    }
    for (std::size_t i = 0; i < present; i++) {
        if (std::strncmp(texts[i], copies[i], sizeof copies[i] - 1) == 0) continue;
        return say_wrong(
            "the text of one key changes when another key is read: each has to stay "
            "until the process ends");
    }
    if (present > 1) return say_ok("the texts of %zu keys stay as they are", present);
    say_note("fewer than two of the usual keys are set: whether texts stay was not seen");
}

// Sets the scratch key and reads it again. False when it is not there afterwards.
bool check_sample(const Store& store, const Sample& sample) {
    doing("setting %s", sample.what);
    const int set = store.set(kScratchKey, sample.value);
    if (set < 0) say_wrong("%s cannot be set: the call gives %d%s", sample.what, set, cause());
    if (set > 0) say_wrong("setting %s gives %d; 0 says that it was done", sample.what, set);
    doing("reading %s", sample.what);
    const char* value = set < 0 ? nullptr : store.get(kScratchKey);
    if (set < 0 || same(value, sample.value)) return set == 0;
    if (!value) say_wrong("%s was set and is not there", sample.what);
    if (value) say_wrong("%s was set and comes back changed", sample.what);
    return false;
}

void check_samples(const Store& store) {
    std::memset(longest, 'x', kLongest);
    bool all = true;
    for (const Sample& sample : kSamples)
        all = check_sample(store, sample) && all;
    if (all) say_ok("values of all kinds come back as they were set (key %s)", kScratchKey);
}

// A text that was given out has to outlive a set of its key.
void check_set_leaves_text(const Store& store) {
    doing("setting a key whose text is in use");
    if (store.set(kScratchKey, "before") != 0) return;
    const char* held = store.get(kScratchKey);
    if (!same(held, "before")) return;  // said already
    store.set(kScratchKey, "later!");
    store.get(kScratchKey);
    if (!same(held, "before"))
        say_wrong(
            "a text that was given out changes when its key is set: it has to stay until the "
            "process ends");
}

void check_seen(const Store& store, Reader& reader) {
    doing("reading in another process");
    if (store.set(kScratchKey, "seen by others") != 0) return;  // said already
    char seen[64];
    const Read read = reader_ask(reader, kScratchKey, seen, sizeof seen);
    if (read == Read::value && same(seen, "seen by others"))
        return say_ok("another process sees a value at once");
    if (read == Read::failed) return say_wrong("another process cannot read the store");
    say_wrong(
        "another process does not see a value that was set: neither the scripts nor the next "
        "request would");
}

void check_commit(const Store& store) {
    if (!store.commit) return;
    char before[64] = "";
    if (const char* value = store.get(kScratchKey))
        std::snprintf(before, sizeof before, "%s", value);
    doing("committing");
    const int committed = store.commit();
    if (committed != 0)
        return say_wrong("a commit gives %d%s; 0 says that it was done", committed, cause());
    doing("reading after a commit");
    const char* value = store.get(kScratchKey);
    if (!same(value ? value : "", before)) return say_wrong("a commit changes a value");
    say_ok("a commit succeeds");
}

// Leaves the scratch key as it was, or empty: no call removes a key.
void put_back(const Store& store, const char* before) {
    doing("emptying the key %s", kScratchKey);
    int done = store.set(kScratchKey, before);
    if (done == 0 && store.commit) done = store.commit();
    if (done != 0) return say_wrong("the key %s could not be emptied again", kScratchKey);
    say_note("the key %s is left %s", kScratchKey, *before ? "as it was" : "with an empty value");
}

void check_writing(const Store& store, Reader& reader) {
    char before[256] = "";
    doing("reading the key %s", kScratchKey);
    if (const char* value = store.get(kScratchKey))
        std::snprintf(before, sizeof before, "%s", value);
    check_samples(store);
    check_set_leaves_text(store);
    check_seen(store, reader);
    check_commit(store);
    put_back(store, before);
}

void check_store(const Store& store, Reader& reader, const Options& options) {
    check_absent(store);
    check_texts_stay(store);
    if (options.read_only) return say_note("setting a value was not tried (--read-only)");
    check_writing(store, reader);
}

}  // namespace

void check_nvram(const Options& options) {
    Reader reader = reader_start("libnvram.so", "nvram_get");
    const char* const calls[] = {"nvram_get", "nvram_set", "nvram_commit", nullptr};
    void* found[3];
    if (!library_open("libnvram.so", calls, found)) return;
    const Store store = {"libnvram.so", "nvram_get",
                         reinterpret_cast<decltype(nvram_get)*>(found[0]),
                         reinterpret_cast<decltype(nvram_set)*>(found[1]),
                         reinterpret_cast<decltype(nvram_commit)*>(found[2])};
    check_store(store, reader, options);
}

void check_mvram(const Options& options) {
    Reader reader = reader_start("libmvram.so", "mvram_get");
    const char* const calls[] = {"mvram_get", "mvram_set", nullptr};
    void* found[2];
    if (!library_open("libmvram.so", calls, found)) return;
    const Store store = {"libmvram.so", "mvram_get",
                         reinterpret_cast<decltype(mvram_get)*>(found[0]),
                         reinterpret_cast<decltype(mvram_set)*>(found[1]), nullptr};
    check_store(store, reader, options);
}
