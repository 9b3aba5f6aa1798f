// Network interfaces and neighbours: against real devices in a network namespace, and against
// texts of /proc/net/dev as kernels have written it.
#include "tools/netif.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support.h"

extern "C" int __real_socket(int domain, int type, int protocol);
extern "C" int __wrap_socket(int domain, int type, int protocol);

namespace {

int g_sockets = 0;  // how many the tested code has made

constexpr char kUntouched[] = "untouched";

// A name of 15 characters, the most that a device can have.
constexpr char kLongName[] = "abcdefghijklmno";

void ip(const std::string& command) {
    EXPECT_TRUE(run({"sh", "-c", "ip " + command})) << "ip " << command;
}

// The devices of the tests. Their addresses are visible in this namespace only.
void make_devices() {
    ip("link add eth0.5 address 02:ab:cd:ef:01:0a type veth peer name lan0");
    ip("addr add 192.168.5.1/24 broadcast 192.168.5.255 dev eth0.5");
    ip("link set eth0.5 up");
    ip("link set lan0 up");
    ip("neigh add 192.168.5.20 lladdr ae:bc:cd:de:ef:fa dev eth0.5 nud permanent");
    ip("neigh add 192.168.5.21 lladdr 00:01:02:03:04:05 dev eth0.5 nud reachable");
    ip("neigh add 192.168.5.22 lladdr 02:00:00:00:00:22 dev lan0 nud permanent");
    ip(std::string("link add ") + kLongName + " type veth peer name down0");
    ip(std::string("addr add 10.1.1.1/8 dev ") + kLongName);
    ip(std::string("link set ") + kLongName + " up");
    ip("addr add 10.2.0.1/20 broadcast 10.2.15.255 dev down0");  // an address, but down
}

// A point-to-point device, where the machine has tun devices.
bool make_ppp_device() {
    if (access("/dev/net/tun", R_OK | W_OK) != 0) return false;
    ip("tuntap add dev ppp0 mode tun");
    ip("addr add 10.9.0.1 peer 10.9.0.2 dev ppp0");
    ip("link set ppp0 up");
    return true;
}

void with_devices(const std::function<void()>& body) {
    run_in_namespace(CLONE_NEWNET, [&body] {
        make_devices();
        g_sockets = 0;
        body();
    });
}

void allow_few_files() {
    const rlimit few{24, 24};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
}

}  // namespace

extern "C" int __wrap_socket(int domain, int type, int protocol) {
    ++g_sockets;
    EXPECT_EQ(domain, AF_INET);
    EXPECT_EQ(type & SOCK_DGRAM, SOCK_DGRAM);
    return __real_socket(domain, type, protocol);
}

// ---- getpppnic

TEST(GetPppNic, TellsWhetherADeviceHasAnAddress) {
    struct Case {
        const char* why;
        std::string name;
        int result;
    };
    const Case kCases[] = {
        {"up, with an address", "eth0.5", 0},
        {"down, with an address", "down0", 0},
        {"up, without an address", "lan0", 1},
        {"the loopback device has none in a new namespace", "lo", 1},
        {"missing", "ppp9", 1},
        {"no name", "", 1},
        {"a part of a name", "eth0", 1},
        {"a name of 15 characters", kLongName, 0},
        {"of 16: cut to 15", std::string(kLongName) + "p", 0},
        {"of 40: cut to 15", std::string(kLongName) + repeat(25, 'z'), 0},
        {"of 16, but other ones", "abcdefghijklmnXp", 1},
        {"of 40, missing", repeat(40, 'q'), 1},
        {"far beyond", repeat(100000, 'q'), 1},
    };
    with_devices([&kCases] {
        for (const Case& c : kCases) {
            SCOPED_TRACE(c.why);
            EXPECT_EQ(getpppnic(c.name.c_str()), c.result);
        }
    });
}

TEST(GetPppNic, KnowsAPointToPointDevice) {
    with_devices([] {
        if (!make_ppp_device()) GTEST_SKIP() << "no tun devices here";
        EXPECT_EQ(getpppnic("ppp0"), 0);
        ip("addr flush dev ppp0");
        EXPECT_EQ(getpppnic("ppp0"), 1);
    });
}

