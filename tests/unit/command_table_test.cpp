// The command table: its rows, which of them a request reaches, and the help listing.
#include "main/command.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string>

#include "command_rows.h"
#include "help_listing.h"
#include "support.h"

TEST(CommandTable, HoldsTheseRowsInThisOrder) {
    static_assert(std::size(kCommandRows) == kCommandCount);
    for (std::size_t i = 0; i < kCommandCount; ++i) {
        const CommandRow& expected = kCommandRows[i];
        const CommandEntry& row = handle[i];
        SCOPED_TRACE(expected.name);
        EXPECT_STREQ(row.name, expected.name);
        EXPECT_EQ(row.handler, expected.handler) << expected.handler_name;
        EXPECT_EQ(row.argc, expected.argc);
        for (std::size_t arg = 0; arg < kMaxArguments; ++arg) {
            const bool named = arg < static_cast<std::size_t>(expected.argc);
            EXPECT_STREQ(row.argnames[arg], named ? expected.argnames[arg] : nullptr) << arg;
        }
    }
}

TEST(CommandTable, EndsWithARowOfNulls) {
    const CommandEntry& end = handle[kCommandCount];
    EXPECT_EQ(end.name, nullptr);
    EXPECT_EQ(end.handler, nullptr);
    EXPECT_EQ(end.argc, 0);
    EXPECT_TRUE(std::all_of(std::begin(end.argnames), std::end(end.argnames),
                            [](const char* name) { return !name; }));
    static_assert(kMaxArguments == 32);
}

TEST(CommandFind, ReachesEachRowByItsNameAndByLongerOnes) {
    for (std::size_t i = 0; i < kCommandCount; ++i) {
        const std::string name = kCommandRows[i].name;
        for (const char* more : {"", "Now", "X", " ", "?", "0", "\xC3\xA9"}) {
            SCOPED_TRACE(name + more);
            EXPECT_EQ(command_find((name + more).c_str()), &handle[i]);
        }
        EXPECT_EQ(command_find((name + repeat(100000, 'x')).c_str()), &handle[i]);
        EXPECT_EQ(command_find((name + kCommandRows[0].name).c_str()), &handle[i]);
    }
}

TEST(CommandFind, ReachesNoRowByAShorterName) {
    for (const CommandRow& row : kCommandRows) {
        const std::string name = row.name;
        for (std::size_t length = 0; length < name.size(); ++length) {
            SCOPED_TRACE(name.substr(0, length));
            EXPECT_EQ(command_find(name.substr(0, length).c_str()), nullptr);
        }
    }
}

TEST(CommandFind, ReachesNoRowByAnotherName) {
    for (const char* name : {"nosuch", " reboot", "Reboot", "REBOOT", "getstalist", "xreboot", "-h",
                             "--help", "?", "pptpcConfGet"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(command_find(name), nullptr);
    }
}

TEST(CommandList, PrintsALineForEachRow) {
    const std::string printed = printed_by(command_list);
    EXPECT_EQ(printed, kHelpListing);
    EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), std::ssize(kCommandRows));
}
