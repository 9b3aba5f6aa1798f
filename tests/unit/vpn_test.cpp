// VPN: what no request shows. When a script is started, and what the routines beside the handlers
// return.
#include "platform/vpn.h"

#include <cjson/cJSON.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "platform/handlers.h"
#include "support.h"

extern "C" int __wrap_system(const char* command);

namespace {

constexpr char kTunnels[] = "/disk/conf/ipsec.cfg";
constexpr char kUsers[] = "/disk/conf/pptpuser.cfg";
constexpr char kState[] = "/tmp/ipsec_stat";

// A command, what was in the line files when it was run, and whether their folder was locked.
struct Command {
    std::string text;
    std::string tunnels;
    std::string users;
    bool locked;
};
std::vector<Command> g_commands;

std::string text_of(const char* path) {
    return file_exists(path) ? file_text(path) : "(nothing)";
}

// Whether somebody else would have to wait for the folder.
bool is_locked(const char* folder) {
    const int other = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool locked = other >= 0 && flock(other, LOCK_EX | LOCK_NB) != 0;
    close(other);
    return locked;
}

// Runs `body` where "/" is an empty gateway.
void in_gateway(const std::function<void()>& body) {
    run_in_namespace(CLONE_NEWNS, [&body] {
        const std::string root = absent_file();
        for (const char* folder : {"", "/tmp", "/disk", "/disk/conf"})
            ASSERT_EQ(mkdir((root + folder).c_str(), 0700), 0);
        ASSERT_EQ(chroot(root.c_str()), 0);
        ASSERT_EQ(chdir("/"), 0);
        body();
    });
}

// The status that the control tool prints has been sorted into these; null: into none.
const char* g_established = "";
const char* g_unrouted = "";

void sort_into(const char* path, const char* lines) {
    if (lines) write_file(path, lines);
}

}  // namespace

int __wrap_system(const char* command) {
    g_commands.push_back({command, text_of(kTunnels), text_of(kUsers), is_locked("/disk/conf")});
    const std::string text = command;
    if (text.find("> /tmp/ipsec_state_tmp") != std::string::npos)
        sort_into("/tmp/ipsec_state_tmp", g_established);
    if (text.find("> /tmp/ipsec_eroute_tmp") != std::string::npos)
        sort_into("/tmp/ipsec_eroute_tmp", g_unrouted);
    if (text == "echo -n > /tmp/ipsec_stat" && !file_exists(kState)) sort_into(kState, "");
    return 0;
}

TEST(Vpn, AddsTheLineBeforeTheScriptStarts) {
    in_gateway([] {
        cpectl_vpn_ipsec_tun_add(1, cJSON_Parse(R"({"tunCfg":"office 1"})"));
        cpectl_pptpd_user_add(1, cJSON_Parse(R"({"userCfg":"ann secret"})"));
        ASSERT_EQ(g_commands.size(), 2u);
        EXPECT_EQ(g_commands[0].tunnels, "office 1\n");
        EXPECT_EQ(g_commands[1].users, "ann secret\n");
    });
}

TEST(Vpn, EmptiesALineFileWhenNobodyEditsIt) {
    in_gateway([] {
        cpectl_vpn_ipsec_tun_all_del(0, nullptr);
        cpectl_pptpd_user_all_del(0, nullptr);
        ASSERT_EQ(g_commands.size(), 4u);
        for (const std::size_t number : {0u, 2u}) {
            SCOPED_TRACE(g_commands[number].text);
            EXPECT_TRUE(g_commands[number].locked) << "a deletion would bring the lines back";
            EXPECT_FALSE(g_commands[number + 1].locked) << "the script may edit the file itself";
        }
    });
}

TEST(Vpn, LetsTheScriptsOfADeletionIn) {
    in_gateway([] {
        write_file(kTunnels, "office 1\n");
        write_file(kUsers, "ann secret\n");
        cpectl_vpn_ipsec_tun_del(1, cJSON_Parse(R"({"tunName":"office"})"));
        cpectl_pptpd_user_del(1, cJSON_Parse(R"({"userName":"ann"})"));
        ASSERT_EQ(g_commands.size(), 8u);
        for (const Command& command : g_commands) {
            SCOPED_TRACE(command.text);
            EXPECT_EQ(command.locked, command.text.find("mv ") == 0);
        }
    });
}

TEST(Vpn, ChecksWhetherALineIsThere) {
    struct Kind {
        const char* path;
        int (*check)(const char* name);
        std::size_t piece;  // characters that are read at once
    };
    constexpr Kind kKinds[] = {
        {kTunnels, check_ipsec_tun, 4095},
        {kUsers, check_pptpd_user, 1023},
    };
    in_gateway([&kKinds] {
        for (const Kind& kind : kKinds) {
            SCOPED_TRACE(kind.path);
            EXPECT_EQ(kind.check("tun1"), -1) << "no file";
            write_file(kind.path, "tun2 a\ntun10 b\ntun3\n");
            EXPECT_EQ(kind.check("tun1"), 1) << "tun10 begins with it";
            EXPECT_EQ(kind.check("tun10"), 1);
            EXPECT_EQ(kind.check("tun100"), 0);
            EXPECT_EQ(kind.check("tun3"), 0) << "a line without a blank";
            write_file(kind.path, repeat(kind.piece, 'x') + "tun1 a\n");
            EXPECT_EQ(kind.check("tun1"), 1) << "behind the piece begins another line";
            write_file(kind.path, repeat(kind.piece - 1, 'x') + "tun1 a\n");
            EXPECT_EQ(kind.check("tun1"), 0);
        }
    });
}

TEST(Vpn, WritesTheStatesUnlessAFileCannotBeOpened) {
    struct Case {
        const char* why;
        const char* tunnels;  // null: no file
        const char* established;
        const char* unrouted;
        bool state_is_folder;
        int result;
        const char* state;
    };
    constexpr Case kCases[] = {
        {"all are there", "a 1 2 3 4 192.0.2.1 x\n", "000 #2: \"conn_a\"\n", "", false, 0,
         "a 0 192.0.2.1 1 \n"},
        {"no tunnel in the file", "", "", "", false, 0, ""},
        {"no tunnel file", nullptr, "", "", false, -1, ""},
        {"no lines of established connections", "a 1\n", nullptr, "", false, -1, ""},
        {"no lines of unrouted connections", "a 1\n", "", nullptr, false, -1, ""},
        {"no state file", "a 1\n", "", "", true, -1, nullptr},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        in_gateway([&c] {
            if (c.tunnels) write_file(kTunnels, c.tunnels);
            g_established = c.established;
            g_unrouted = c.unrouted;
            if (c.state_is_folder) {
                ASSERT_EQ(mkdir(kState, 0700), 0);
            }
            EXPECT_EQ(ipsec_get_state_to_file(), c.result);
            EXPECT_EQ(g_commands.size(), 3u);
            if (c.state) {
                EXPECT_EQ(file_text(kState), c.state);
            }
        });
    }
}