TEST(GetPppNic, FailsWithoutASocketAndClosesIt) {
    with_devices([] {
        forbid_new_files();
        EXPECT_EQ(getpppnic("eth0.5"), 1);
        allow_new_files();
        allow_few_files();
        g_sockets = 0;
        for (int i = 0; i < 50; ++i) {
            ASSERT_EQ(getpppnic("eth0.5"), 0);
            ASSERT_EQ(getpppnic("missing"), 1);
        }
        EXPECT_EQ(g_sockets, 100);
        close(STDIN_FILENO);
        EXPECT_EQ(getpppnic("eth0.5"), 0) << "descriptor 0 is as good as any";
    });
}

// ---- getnic

namespace {

struct NicCase {
    const char* why;
    std::string name;
    const char* option;
    int result;
    const char* text;
};

void expect_nic_answers(std::initializer_list<NicCase> cases) {
    for (const NicCase& c : cases) {
        SCOPED_TRACE(std::string(c.why) + " " + c.option);
        char out[32];
        memcpy(out, kUntouched, sizeof kUntouched);
        EXPECT_EQ(getnic(c.name.c_str(), c.option, out), c.result);
        EXPECT_STREQ(out, c.text);
    }
}

}  // namespace

TEST(GetNic, AnswersEachOption) {
    with_devices([] {
        expect_nic_answers({
            {"Ethernet", "eth0.5", "-i", 0, "192.168.5.1"},
            {"Ethernet", "eth0.5", "-b", 0, "192.168.5.255"},
            {"Ethernet", "eth0.5", "-m", 0, "255.255.255.0"},
            {"Ethernet: no peer but itself", "eth0.5", "-g", 0, "192.168.5.1"},
            {"Ethernet, in upper case", "eth0.5", "-w", 0, "02:AB:CD:EF:01:0A"},
            {"down", "down0", "-i", 0, "10.2.0.1"},
            {"down", "down0", "-b", 0, "10.2.15.255"},
            {"down", "down0", "-m", 0, "255.255.240.0"},
            {"no broadcast address", kLongName, "-b", 0, "0.0.0.0"},
            {"no address", "lan0", "-i", 1, kUntouched},
            {"no address", "lan0", "-b", 1, kUntouched},
            {"no address", "lan0", "-m", 1, kUntouched},
            {"no address", "lan0", "-g", 1, kUntouched},
            {"missing", "ppp9", "-i", 1, kUntouched},
            {"missing", "ppp9", "-b", 1, kUntouched},
            {"missing", "ppp9", "-m", 1, kUntouched},
            {"missing", "ppp9", "-g", 1, kUntouched},
            {"missing", "ppp9", "-w", 1, kUntouched},
            {"no name", "", "-i", 1, kUntouched},
            {"a name of 15 characters", kLongName, "-i", 0, "10.1.1.1"},
            {"of 16: cut to 15", std::string(kLongName) + "p", "-i", 0, "10.1.1.1"},
            {"of 40: cut to 15", std::string(kLongName) + repeat(25, 'z'), "-m", 0, "255.0.0.0"},
            {"of 40, missing", repeat(40, 'q'), "-w", 1, kUntouched},
            {"far beyond", repeat(100000, 'q'), "-i", 1, kUntouched},
        });
    });
}

TEST(GetNic, ADeviceWithoutAnAddressHasAHardwareAddress) {
    with_devices([] {
        char out[32] = "";
        EXPECT_EQ(getnic("lan0", "-w", out), 0);
        EXPECT_EQ(strlen(out), 17u);
    });
}

TEST(GetNic, AnswersForAPointToPointDevice) {
    with_devices([] {
        if (!make_ppp_device()) GTEST_SKIP() << "no tun devices here";
        expect_nic_answers({
            {"point-to-point", "ppp0", "-i", 0, "10.9.0.1"},
            {"point-to-point", "ppp0", "-g", 0, "10.9.0.2"},
            {"point-to-point", "ppp0", "-m", 0, "255.255.255.255"},
            {"point-to-point", "ppp0", "-b", 0, "0.0.0.0"},
            {"point-to-point", "ppp0", "-w", 0, "00:00:00:00:00:00"},
        });
    });
}

TEST(GetNic, RefusesOtherOptionsBeforeAnySocket) {
    with_devices([] {
        for (const char* option : {"-x", "", "-", "i", "-I", "-W", "-ii", "-i ", " -i", "-wm"}) {
            expect_nic_answers({{"another option", "eth0.5", option, 1, kUntouched}});
        }
        EXPECT_EQ(g_sockets, 0);
    });
}

