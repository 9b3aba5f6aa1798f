// Walking the table of hosts, and bringing MAC texts into one shape.
#include "tools/hosts.h"

#include <cstring>
#include <string>

#include "support.h"

namespace {

HostRecord g_record;  // what the table gives
int g_result = 0;     // and what the call for it returns
int g_asked_for = -1;

HostRecord record_of(const char* ip) {
    HostRecord record{};
    memcpy(record.ip, ip, strnlen(ip, sizeof record.ip));
    record.down_total = 0x100000002;
    record.up_total = 3;
    record.down_rate = 0xFFFFFFFF;
    record.up_rate = 5;
    return record;
}

}  // namespace

int hostsort_get_next(void* record, int index) {
    g_asked_for = index;
    if (g_result >= 0) memcpy(record, &g_record, sizeof g_record);
    return g_result;
}

TEST(Hosts, ReadsOneRecord) {
    g_result = 0;
    g_record = record_of("192.168.5.20");
    HostRecord host{};
    ASSERT_TRUE(host_read(7, host));
    EXPECT_EQ(g_asked_for, 7);
    EXPECT_EQ(memcmp(&host, &g_record, sizeof host), 0) << "all 72 bytes";
}

TEST(Hosts, AnAddressThatDoesNotParseEndsTheWalk) {
    struct Case {
        const char* why;
        std::string ip;
        bool result;
    };
    const Case kCases[] = {
        {"an address", "10.0.0.1", true},
        {"zeros are an address", "0.0.0.0", true},
        {"the last but one", "255.255.255.254", true},
        {"all ones look like a failure", "255.255.255.255", false},
        {"nothing", "", false},
        {"a name", "office", false},
        {"too many numbers", "10.0.0.0.1", false},
        {"too large a number", "10.0.0.256", false},
        {"a text behind a newline is not looked at", "10.0.0.1 \n", true},
        {"39 characters without an address", repeat(39, 'x'), false},
        {"40 characters, no end", repeat(40, 'x'), false},
        {"40 characters of digits, no end", repeat(40, '1'), false},
    };
    g_result = 0;
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        g_record = record_of(c.ip.c_str());
        HostRecord host{};
        EXPECT_EQ(host_read(1, host), c.result);
        EXPECT_EQ(memchr(host.ip, '\0', sizeof host.ip) != nullptr, true) << "terminated";
    }
}

TEST(Hosts, AFailedCallEndsTheWalk) {
    g_result = -1;
    HostRecord host = record_of("10.0.0.1");
    EXPECT_FALSE(host_read(1, host)) << "nothing of an earlier record counts";
}

TEST(Mac, IsKnownUnlessEmptyOrZero) {
    struct Case {
        const char* why;
        const char* mac;
        bool known;
    };
    constexpr Case kCases[] = {
        {"a MAC", "02:ac:bd:ce:df:ef", true},
        {"nothing", "", false},
        {"zeros", "00:00:00:00:00:00", false},
        {"only the first 17 characters count", "00:00:00:00:00:001", false},
        {"nearly zeros", "00:00:00:00:00:01", true},
        {"zeros cut short", "00:00:00:00:00:0", true},
        {"zeros with other separators", "00-00-00-00-00-00", true},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(mac_is_known(c.mac), c.known);
    }
}

TEST(Mac, IsUpperCaseWithColons) {
    struct Case {
        const char* why;
        const char* before;
        const char* after;
    };
    constexpr Case kCases[] = {
        {"lower case", "02:ac:bd:ce:df:ef", "02:AC:BD:CE:DF:EF"},
        {"upper case", "02:AC:BD:CE:DF:EF", "02:AC:BD:CE:DF:EF"},
        {"hyphens", "aa-bb-cc-dd-ee-ff", "AA:BB:CC:DD:EE:FF"},
        {"every letter", "a-z", "A:Z"},
        {"nothing", "", ""},
        {"nothing else changes", "@[`{09 _", "@[`{09 _"},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        char mac[kMacBufferSize] = {};
        memcpy(mac, c.before, strlen(c.before));
        mac_normalise(mac);
        EXPECT_STREQ(mac, c.after);
        for (std::size_t i = strlen(c.after); i < sizeof mac; ++i)
            EXPECT_EQ(mac[i], '\0');
    }
}
