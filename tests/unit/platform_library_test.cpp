// The platform calls: who serves them, what a missing library looks like, and what is logged.
#include "tools/platform_library.h"

#include <dlfcn.h>
#include <sched.h>
#include <stdlib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>

#include "log/log.h"
#include "support.h"

namespace {

constexpr char kAbsent[] =
    "loaded at the start:\n"
    "nvram_get null\n"
    "loaded after one call:\n"
    "nvram_set -1\n"
    "nvram_commit -1\n"
    "mvram_get null\n"
    "mvram_set -1\n"
    "user_netlink_regist -1\n"
    "netlink_send_user -1\n"
    "netlink_receive_user -1\n"
    "hostsort_info_sort -1\n"
    "hostsort_get_total_entry 0\n"
    "hostsort_get_next -1 untouched\n"
    "Web_STAinfo_Get -1\n"
    "WUMWTPKickoutSta -1\n"
    "loaded at the end:\n";

// The answers of the libraries that are found by their names.
constexpr char kLoaded[] =
    "loaded at the start:\n"
    "nvram_get 100000 nvram_get KEY\n"
    "loaded after one call: libnvram.so\n"
    "nvram_set 124930\n"
    "nvram_commit 100001\n"
    "mvram_get 200000 mvram_get KEY\n"
    "mvram_set 224931\n"
    "user_netlink_regist 301023\n"
    "netlink_send_user 301026\n"
    "netlink_receive_user 300007\n"
    "300000 unregistered\n"
    "hostsort_info_sort 400010\n"
    "hostsort_get_total_entry 400002\n"
    "hostsort_get_next 400004 filled\n"
    "Web_STAinfo_Get 500003\n"
    "WUMWTPKickoutSta 500048\n"
    "loaded at the end: libnvram.so libmvram.so libnetlink.so libhostsort.so libwum.so\n";

// The answers of one library that was in the process from the start.
constexpr char kInTheProcess[] =
    "loaded at the start:\n"
    "nvram_get 900000 nvram_get KEY\n"
    "loaded after one call:\n"
    "nvram_set 924930\n"
    "nvram_commit 900001\n"
    "mvram_get 900000 mvram_get KEY\n"
    "mvram_set 924931\n"
    "user_netlink_regist 901023\n"
    "netlink_send_user 901026\n"
    "netlink_receive_user 900007\n"
    "900000 unregistered\n"
    "hostsort_info_sort 900010\n"
    "hostsort_get_total_entry 900002\n"
    "hostsort_get_next 900004 filled\n"
    "Web_STAinfo_Get 900003\n"
    "WUMWTPKickoutSta 900048\n"
    "loaded at the end:\n";

struct PlatformCall {
    const char* soname;
    const char* symbol;
};
constexpr PlatformCall kCalls[] = {
    {"libnvram.so", "nvram_get"},
    {"libnvram.so", "nvram_set"},
    {"libnvram.so", "nvram_commit"},
    {"libmvram.so", "mvram_get"},
    {"libmvram.so", "mvram_set"},
    {"libnetlink.so", "user_netlink_regist"},
    {"libnetlink.so", "netlink_send_user"},
    {"libnetlink.so", "netlink_receive_user"},
    {"libnetlink.so", "user_netlink_unregist"},
    {"libhostsort.so", "hostsort_info_sort"},
    {"libhostsort.so", "hostsort_get_total_entry"},
    {"libhostsort.so", "hostsort_get_next"},
    {"libwum.so", "Web_STAinfo_Get"},
    {"libwum.so", "WUMWTPKickoutSta"},
};

struct Answers {
    std::string printed;
    std::string log;
};

// What the probe prints and logs with these two variables of the dynamic linker.
Answers probe(const char* program, const char* library_path, const char* preload) {
    const std::string printed = temp_file(""), log = temp_file("");
    const std::string command =
        std::string("ASAN_OPTIONS=detect_leaks=0:verify_asan_link_order=0") + " LD_LIBRARY_PATH='" +
        library_path + "' LD_PRELOAD='" + preload + "' " + shell_words(program) + " " + log + " >" +
        printed;
    EXPECT_TRUE(run({"sh", "-c", command})) << command;
    return {file_text(printed), file_text(log)};
}

// How many lines of the log name this library and this call.
int records_naming(const std::string& log, const PlatformCall& call) {
    int count = 0;
    for (std::size_t at = 0; at < log.size();) {
        const std::size_t end = log.find('\n', at);
        const std::string line = log.substr(at, end - at) + " ";
        const std::string symbol = std::string(" ") + call.symbol + " ";
        const bool names_both =
            line.find(call.soname) != std::string::npos && line.find(symbol) != std::string::npos;
        count += names_both ? 1 : 0;
        at = end + 1;
    }
    return count;
}

}  // namespace

