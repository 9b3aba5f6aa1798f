// The two key-value stores as handlers use them: absent keys, and writing only what changes.
#include "tools/store.h"

#include <map>
#include <string>
#include <vector>

#include "mvram.h"
#include "nvram.h"
#include "support.h"

namespace {

using Calls = std::vector<std::string>;

// A store of the tests; it answers every call of the program and notes it.
struct Store {
    std::map<std::string, std::string> values;
    int set_result = 0;
};
Store g_nvram, g_mvram;
Calls g_calls;

// Like the gateway's libraries, one buffer for all answers.
char* store_get(Store& store, const char* call, const char* name) {
    static char buffer[4096];
    g_calls.push_back(std::string(call) + " " + name);
    const auto found = store.values.find(name);
    if (found == store.values.end()) return nullptr;
    snprintf(buffer, sizeof buffer, "%s", found->second.c_str());
    return buffer;
}

int store_set(Store& store, const char* call, const char* name, const char* value) {
    g_calls.push_back(std::string(call) + " " + name + "=" + value);
    if (store.set_result == 0) store.values[name] = value;
    return store.set_result;
}

// What is the same for both stores.
struct StoreCalls {
    const char* name;
    Store& store;
    const char* (*text)(const char* key);
    void (*update)(const char* key, const char* value);
};
const StoreCalls kStores[] = {
    {"nvram", g_nvram, nvram_text, nvram_update},
    {"mvram", g_mvram, mvram_text, mvram_update},
};

void stores_reset() {
    g_nvram = {};
    g_mvram = {};
    g_calls.clear();
}

}  // namespace

char* nvram_get(const char* name) {
    return store_get(g_nvram, "nvram_get", name);
}
int nvram_set(const char* name, const char* value) {
    return store_set(g_nvram, "nvram_set", name, value);
}
int nvram_commit() {
    g_calls.push_back("nvram_commit");
    return 0;
}
char* mvram_get(const char* name) {
    return store_get(g_mvram, "mvram_get", name);
}
int mvram_set(const char* name, const char* value) {
    return store_set(g_mvram, "mvram_set", name, value);
}

TEST(Store, ReadsTextOrNothing) {
    for (const StoreCalls& calls : kStores) {
        SCOPED_TRACE(calls.name);
        stores_reset();
        calls.store.values = {{"HOSTNAME", "office"}, {"EMPTY", ""}};
        EXPECT_STREQ(calls.text("HOSTNAME"), "office");
        EXPECT_STREQ(calls.text("EMPTY"), "");
        EXPECT_STREQ(calls.text("ABSENT"), "");
        const std::string get = std::string(calls.name) + "_get ";
        EXPECT_EQ(g_calls, (Calls{get + "HOSTNAME", get + "EMPTY", get + "ABSENT"}));
    }
}

TEST(Store, WritesOnlyWhatDiffers) {
    struct Case {
        const char* why;
        std::map<std::string, std::string> before;
        const char* value;
        bool written;
    };
    const Case kCases[] = {
        {"an absent key", {}, "office", true},
        {"an absent key, empty value", {}, "", true},
        {"the same value", {{"K", "office"}}, "office", false},
        {"another value", {{"K", "office"}}, "home", true},
        {"a longer value", {{"K", "office"}}, "office2", true},
        {"a shorter value", {{"K", "office"}}, "offic", true},
        {"case counts", {{"K", "office"}}, "Office", true},
        {"blanks count", {{"K", "office"}}, "office ", true},
        {"an empty value for a filled one", {{"K", "office"}}, "", true},
        {"a filled value for an empty one", {{"K", ""}}, "office", true},
        {"both empty", {{"K", ""}}, "", false},
        {"another key does not count", {{"K2", "office"}}, "office", true},
        {"bytes beyond ASCII", {{"K", "caf\xC3\xA9"}}, "caf\xC3\xA8", true},
    };
    for (const StoreCalls& calls : kStores) {
        for (const Case& c : kCases) {
            SCOPED_TRACE(std::string(calls.name) + ": " + c.why);
            stores_reset();
            calls.store.values = c.before;
            calls.update("K", c.value);
            Calls expected = {std::string(calls.name) + "_get K"};
            if (c.written) expected.push_back(std::string(calls.name) + "_set K=" + c.value);
            EXPECT_EQ(g_calls, expected) << "one read, at most one write, no commit";
            EXPECT_EQ(calls.store.values["K"], c.value);
        }
    }
}

TEST(Store, IgnoresTheResultOfAWrite) {
    for (const StoreCalls& calls : kStores) {
        SCOPED_TRACE(calls.name);
        stores_reset();
        calls.store.set_result = -1;
        calls.update("K", "office");
        EXPECT_EQ(g_calls.size(), 2u) << "not tried again";
    }
}