TEST(GetNic, FailsWithoutASocketAndClosesIt) {
    with_devices([] {
        char out[32];
        memcpy(out, kUntouched, sizeof kUntouched);
        forbid_new_files();
        EXPECT_EQ(getnic("eth0.5", "-i", out), 1);
        EXPECT_EQ(getnic("eth0.5", "-w", out), 1);
        EXPECT_STREQ(out, kUntouched);
        allow_new_files();
        allow_few_files();
        for (int i = 0; i < 50; ++i) {
            ASSERT_EQ(getnic("missing", "-i", out), 1);
            ASSERT_EQ(getnic("eth0.5", "-i", out), 0);
        }
        close(STDIN_FILENO);
        EXPECT_EQ(getnic("eth0.5", "-m", out), 0) << "descriptor 0 is as good as any";
    });
}

TEST(GetNic, WritesNoMoreThanTheText) {
    with_devices([] {
        char out[32];
        memset(out, '#', sizeof out);
        EXPECT_EQ(getnic("eth0.5", "-i", out), 0);
        EXPECT_EQ(std::string(out, sizeof out),
                  std::string("192.168.5.1") + '\0' + repeat(20, '#'));
        memset(out, '#', sizeof out);
        EXPECT_EQ(getnic("eth0.5", "-w", out), 0);
        EXPECT_EQ(std::string(out, sizeof out),
                  std::string("02:AB:CD:EF:01:0A") + '\0' + repeat(14, '#'));
    });
}

// ---- Texts of addresses

TEST(Hwaddr, IsUpperCaseInOneBuffer) {
    const unsigned char first[] = {0x00, 0x0A, 0xbc, 0xDE, 0xf0, 0xFF};
    const unsigned char second[] = {1, 2, 3, 4, 5, 6};
    char* text = hwaddr(first);
    EXPECT_STREQ(text, "00:0A:BC:DE:F0:FF");
    EXPECT_EQ(hwaddr(second), text);
    EXPECT_STREQ(text, "01:02:03:04:05:06") << "the first result is overwritten";
}

TEST(Inetaddr, IsADottedQuad) {
    struct Case {
        const char* why;
        std::uint32_t host_order;
        const char* text;
    };
    constexpr Case kCases[] = {
        {"none", 0, "0.0.0.0"},
        {"all", 0xFFFFFFFF, "255.255.255.255"},
        {"no leading zeros", 0x0A010203, "10.1.2.3"},
        {"the first byte is the highest", 0xC0A80501, "192.168.5.1"},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        EXPECT_STREQ(inetaddr(htonl(c.host_order)), c.text);
    }
}

// ---- get_mac

TEST(GetMac, KnowsTheNeighboursOnTheLanDevice) {
    struct Case {
        const char* why;
        const char* ip;
        int result;
        const char* text;
    };
    constexpr Case kCases[] = {
        {"in lower case", "192.168.5.20", 0, "ae:bc:cd:de:ef:fa"},
        {"with leading zeros", "192.168.5.21", 0, "00:01:02:03:04:05"},
        {"a neighbour on another device only", "192.168.5.22", -1, kUntouched},
        {"no neighbour", "192.168.5.99", -1, kUntouched},
        {"the device's own address", "192.168.5.1", -1, kUntouched},
        {"no address", "", -1, kUntouched},
        {"no address but a name", "neighbour", -1, kUntouched},
        {"too many numbers", "192.168.5.20.1", -1, kUntouched},
    };
    with_devices([&kCases] {
        for (const Case& c : kCases) {
            SCOPED_TRACE(c.why);
            char out[32];
            memcpy(out, kUntouched, sizeof kUntouched);
            EXPECT_EQ(get_mac(c.ip, out), c.result);
            EXPECT_STREQ(out, c.text);
        }
    });
}

TEST(GetMac, FailsWithoutTheLanDevice) {
    run_in_namespace(CLONE_NEWNET, [] {
        ip("link add other0 type veth peer name lan0");
        ip("link set other0 up");
        ip("neigh add 192.168.5.20 lladdr 02:00:00:00:00:20 dev other0 nud permanent");
        char out[32];
        memcpy(out, kUntouched, sizeof kUntouched);
        EXPECT_EQ(get_mac("192.168.5.20", out), -1);
        EXPECT_STREQ(out, kUntouched);
    });
}