TEST(PlatformLibrary, AMissingLibraryActsLikeAFailingCall) {
    const Answers answers = probe(PLATFORM_PROBE, "", "");
    EXPECT_EQ(answers.printed, kAbsent);
    for (const PlatformCall& call : kCalls)
        EXPECT_EQ(records_naming(answers.log, call), 1) << call.symbol << "\n" << answers.log;
}

TEST(PlatformLibrary, AMissingCallActsLikeAFailingOne) {
    const Answers answers = probe(PLATFORM_PROBE, PLATFORM_EMPTY, "");
    EXPECT_EQ(answers.printed.substr(0, answers.printed.find("loaded after")),
              std::string(kAbsent).substr(0, std::string(kAbsent).find("loaded after")));
    EXPECT_NE(answers.printed.find("hostsort_get_total_entry 0\n"), std::string::npos);
    EXPECT_NE(
        answers.printed.find(
            "loaded at the end: libnvram.so libmvram.so libnetlink.so libhostsort.so libwum.so\n"),
        std::string::npos)
        << "the libraries are there, without the calls";
    for (const PlatformCall& call : kCalls)
        EXPECT_EQ(records_naming(answers.log, call), 1) << call.symbol << "\n" << answers.log;
}

TEST(PlatformLibrary, LoadsALibraryAtItsFirstCall) {
    const Answers answers = probe(PLATFORM_PROBE, PLATFORM_LIBRARIES, "");
    EXPECT_EQ(answers.printed, kLoaded);
    EXPECT_EQ(answers.log, "");
}

TEST(PlatformLibrary, WhatIsPreloadedServesFirst) {
    if (std::string(PLATFORM_ALL).find_first_of(" :") != std::string::npos) {
        GTEST_SKIP() << "no library below a path with a blank or a colon can be preloaded";
    }
    const Answers answers = probe(PLATFORM_PROBE, PLATFORM_LIBRARIES, PLATFORM_ALL);
    EXPECT_EQ(answers.printed, kInTheProcess);
    EXPECT_EQ(answers.log, "");
}

TEST(PlatformLibrary, WhatIsLinkedInServesFirst) {
    const Answers dynamic = probe(PLATFORM_PROBE_LINKED, PLATFORM_LIBRARIES, "");
    EXPECT_EQ(dynamic.printed, kInTheProcess);
    EXPECT_EQ(dynamic.log, "");
    // One library linked into the program itself; the others are loaded all the same.
    const Answers fixed = probe(PLATFORM_PROBE_STATIC, PLATFORM_LIBRARIES, "");
    std::string expected = kLoaded;
    expected.replace(expected.find("100000"), 6, "900000");
    expected.replace(expected.find("124930"), 6, "924930");
    expected.replace(expected.find("100001"), 6, "900001");
    for (const char* loaded : {" libnvram.so\n", " libnvram.so "}) {
        expected.erase(expected.find(loaded), strlen(loaded) - 1);
    }
    EXPECT_EQ(fixed.printed, expected);
    EXPECT_EQ(fixed.log, "");
}