TEST(GetMac, TakesNoSocketBelowOne) {
    with_devices([] {
        char out[32];
        memcpy(out, kUntouched, sizeof kUntouched);
        forbid_new_files();
        EXPECT_EQ(get_mac("192.168.5.20", out), -1);
        allow_new_files();
        close(STDIN_FILENO);
        EXPECT_EQ(get_mac("192.168.5.20", out), -1) << "descriptor 0 counts as a failure";
        EXPECT_STREQ(out, kUntouched);
    });
}

TEST(GetMac, ClosesItsSocketAndWritesNoMoreThanTheText) {
    with_devices([] {
        allow_few_files();
        char out[32];
        memset(out, '#', sizeof out);
        for (int i = 0; i < 50; ++i)
            ASSERT_EQ(get_mac("192.168.5.20", out), 0);
        EXPECT_EQ(std::string(out, sizeof out),
                  std::string("ae:bc:cd:de:ef:fa") + '\0' + repeat(14, '#'));
    });
}

// ---- speed_get

namespace {

constexpr char kHeader[] =
    "Inter-|   Receive                                                |  Transmit\n"
    " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop "
    "fifo colls carrier compressed\n";

// Sixteen counters: `received`, seven others, `sent`, seven others.
std::string counters(const std::string& received, const std::string& sent) {
    return received + " 2 3 4 5 6 7 8 " + sent + " 10 11 12 13 14 15 16";
}

// A namespace in which /proc/net/dev has a content of the test's choice.
void with_proc(const std::function<void()>& body) {
    run_in_namespace(CLONE_NEWNS, [&body] {
        mount_tmpfs("/proc");
        std::filesystem::create_directory("/proc/net");
        body();
    });
}

std::string speed_of(const std::string& name) {
    char out[kTrafficTextSize + 1];
    memset(out, '#', sizeof out);
    memcpy(out, kUntouched, sizeof kUntouched);
    EXPECT_EQ(speed_get(name.c_str(), out), 0);
    EXPECT_EQ(out[kTrafficTextSize], '#');
    return out;
}

struct SpeedCase {
    const char* why;
    std::string lines;  // behind the header
    std::string name;
    const char* text;
};

}  // namespace