#ifdef PLATFORM_FOLDER

// Runs the probe where the folder of the stock libraries holds those of `from`.
static Answers probe_with_folder(const std::string& from, const char* library_path) {
    const std::filesystem::path folder = PLATFORM_FOLDER;
    mount_tmpfs(folder.parent_path());
    std::filesystem::copy(from, folder);
    return probe(PLATFORM_PROBE, library_path, "");
}

TEST(PlatformLibrary, TheFolderOfTheStockLibrariesServes) {
    if (!file_exists(std::filesystem::path(PLATFORM_FOLDER).parent_path()))
        GTEST_SKIP() << "no folder to mount one on";
    run_in_namespace(CLONE_NEWNS, [] {
        const Answers answers = probe_with_folder(PLATFORM_LIBRARIES, "");
        EXPECT_EQ(answers.printed, kLoaded);
        EXPECT_EQ(answers.log, "");
    });
    run_in_namespace(CLONE_NEWNS, [] {
        const Answers answers = probe_with_folder(PLATFORM_EMPTY, PLATFORM_LIBRARIES);
        EXPECT_EQ(answers.printed, kLoaded) << "the search path of the environment goes first";
    });
    run_in_namespace(CLONE_NEWNS, [] {
        const Answers answers = probe_with_folder(PLATFORM_LIBRARIES, "/nowhere");
        EXPECT_EQ(answers.printed, kLoaded) << "what the search path lacks";
    });
}

#endif

TEST(PlatformLibrary, OneThatIsMissingLosesItsOwnCallsOnly) {
    const Answers answers = probe(PLATFORM_PROBE, PLATFORM_WITHOUT_WUM, "");
    std::string expected = kLoaded;
    expected.replace(expected.find("Get 500003"), 10, "Get -1");
    expected.replace(expected.find("Sta 500048"), 10, "Sta -1");
    expected.replace(expected.find(" libwum.so"), 10, "");
    EXPECT_EQ(answers.printed, expected);
    EXPECT_EQ(records_naming(answers.log, {"libwum.so", "Web_STAinfo_Get"}), 1);
    EXPECT_EQ(records_naming(answers.log, {"libwum.so", "WUMWTPKickoutSta"}), 1);
    EXPECT_EQ(std::count(answers.log.begin(), answers.log.end(), '\n'), 2);
}

TEST(LibrarySymbol, ComesFromTheProcessOrTheLibrary) {
    run_apart([] {
        const std::string log = absent_file();
        ASSERT_EQ(cpectl_log_init(log.c_str()), 0);
        EXPECT_EQ(library_symbol("libnosuch.so.1", "getenv"), dlsym(RTLD_NEXT, "getenv"));
        EXPECT_EQ(file_text(log), "") << "not even looked for";

        void* library_says = library_symbol(PLATFORM_ALL, "platform_library_is_here");
        ASSERT_NE(library_says, nullptr);
        EXPECT_EQ(reinterpret_cast<int (*)()>(library_says)(), 900000);
        EXPECT_EQ(library_symbol(PLATFORM_ALL, "platform_library_is_here"), library_says);
        EXPECT_EQ(file_text(log), "");

        cpectl_runtimedebug_level = 4;
        EXPECT_EQ(library_symbol("libnosuch.so.1", "nosuch"), nullptr);
        EXPECT_EQ(file_text(log), "");
        cpectl_runtimedebug_level = 3;
        EXPECT_EQ(library_symbol("libnosuch.so.1", "nosuch"), nullptr);
        EXPECT_EQ(library_symbol(PLATFORM_ALL, "nosuch"), nullptr);
        EXPECT_EQ(records_naming(file_text(log), {"libnosuch.so.1", "nosuch"}), 1) << "level 3";
        EXPECT_EQ(records_naming(file_text(log), {PLATFORM_ALL, "nosuch"}), 1);
    });
}