TEST(SpeedGet, ReadsTheCountersOfOneDevice) {
    const std::string kShort = counters("1000", "2000");
    const std::string kOther = "lo: " + counters("7", "8") + "\n";
    const SpeedCase kCases[] = {
        {"a blank behind the colon", "eth0: " + kShort + "\n", "eth0", "1000(0.0MB)/2000(0.0MB)"},
        {"the counter right behind the colon", "eth0:" + kShort + "\n", "eth0",
         "1000(0.0MB)/2000(0.0MB)"},
        {"aligned names and counters",
         "  eth0:    1000    1    0    0    0     0          0         0     2000       1    0    "
         "0    0     0       0          0\n",
         "eth0", "1000(0.0MB)/2000(0.0MB)"},
        {"a tab before the name and between counters",
         "\teth0:\t1\t2\t3\t4\t5\t6\t7\t8\t9\t10\t11\t12\t13\t14\t15\t16\n", "eth0",
         "1(0.0MB)/9(0.0MB)"},
        {"behind another device", kOther + "eth0: " + kShort + "\n", "eth0",
         "1000(0.0MB)/2000(0.0MB)"},
        {"the first of two alike", "eth0: " + kShort + "\neth0: " + counters("5", "6") + "\n",
         "eth0", "1000(0.0MB)/2000(0.0MB)"},
        {"not listed", kOther, "eth0", kUntouched},
        {"nothing listed", "", "eth0", kUntouched},
        {"a longer name", "eth0.5: " + kShort + "\n", "eth0", kUntouched},
        {"a shorter name", "eth: " + kShort + "\n", "eth0", kUntouched},
        {"no name wanted", "eth0: " + kShort + "\n", "", kUntouched},
        {"case counts", "ETH0: " + kShort + "\n", "eth0", kUntouched},
        {"one MiB", "ppp0: " + counters("1048576", "1048575") + "\n", "ppp0",
         "1048576(1.0MB)/1048575(1.0MB)"},
        {"rounded to one decimal", "ppp0: " + counters("52428", "52429") + "\n", "ppp0",
         "52428(0.0MB)/52429(0.1MB)"},
        {"some MiB", "ppp0: " + counters("123456789", "1610612736") + "\n", "ppp0",
         "123456789(117.7MB)/1610612736(1536.0MB)"},
        {"nothing sent", "ppp0: " + counters("0", "0") + "\n", "ppp0", "0(0.0MB)/0(0.0MB)"},
        {"more than a signed number holds", "ppp0: " + counters("2147483648", "4294967295") + "\n",
         "ppp0", "2147483648(2048.0MB)/4294967295(4096.0MB)"},
        {"2^32 begins again", "ppp0: " + counters("4294967296", "4294967297") + "\n", "ppp0",
         "0(0.0MB)/1(0.0MB)"},
        {"far above 2^32", "ppp0: " + counters("18446744073709551615", "1099512676352") + "\n",
         "ppp0", "4294967295(4096.0MB)/1048576(1.0MB)"},
        {"a name of 10 characters", "abcdefghij: " + kShort + "\n", "abcdefghij",
         "1000(0.0MB)/2000(0.0MB)"},
        {"of 11", "abcdefghijk: " + kShort + "\n", "abcdefghijk", "1000(0.0MB)/2000(0.0MB)"},
        {"of 12 is never found", "abcdefghijkl: " + kShort + "\n", "abcdefghijkl", kUntouched},
        {"of 15 is never found", "abcdefghijklmno: " + kShort + "\n", "abcdefghijklmno",
         kUntouched},
        {"of 12 does not find its first 11", "abcdefghijk: " + kShort + "\n", "abcdefghijkl",
         kUntouched},
        {"of 11 does not find 12", "abcdefghijkl: " + kShort + "\n", "abcdefghijk", kUntouched},
        {"a line of a long name is skipped", "abcdefghijkl: " + kShort + "\neth0: " + kShort + "\n",
         "eth0", "1000(0.0MB)/2000(0.0MB)"},
        {"15 counters: skipped", "eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n", "eth0", kUntouched},
        {"15 counters, then a whole line",
         "eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15\neth0: " + kShort + "\n", "eth0",
         "1000(0.0MB)/2000(0.0MB)"},
        {"17 counters: the rest is not looked at", "eth0: " + kShort + " 17 end\n", "eth0",
         "1000(0.0MB)/2000(0.0MB)"},
        {"a word among the counters", "eth0: 1 2 x 4 5 6 7 8 9 10 11 12 13 14 15 16\n", "eth0",
         kUntouched},
        {"no counters", "eth0:\n", "eth0", kUntouched},
        {"no colon", "eth0 " + kShort + "\n", "eth0", kUntouched},
        {"no name", ": " + kShort + "\n", "", kUntouched},
        {"blanks before the colon belong to the name", "eth0 : " + kShort + "\n", "eth0",
         kUntouched},
        {"an empty line ends the list", kOther + "\neth0: " + kShort + "\n", "eth0", kUntouched},
        {"a line of one blank does not", kOther + " \neth0: " + kShort + "\n", "eth0",
         "1000(0.0MB)/2000(0.0MB)"},
        {"a last line without newline", kOther + "eth0: " + kShort, "eth0",
         "1000(0.0MB)/2000(0.0MB)"},
        {"a line of 254 characters",
         "eth0: " + kShort + repeat(254 - 6 - kShort.size(), ' ') + "\n", "eth0",
         "1000(0.0MB)/2000(0.0MB)"},
        {"behind a line of 254",
         "lo: " + kShort + repeat(254 - 4 - kShort.size(), ' ') + "\neth0: " + kShort + "\n",
         "eth0", "1000(0.0MB)/2000(0.0MB)"},
        {"behind a line of 255: its newline is read as an empty line",
         "lo: " + kShort + repeat(255 - 4 - kShort.size(), ' ') + "\neth0: " + kShort + "\n",
         "eth0", kUntouched},
        {"behind a line of 256: its rest is a line",
         "lo: " + kShort + repeat(256 - 4 - kShort.size(), ' ') + "\neth0: " + kShort + "\n",
         "eth0", "1000(0.0MB)/2000(0.0MB)"},
        {"behind a far longer line",
         "lo: " + kShort + repeat(5000, ' ') + "\neth0: " + kShort + "\n", "eth0",
         "1000(0.0MB)/2000(0.0MB)"},
        {"counters beyond the line's buffer", "eth0: " + repeat(250, ' ') + kShort + "\n", "eth0",
         kUntouched},
    };
    with_proc([&kCases] {
        for (const SpeedCase& c : kCases) {
            SCOPED_TRACE(c.why);
            write_file("/proc/net/dev", kHeader + c.lines);
            EXPECT_EQ(speed_of(c.name), c.text);
        }
    });
}

TEST(SpeedGet, DiscardsTwoLines) {
    with_proc([] {
        const std::string line = "eth0: " + counters("1", "2") + "\n";
        write_file("/proc/net/dev", line);
        EXPECT_EQ(speed_of("eth0"), kUntouched);
        write_file("/proc/net/dev", line + line);
        EXPECT_EQ(speed_of("eth0"), kUntouched);
        write_file("/proc/net/dev", line + line + line);
        EXPECT_EQ(speed_of("eth0"), "1(0.0MB)/2(0.0MB)");
        write_file("/proc/net/dev", "\n\n" + line);
        EXPECT_EQ(speed_of("eth0"), "1(0.0MB)/2(0.0MB)") << "an empty line among them ends nothing";
        write_file("/proc/net/dev", "");
        EXPECT_EQ(speed_of("eth0"), kUntouched);
    });
}

TEST(SpeedGet, TakesNoticeOfNoExitStatus) {
    with_proc([] {
        const int errors = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(errors, STDERR_FILENO);
        EXPECT_EQ(speed_of("eth0"), kUntouched) << "the pipe was opened, only the file is missing";
    });
}

TEST(SpeedGet, FailsWithoutAPipeAndClosesIt) {
    with_proc([] {
        write_file("/proc/net/dev", kHeader + ("eth0: " + counters("1", "2") + "\n"));
        char out[kTrafficTextSize];
        memcpy(out, kUntouched, sizeof kUntouched);
        forbid_new_files();
        EXPECT_EQ(speed_get("eth0", out), -1);
        EXPECT_STREQ(out, kUntouched);
        allow_new_files();
        allow_few_files();
        for (int i = 0; i < 40; ++i)
            ASSERT_EQ(speed_get("eth0", out), 0);
        EXPECT_STREQ(out, "1(0.0MB)/2(0.0MB)");
    });
}

namespace {

// What a line of /proc/net/dev says, taken apart in another way than the tested code does.
std::string expected_speed(const std::string& line) {
    std::istringstream fields(line.substr(line.find(':') + 1));
    std::uint64_t counter[9] = {};
    for (std::uint64_t& value : counter)
        fields >> value;
    const auto received = static_cast<std::uint32_t>(counter[0]);
    const auto sent = static_cast<std::uint32_t>(counter[8]);
    char text[kTrafficTextSize];
    snprintf(text, sizeof text, "%u(%.1fMB)/%u(%.1fMB)", received, received / 1048576.0, sent,
             sent / 1048576.0);
    return text;
}

// The names of a text of /proc/net/dev and what is expected for each.
std::vector<std::pair<std::string, std::string>> expected_speeds(const std::string& devices) {
    std::vector<std::pair<std::string, std::string>> speeds;
    std::istringstream lines(devices);
    std::string line;
    for (int number = 0; std::getline(lines, line); ++number) {
        if (number < 2) continue;
        const std::size_t start = line.find_first_not_of(' ');
        const std::string name = line.substr(start, line.find(':') - start);
        speeds.emplace_back(name, name.size() > 11 ? kUntouched : expected_speed(line));
    }
    return speeds;
}

}  // namespace

TEST(SpeedGet, ReadsTheRunningKernel) {
    run_in_namespace(CLONE_NEWNET, [] {
        make_devices();
        // Both ends of the pair talk a little when they come up: wait for what they said.
        EXPECT_TRUE(wait_until([] { return speed_of("eth0.5") != "0(0.0MB)/0(0.0MB)"; }));
        const bool equal = wait_until([] {
            const std::string before = file_text("/proc/self/net/dev");
            bool all = true;
            for (const auto& [name, text] : expected_speeds(before))
                all = all && speed_of(name) == text;
            return all && expected_speeds(before).size() == 5;
        });
        EXPECT_TRUE(equal) << file_text("/proc/self/net/dev");
        EXPECT_EQ(speed_of("missing0"), kUntouched);
    });
}

TEST(SpeedGet, ReadsTheTextOfAnotherMachine) {
    const std::string dir = data_dir();
    if (dir.empty()) return;
    const std::string devices = file_text(dir + "/proc/prometheus-netdev.txt");
    with_proc([&devices] {
        write_file("/proc/net/dev", devices);
        const auto speeds = expected_speeds(devices);
        EXPECT_GT(speeds.size(), 3u);
        for (const auto& [name, text] : speeds)
            EXPECT_EQ(speed_of(name), text) << name;
    });
}
