// Line files: which lines are found, deleted and added, and what is left when something fails.
#include "tools/line_file.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "support.h"
#include "tools/file.h"

extern "C" int __real_system(const char* command);
extern "C" int __wrap_system(const char* command);

namespace {

using std::string_view;
using Texts = std::vector<std::string>;

constexpr char kWorkFile[] = "/tmp/cpectl_tmp_write_file";
constexpr char kOldEnding[] = ".cpectl-old";  // of the second name while a file is replaced
constexpr char kFlash[] = "/usr/bin/dd_flash -s >/dev/null";

Texts g_commands;          // what was handed to the shell
bool g_run_mv = true;      // whether the mv command is really run
std::string g_cut_file;    // what a mv that is not run leaves a part of; empty: no file
int g_command_result = 0;  // what a command that is not run gives
int g_mv_complaint = 0;    // what a mv that was run gives besides its own status

std::string repeated_lines(std::size_t count, const std::string& line) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
        text += line;
    return text;
}

}  // namespace

extern "C" int __wrap_system(const char* command) {
    g_commands.emplace_back(command);
    // The flash tool is the gateway's; it is never run here.
    const bool is_mv = strncmp(command, "mv ", 3) == 0;
    if (is_mv && g_run_mv) return __real_system(command) | g_mv_complaint;
    if (is_mv && !g_cut_file.empty()) {
        EXPECT_EQ(unlink(g_cut_file.c_str()), 0);
        write_file(g_cut_file, "tun");
    }
    return g_command_result;
}

// ---- Finding

namespace {

struct FindCase {
    const char* why;
    std::string file;
    std::string name;
    int line;
};
const FindCase kFindCases[] = {
    {"first word equals the name", "tun1 a\n", "tun1", 1},
    {"a longer word also matches", "tun10 a\ntun1 b\n", "tun1", 1},
    {"the first of several, in file order", "tun100 a\ntun10 b\ntun1 c\n", "tun1", 1},
    {"a shorter word does not match", "tun a\ntun1 b\n", "tun1", 2},
    {"another word does not match", "tun2 a\ntun3 b\n", "tun1", 0},
    {"only the first word counts", "a tun1\n", "tun1", 0},
    {"case counts", "TUN1 a\n", "tun1", 0},
    {"an empty file", "", "tun1", 0},
    {"a line without a blank is no line", "junk\ntun1 a\n", "tun1", 1},
    {"a matching line without a blank is skipped", "tun1\n", "tun1", 0},
    {"no line has a blank", "tun1\ntun2\ntun3\n", "tun2", 0},
    {"an empty line is not counted", "\n\ntun1 a\n", "tun1", 1},
    {"lines with a blank are counted", "a b\nc d\n\ntun1 e\n", "tun1", 3},
    {"a line that begins with a blank is counted", " x\ntun1 a\n", "tun1", 2},
    {"a line of one blank is counted", " \ntun1 a\n", "tun1", 2},
    {"a blank at the end of the word is enough", "tun1 \n", "tun1", 1},
    {"a tab is no blank", "tun1\ta\n", "tun1", 0},
    {"a tab belongs to the word", "tun1\ta b\n", "tun1\ta", 1},
    {"a last line without newline", "a b\ntun1 c", "tun1", 2},
    {"a carriage return belongs to the line", "a b\r\ntun1 c\r\n", "tun1", 2},
    {"a carriage return as a line's whole text", "\r\ntun1 c\r\n", "tun1", 1},
    {"an empty name matches every word", "a b\n", "", 1},
    {"an empty name needs a blank all the same", "ab\nc d\n", "", 1},
    {"an empty name in an empty file", "", "", 0},
    {"a name with a blank is longer than each word", "tun1 a\n", "tun1 a", 0},
    // The word's buffer holds 127 characters.
    {"a word of 126", repeat(126, 'w') + " a\n", repeat(126, 'w'), 1},
    {"a word of 127", repeat(127, 'w') + " a\n", repeat(127, 'w'), 1},
    {"a word of 128 is cut", repeat(128, 'w') + " a\n", repeat(127, 'w'), 1},
    {"a name of 128 is longer than the cut word", repeat(128, 'w') + " a\n", repeat(128, 'w'), 0},
    {"a word of 4000 is cut", repeat(4000, 'w') + " a\n", repeat(127, 'w'), 1},
    {"a word cut after its difference", repeat(127, 'w') + "x a\n", repeat(127, 'w') + "y", 0},
    // A line is read in pieces of 4094 characters, each of which counts as a line.
    {"a line of 4093 and its newline", "a " + repeat(4091, 'x') + "\ntun1 b\n", "tun1", 2},
    {"a line of 4094: its newline is a piece without a blank",
     "a " + repeat(4092, 'x') + "\ntun1 b\n", "tun1", 2},
    {"a line of 4095", "a " + repeat(4093, 'x') + "\ntun1 b\n", "tun1", 2},
    {"a piece that begins with the name", "a " + repeat(4092, 'x') + "tun1 b\n", "tun1", 2},
    {"the name across two pieces", "a " + repeat(4090, 'x') + "tun1 b\n", "tun1", 0},
    {"a blank beyond the first piece", repeat(4094, 'x') + " a\ntun1 b\n", "tun1", 2},
    {"many lines", repeated_lines(20000, "tun2 x\n") + "tun1 y\n", "tun1", 20001},
};

}  // namespace

TEST(LineFile, FindsTheFirstMatchingLine) {
    for (const FindCase& c : kFindCases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(find_name_which_line(c.name.c_str(), temp_file(c.file).c_str()), c.line);
    }
}

TEST(LineFile, FindingInAFileThatIsNotThere) {
    EXPECT_EQ(find_name_which_line("tun1", absent_file().c_str()), -1);
}

TEST(LineFile, FindingChangesNothing) {
    const std::string path = temp_file("tun1 a\nb\n");
    find_name_which_line("tun1", path.c_str());
    line_file_has("tun1", path.c_str(), 128);
    EXPECT_EQ(file_text(path), "tun1 a\nb\n");
}

TEST(LineFile, HasReadsInPiecesOfTheGivenSize) {
    struct Case {
        const char* why;
        std::string file;
        const char* name;
        std::size_t line_size;
        int result;
    };
    const Case kCases[] = {
        {"equal", "u1 a\n", "u1", 128, 1},
        {"a longer word too", "u10 a\n", "u1", 128, 1},
        {"a shorter word not", "u a\n", "u1", 128, 0},
        {"not the first line", "a b\nc d\nu1 e\n", "u1", 128, 1},
        {"without a blank", "u1\n", "u1", 128, 0},
        {"without a newline", "u1 a", "u1", 128, 1},
        {"not the second word", "a u1\n", "u1", 128, 0},
        {"an empty file", "", "u1", 128, 0},
        {"blank within the first piece", "u1234 x\n", "u1", 7, 1},
        {"blank behind the first piece", "u12345 x\n", "u1", 7, 0},
        {"a later piece begins with the name", "abcdefu1 x\n", "u1", 7, 1},
        {"the whole line is one piece", "abcdefu1 x\n", "u1", 128, 0},
        {"the largest size", repeat(4094, 'x') + " a\nu1 b\n", "u1", 4096, 1},
        {"beyond the largest size", repeat(4095, 'x') + "u1 b\n", "u1", 4096, 1},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(line_file_has(c.name, temp_file(c.file).c_str(), c.line_size), c.result);
    }
    EXPECT_EQ(line_file_has("u1", absent_file().c_str(), 128), -1);
}

// ---- Adding

TEST(LineFile, AddsALineAtTheEnd) {
    struct Case {
        const char* why;
        std::string before;
        std::string line;
        std::string after;
    };
    const Case kCases[] = {
        {"to an empty file", "", "tun1 a", "tun1 a\n"},
        {"behind the others", "tun1 a\n", "tun2 b", "tun1 a\ntun2 b\n"},
        {"the same again", "tun1 a\n", "tun1 a", "tun1 a\ntun1 a\n"},
        {"an empty line", "tun1 a\n", "", "tun1 a\n\n"},
        {"behind a last line without newline", "tun1 a", "tun2 b", "tun1 atun2 b\n"},
        {"a line with newlines", "", "a\nb", "a\nb\n"},
        {"percent signs and backslashes", "", "%s%n \\n", "%s%n \\n\n"},
        {"a long line", "x\n", repeat(100000, 'y'), "x\n" + repeat(100000, 'y') + "\n"},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        const std::string path = temp_file(c.before);
        EXPECT_EQ(add_line(c.line.c_str(), path.c_str()), 0);
        EXPECT_EQ(file_text(path), c.after);
    }
}

TEST(LineFile, AddingCreatesTheFile) {
    const std::string path = absent_file();
    EXPECT_EQ(add_line("tun1 a", path.c_str()), 0);
    EXPECT_EQ(file_text(path), "tun1 a\n");
}

TEST(LineFile, AddingToAFileInTheWorkingFolder) {
    run_apart([] {
        ASSERT_EQ(chdir(scratch_dir().c_str()), 0);
        EXPECT_EQ(add_line("tun1 a", "bare-name"), 0);
        EXPECT_EQ(file_text("bare-name"), "tun1 a\n");
    });
}

TEST(LineFile, AddingFailsWhereTheFileCannotBeOpened) {
    EXPECT_EQ(add_line("x", (absent_file() + "/file").c_str()), -1);
    EXPECT_EQ(add_line("x", scratch_dir().c_str()), -1) << "a folder";
}

TEST(LineFile, AddingRunsNoCommand) {
    run_apart([] {
        EXPECT_EQ(add_line("x", absent_file().c_str()), 0);
        EXPECT_EQ(g_commands, Texts{});
    });
}

TEST(LineFile, AddingFailsOnAReadOnlyDisk) {
    run_in_namespace(CLONE_NEWNS, [] {
        const std::string disk = absent_file();
        std::filesystem::create_directory(disk);
        mount_tmpfs(disk);
        write_file(disk + "/file", "tun1 a\n");
        ASSERT_EQ(mount("none", disk.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
        EXPECT_EQ(add_line("x", (disk + "/file").c_str()), -1);
        EXPECT_EQ(add_line("x", (disk + "/new").c_str()), -1);
        EXPECT_EQ(file_text(disk + "/file"), "tun1 a\n");
    });
}

namespace {

// Leaves `room` bytes, rounded down to whole pages, on a disk.
void fill_disk(const std::string& disk, std::size_t room) {
    struct statvfs status {};
    ASSERT_EQ(statvfs(disk.c_str(), &status), 0);
    const auto free = static_cast<std::size_t>(status.f_bavail * status.f_bsize);
    ASSERT_GE(free, room);
    write_file(disk + "/filler", repeat(free - room, 'f'));
}

}  // namespace

TEST(LineFile, AddingToAFullDiskAddsNothing) {
    run_in_namespace(CLONE_NEWNS, [] {
        const std::string disk = absent_file();
        const std::string path = disk + "/file";
        std::filesystem::create_directory(disk);
        mount_tmpfs(disk, 1 << 20);
        const std::string before = "tun1 " + repeat(8180, 'a') + "\n";
        write_file(path, before);
        fill_disk(disk, 0);
        // The rest of the file's last page is still there: part of a long line would fit.
        EXPECT_EQ(add_line(repeat(10000, 'b').c_str(), path.c_str()), -1);
        EXPECT_EQ(file_text(path), before) << "no part of the line";
        EXPECT_EQ(add_line("c", path.c_str()), 0) << "a short one does fit";
        EXPECT_EQ(file_text(path), before + "c\n");
    });
}

// ---- Deleting

namespace {

struct DeleteCase {
    const char* why;
    std::string before;
    std::string name;
    std::string after;
};
const DeleteCase kDeleteCases[] = {
    {"the named line", "tun1 a\ntun2 b\n", "tun1", "tun2 b\n"},
    {"every line of that name", "tun1 a\ntun2 b\ntun1 c\n", "tun1", "tun2 b\n"},
    {"a word that is a prefix of the name goes too", "tun1 a\ntun10 b\ntun100 c\n", "tun10",
     "tun100 c\n"},
    {"a longer word stays", "tun10 a\n", "tun1", "tun10 a\n"},
    {"a short prefix goes too", "t a\ntu b\nx c\n", "tun1", "x c\n"},
    {"nothing matches", "tun1 a\ntun2 b\n", "x", "tun1 a\ntun2 b\n"},
    {"case counts", "TUN1 a\n", "tun1", "TUN1 a\n"},
    {"only the first word counts", "a tun1\n", "tun1", "a tun1\n"},
    {"a name with a blank: the word is its prefix", "tun1 a\ntun2 b\n", "tun1 b", "tun2 b\n"},
    {"an empty name deletes no word", "tun1 a\n", "", "tun1 a\n"},
    {"an empty line goes always", "tun1 a\n\ntun2 b\n", "x", "tun1 a\ntun2 b\n"},
    {"a line without a blank goes always", "junk\ntun1 a\njunk", "x", "tun1 a\n"},
    {"a line that begins with a blank goes always", " a b\ntun1 a\n", "x", "tun1 a\n"},
    {"also with an empty name", " a b\ntun1 a\n", "", "tun1 a\n"},
    {"a line of one blank", " \ntun1 a\n", "x", "tun1 a\n"},
    {"a tab is no blank", "tun2\ta\ntun1 a\n", "x", "tun1 a\n"},
    {"a tab belongs to the word", "tun1\ta b\n", "tun1", "tun1\ta b\n"},
    {"a last line without newline stays so", "tun1 a\ntun2 b", "tun1", "tun2 b"},
    {"and goes when it is named", "tun1 a\ntun2 b", "tun2", "tun1 a\n"},
    {"a carriage return stays with its line", "tun1 a\r\ntun2 b\r\n", "tun1", "tun2 b\r\n"},
    {"a line of a carriage return has no blank", "\r\ntun1 a\r\n", "x", "tun1 a\r\n"},
    {"several blanks stay", "tun1  a  b \n", "x", "tun1  a  b \n"},
    {"the last line of a file", "tun1 a\n", "tun1", ""},
    {"an empty file", "", "tun1", ""},
    // The blank is looked for in the first 127 characters.
    {"blank as character 126", repeat(125, 'w') + " a\n", "x", repeat(125, 'w') + " a\n"},
    {"blank as character 127", repeat(126, 'w') + " a\n", "x", repeat(126, 'w') + " a\n"},
    {"blank as character 128 is too late", repeat(127, 'w') + " a\n", "x", ""},
    {"blank far behind is too late", repeat(1000, 'w') + " a\n", "x", ""},
    {"the longest word, named", repeat(126, 'w') + " a\nx y\n", repeat(126, 'w'), "x y\n"},
    {"the longest word, as a prefix of the name", repeat(126, 'w') + " a\nx y\n", repeat(300, 'w'),
     "x y\n"},
    {"the longest word, longer than the name", repeat(126, 'w') + " a\n", repeat(125, 'w'),
     repeat(126, 'w') + " a\n"},
    // A line longer than what is read at once is kept or deleted as one.
    {"4093 characters stay whole", "a " + repeat(4091, 'x') + "\nb c\n", "b",
     "a " + repeat(4091, 'x') + "\n"},
    {"4094 characters stay whole", "a " + repeat(4092, 'x') + "\nb c\n", "b",
     "a " + repeat(4092, 'x') + "\n"},
    {"4095 characters stay whole", "a " + repeat(4093, 'x') + "\nb c\n", "b",
     "a " + repeat(4093, 'x') + "\n"},
    {"20000 characters stay whole", "a " + repeat(20000, 'x') + "\nb c\n", "b",
     "a " + repeat(20000, 'x') + "\n"},
    {"20000 characters with blanks stay whole", "a " + repeated_lines(4000, "b xyz") + "\nb c\n",
     "b", "a " + repeated_lines(4000, "b xyz") + "\n"},
    {"4094 characters go whole", "b " + repeat(4092, 'x') + "\na c\n", "b", "a c\n"},
    {"20000 characters go whole", "b " + repeated_lines(4000, "a xyz") + "\na c\n", "b", "a c\n"},
    {"what follows a NUL in a line is not read", std::string("a x\0y\nb c\n", 10), "b", "a x"},
    {"a line that begins with a NUL has no blank", std::string("\0 x\na b\n", 8), "x", "a b\n"},
    {"many lines", repeated_lines(20000, "tun2 x\n") + "tun1 y\n", "tun1",
     repeated_lines(20000, "tun2 x\n")},
};

const DeleteCase kOneLine = {"", "tun1 a\ntun2 b\n", "tun1", "tun2 b\n"};

// A path of this length in the private /tmp, its folder made; none of its characters is special.
std::string path_of_length(std::size_t length) {
    const std::string folder = "/tmp/" + repeat(40, 'd');
    std::filesystem::create_directory(folder);
    return folder + "/" + repeat(length - folder.size() - 1, 'p');
}

}  // namespace

TEST(LineFile, DeletesLines) {
    run_with_private_tmp([] {
        for (const DeleteCase& c : kDeleteCases) {
            SCOPED_TRACE(c.why);
            const std::string path = temp_file(c.before);
            EXPECT_EQ(del_line(c.name.c_str(), path.c_str()), 0);
            EXPECT_EQ(file_text(path), c.after);
            EXPECT_FALSE(file_exists(kWorkFile)) << "it became the file";
        }
    });
}

TEST(LineFile, DeletingMovesTheWorkFileAndSavesToFlash) {
    run_with_private_tmp([] {
        const std::string path = temp_file(kOneLine.before);
        EXPECT_EQ(del_line("tun1", path.c_str()), 0);
        EXPECT_EQ(g_commands,
                  (Texts{std::string("mv -f ") + kWorkFile + " " + path + " >/dev/null", kFlash}));
        g_commands.clear();
        EXPECT_EQ(del_line("nothing that is there", path.c_str()), 0);
        EXPECT_EQ(g_commands.size(), 2u) << "also when no line was named";
    });
}

TEST(LineFile, DeletingIgnoresTheResultsOfItsCommands) {
    run_with_private_tmp([] {
        const std::string path = temp_file(kOneLine.before);
        g_run_mv = false;
        g_command_result = -1;
        EXPECT_EQ(del_line("tun1", path.c_str()), 0);
        EXPECT_EQ(g_commands.size(), 2u) << "the flash is saved after a failed move, too";
        EXPECT_EQ(file_text(path), kOneLine.before);
        EXPECT_EQ(file_text(kWorkFile), kOneLine.after);
    });
}

TEST(LineFile, DeletingEmptiesAnOldWorkFile) {
    run_with_private_tmp([] {
        const std::string path = temp_file(kOneLine.before);
        write_file(kWorkFile, repeat(100000, 'o'));
        EXPECT_EQ(del_line("tun1", path.c_str()), 0);
        EXPECT_EQ(file_text(path), kOneLine.after);
    });
}

TEST(LineFile, DeletingInAFileThatIsNotThere) {
    run_with_private_tmp([] {
        const std::string path = absent_file();
        EXPECT_EQ(del_line("tun1", path.c_str()), -1);
        EXPECT_EQ(del_line("tun1", (path + "/in/no/folder").c_str()), -1);
        EXPECT_EQ(g_commands, Texts{});
        EXPECT_FALSE(file_exists(path));
        EXPECT_EQ(file_text(kWorkFile), "") << "it was made before that was seen";
    });
}

TEST(LineFile, DeletingInAFolder) {
    run_with_private_tmp([] {
        const std::string path = absent_file();
        std::filesystem::create_directory(path);
        EXPECT_EQ(del_line("tun1", path.c_str()), -1) << "it can be opened, but not read";
        EXPECT_EQ(g_commands, Texts{});
        EXPECT_TRUE(std::filesystem::is_empty(path));
        EXPECT_FALSE(file_exists(kWorkFile));
    });
}

TEST(LineFile, DeletingInWhatCannotBeRead) {
    run_with_private_tmp([] {
        const std::string folder = absent_file();
        std::filesystem::create_directory(folder);
        EXPECT_EQ(del_line("tun1", folder.c_str()), -1) << "a folder opens, but has no lines";
        EXPECT_TRUE(std::filesystem::is_empty(folder));
        EXPECT_EQ(g_commands, Texts{});
        EXPECT_FALSE(file_exists(kWorkFile));
    });
}

TEST(LineFile, DeletingWithoutAWorkFileChangesNothing) {
    run_in_namespace(CLONE_NEWNS, [] {
        mount_private_tmp();
        const std::string path = temp_file(kOneLine.before);
        std::filesystem::create_directory(kWorkFile);
        EXPECT_EQ(del_line("tun1", path.c_str()), -1);
        EXPECT_EQ(file_text(path), kOneLine.before);
        EXPECT_EQ(g_commands, Texts{});
    });
}

TEST(LineFile, DeletingFollowsNoLinkAtTheWorkFile) {
    run_in_namespace(CLONE_NEWNS, [] {
        mount_private_tmp();
        const std::string path = temp_file(kOneLine.before);
        const std::string victim = temp_file("precious");
        ASSERT_EQ(symlink(victim.c_str(), kWorkFile), 0);
        EXPECT_EQ(del_line("tun1", path.c_str()), -1);
        EXPECT_EQ(file_text(path), kOneLine.before);
        EXPECT_EQ(file_text(victim), "precious");
        EXPECT_EQ(g_commands, Texts{});
    });
}

TEST(LineFile, DeletingNeedsAPathThatFitsIntoItsCommand) {
    struct Case {
        const char* why;
        std::size_t length;
        int result;
    };
    constexpr Case kCases[] = {
        {"one below the room", 82, 0},       {"the room", 83, 0},     {"one too many", 84, -1},
        {"about what others allow", 90, -1}, {"far beyond", 250, -1},
    };
    run_with_private_tmp([&kCases] {
        for (const Case& c : kCases) {
            SCOPED_TRACE(c.why);
            const std::string path = path_of_length(c.length);
            write_file(path, kOneLine.before);
            g_commands.clear();
            EXPECT_EQ(del_line("tun1", path.c_str()), c.result);
            EXPECT_EQ(file_text(path), c.result == 0 ? kOneLine.after : kOneLine.before);
            EXPECT_EQ(g_commands.size(), c.result == 0 ? 2u : 0u);
            EXPECT_FALSE(file_exists(kWorkFile));
            unlink(path.c_str());
        }
    });
}

TEST(LineFile, DeletingTakesAPathOfAnyCharacters) {
    run_with_private_tmp([] {
        const std::string path = "/tmp/a b'$(touch x);c";
        write_file(path, kOneLine.before);
        EXPECT_EQ(del_line("tun1", path.c_str()), 0);
        EXPECT_EQ(file_text(path), kOneLine.after);
        EXPECT_FALSE(file_exists("x"));
        unlink(path.c_str());
    });
}

TEST(LineFile, DeletingWhoseMoveFailsHalfWayKeepsTheFile) {
    run_with_private_tmp([] {
        const std::string path = temp_file(kOneLine.before);
        g_run_mv = false;
        g_command_result = 256;
        g_cut_file = path;
        EXPECT_EQ(del_line("tun1", path.c_str()), 0) << "as ever, the result is ignored";
        EXPECT_EQ(file_text(path), kOneLine.before);
        EXPECT_FALSE(file_exists(path + kOldEnding));
    });
}

TEST(LineFile, DeletingStandsWhereTheMoveOnlyComplains) {
    run_with_private_tmp([] {
        const std::string path = temp_file(kOneLine.before);
        g_mv_complaint = 256;
        EXPECT_EQ(del_line("tun1", path.c_str()), 0);
        EXPECT_EQ(file_text(path), kOneLine.after);
        EXPECT_FALSE(file_exists(path + kOldEnding));
    });
}

TEST(LineFile, DeletingOnAFullDiskDoesWithoutASecondName) {
    run_in_namespace(CLONE_NEWNS, [] {
        mount_private_tmp();
        const std::string disk = absent_file();
        std::filesystem::create_directory(disk);
        mount_tmpfs(disk, 1 << 20);
        write_file(disk + "/file", kOneLine.before);
        fill_disk(disk, 0);
        EXPECT_EQ(del_line("tun1", (disk + "/file").c_str()), 0);
        EXPECT_EQ(file_text(disk + "/file"), kOneLine.after);
    });
}

TEST(LineFile, DeletingOnAReadOnlyDiskLeavesTheFile) {
    run_in_namespace(CLONE_NEWNS, [] {
        mount_private_tmp();
        const std::string disk = absent_file();
        std::filesystem::create_directory(disk);
        mount_tmpfs(disk);
        write_file(disk + "/file", kOneLine.before);
        ASSERT_EQ(mount("none", disk.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
        const int errors = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(errors, STDERR_FILENO);  // mv complains
        EXPECT_EQ(del_line("tun1", (disk + "/file").c_str()), 0)
            << "the result of the move is ignored";
        EXPECT_EQ(file_text(disk + "/file"), kOneLine.before);
        EXPECT_EQ(g_commands.size(), 2u);
    });
}

TEST(LineFile, DeletingWithAFullTmpLosesNoLine) {
    run_in_namespace(CLONE_NEWNS, [] {
        mount_private_tmp();
        const std::string disk = absent_file();
        std::filesystem::create_directory(disk);
        mount_tmpfs(disk);
        const std::string path = disk + "/file";
        const std::string before =
            "tun1 a\n" + repeated_lines(4000, "tun2 " + repeat(50, 'x') + "\n");
        write_file(path, before);
        ASSERT_EQ(mount("none", "/tmp", nullptr, MS_REMOUNT, "size=65536"), 0) << strerror(errno);
        EXPECT_EQ(del_line("tun1", path.c_str()), -1);
        EXPECT_EQ(file_text(path), before);
        EXPECT_EQ(g_commands, Texts{});
        EXPECT_FALSE(file_exists(kWorkFile)) << "no part of it stays";
    });
}

// ---- After a move that was cut off

namespace {

// A file of which a move left a part, beside the old one, as the power went.
std::string cut_file() {
    std::string path = absent_file();
    write_file(path, "tun1 a\ntu");
    write_file(path + kOldEnding, kOneLine.before);
    return path;
}

void expect_whole(const std::string& path) {
    EXPECT_EQ(file_text(path), kOneLine.before);
    EXPECT_FALSE(file_exists(path + kOldEnding));
}

}  // namespace

TEST(LineFile, ACutOffMoveIsUndoneByWhoComesNext) {
    std::string path = cut_file();
    EXPECT_EQ(find_name_which_line("tun1", path.c_str()), 1);
    expect_whole(path);
    path = cut_file();
    EXPECT_EQ(line_file_has("tun1", path.c_str(), 1024), 1);
    expect_whole(path);
    path = cut_file();
    unlink(path.c_str());
    EXPECT_TRUE(line_file_is_there(path.c_str()));
    expect_whole(path);
    path = cut_file();
    EXPECT_EQ(add_line("tun9 z", path.c_str()), 0);
    EXPECT_EQ(file_text(path), std::string(kOneLine.before) + "tun9 z\n");
    run_with_private_tmp([] {
        const std::string cut = cut_file();
        EXPECT_EQ(del_line("tun1", cut.c_str()), 0);
        EXPECT_EQ(file_text(cut), kOneLine.after);
        EXPECT_FALSE(file_exists(cut + kOldEnding));
    });
}

TEST(LineFile, AMoveCutOffBeforeItBeganLeavesNoSecondName) {
    const std::string path = temp_file(kOneLine.before);
    ASSERT_EQ(link(path.c_str(), (path + kOldEnding).c_str()), 0);
    EXPECT_TRUE(line_file_is_there(path.c_str()));
    expect_whole(path);
}

TEST(LineFile, OpensWhenTheMoveOfAnotherProcessIsDone) {
    const std::string path = absent_file();
    const int lock = folder_lock(path.c_str());
    const pid_t child = fork();
    if (child == 0) {
        close(lock);  // its own copy, or it would wait for itself
        std::FILE* opened = line_file_open(path.c_str());
        char text[8] = {};
        _exit(opened && line_file_is_there(path.c_str()) && fgets(text, 8, opened) ? 0 : 1);
    }
    usleep(100000);
    write_file(path, "whole\n");
    folder_unlock(lock);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(line_file_open(absent_file().c_str()), nullptr);
    EXPECT_FALSE(line_file_is_there(absent_file().c_str()));
}

TEST(LineFile, ABackupBesideTheFileIsNobodysBusiness) {
    const std::string path = temp_file("tun1 a\n");
    for (const char* ending : {".old", ".bak", "~", ".orig"}) {
        SCOPED_TRACE(ending);
        write_file(path + ending, "tun2 b\n");
        EXPECT_EQ(find_name_which_line("tun1", path.c_str()), 1);
        EXPECT_EQ(file_text(path + ending), "tun2 b\n");
        EXPECT_EQ(file_text(path), "tun1 a\n");
    }
}

// ---- Two at once

namespace {

constexpr int kKept = 3;    // of each three lines one is never deleted
constexpr int kLeast = 30;  // lines that each adds at least, however slow the machine

std::string record(char who, int number) {
    char text[64];
    snprintf(text, sizeof text, "%c%06d data of some length", who, number);
    return text;
}

// Adds lines and deletes two of three of them again, for a while. Returns how many it added.
int add_and_delete(const std::string& path, char who, double seconds) {
    const double end = seconds_now() + seconds;
    int number = 0;
    for (; number < kLeast || seconds_now() < end; ++number) {
        if (add_line(record(who, number).c_str(), path.c_str()) != 0) exit(2);
        if (number % kKept == 0) continue;
        const std::string name = record(who, number).substr(0, 7);
        if (del_line(name.c_str(), path.c_str()) != 0) exit(3);
    }
    return number;
}

}  // namespace

TEST(LineFile, TwoAtOnceLoseNoLineOfEachOther) {
    // On a disk of its own, as on the gateway: the work file is then copied, not renamed.
    run_in_namespace(CLONE_NEWNS, [] {
        mount_private_tmp();
        const std::string disk = absent_file();
        std::filesystem::create_directory(disk);
        mount_tmpfs(disk);
        const std::string path = disk + "/file";
        write_file(path, "tun1 of before\n");
        const std::string counts[2] = {disk + "/count-a", disk + "/count-b"};
        pid_t children[2];
        fflush(nullptr);
        for (int i = 0; i < 2; ++i) {
            children[i] = fork();
            ASSERT_GE(children[i], 0);
            if (children[i] != 0) continue;
            write_file(counts[i],
                       std::to_string(add_and_delete(path, static_cast<char>('a' + i), 2)));
            _exit(0);
        }
        for (const pid_t child : children) {
            int status = 0;
            ASSERT_EQ(waitpid(child, &status, 0), child);
            EXPECT_EQ(status, 0) << "an edit failed";
        }
        std::multiset<std::string> expected = {"tun1 of before"};
        for (int i = 0; i < 2; ++i) {
            const int added = atoi(file_text(counts[i]).c_str());
            EXPECT_GE(added, kLeast);
            for (int number = 0; number < added; number += kKept)
                expected.insert(record(static_cast<char>('a' + i), number));
        }
        std::multiset<std::string> found;
        const std::string text = file_text(path);
        for (std::size_t at = 0; at < text.size();) {
            std::size_t line_end = text.find('\n', at);
            if (line_end == std::string::npos) line_end = text.size();
            found.insert(text.substr(at, line_end - at));
            at = line_end + 1;
        }
        EXPECT_EQ(found, expected);
    });
}

// ---- Whole files

TEST(LineFile, GetsAWholeFile) {
    struct Case {
        const char* why;
        std::string held;  // what the buffer holds before
        std::string file;
        std::size_t room;
        std::string result;
    };
    const std::string kLong = repeat(2045, 'a') + "\n" + repeat(2046, 'b') + "\n" +
                              repeat(2047, 'c') + "\n" + repeat(10000, 'd') + "\ne";
    const Case kCases[] = {
        {"an empty file", "", "", 64, ""},
        {"lines with their newlines", "", "a\nb\n", 64, "a\nb\n"},
        {"a last line without newline", "", "a\nb", 64, "a\nb"},
        {"empty lines", "", "\n\na\n", 64, "\n\na\n"},
        {"a carriage return", "", "a\r\nb\r\n", 64, "a\r\nb\r\n"},
        {"behind what is held", "held:", "a\n", 64, "held:a\n"},
        {"an empty file behind what is held", "held:", "", 64, "held:"},
        {"lines around the piece that is read at once", "", kLong, 30000, kLong},
        {"what follows a NUL in a piece of 2046 is left out", "",
         std::string("ab\0", 3) + repeat(2043, 'c') + "dd\n", 64, "abdd\n"},
        {"one below the room", "", "1234\n1", 8, "1234\n1"},
        {"fills the room", "", "1234\n12", 8, "1234\n12"},
        {"one too many is left out", "", "1234\n123", 8, "1234\n12"},
        {"far beyond is left out", "", kLong, 8, "aaaaaaa"},
        {"a line beyond a full buffer", "", "123456\nabc\n", 8, "123456\n"},
        {"fills the room behind what is held", "he", "1234\n", 8, "he1234\n"},
        {"no room behind what is held", "1234567", "a", 8, "1234567"},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.why);
        std::vector<char> buffer(c.room + 2, '#');
        memcpy(buffer.data() + 1, c.held.c_str(), c.held.size() + 1);
        const int appended =
            file_content_get(temp_file(c.file).c_str(), std::span(buffer).subspan(1, c.room));
        EXPECT_EQ(std::string(buffer.data() + 1), c.result);
        EXPECT_EQ(appended, static_cast<int>(c.result.size() - c.held.size()));
        EXPECT_EQ(buffer.front(), '#');
        EXPECT_EQ(buffer.back(), '#');
    }
}

TEST(LineFile, GettingAFileThatIsNotThere) {
    char buffer[16] = "held";
    EXPECT_EQ(file_content_get(absent_file().c_str(), buffer), -1);
    EXPECT_STREQ(buffer, "held");
}

TEST(LineFile, ClosesItsFiles) {
    run_with_private_tmp([] {
        const std::string path = temp_file("a b\n");
        char buffer[16] = "";
        g_run_mv = false;
        for (int i = 0; i < 300; ++i) {
            ASSERT_EQ(find_name_which_line("a", path.c_str()), 1);
            ASSERT_EQ(find_name_which_line("c", path.c_str()), 0);
            ASSERT_EQ(line_file_has("a", path.c_str(), 16), 1);
            ASSERT_GE(file_content_get(path.c_str(), buffer), 0);
            ASSERT_EQ(add_line("a b", path.c_str()), 0);
            ASSERT_EQ(del_line("c", path.c_str()), 0);
        }
        const int next = open("/", O_RDONLY | O_CLOEXEC);
        EXPECT_LT(next, 20) << "descriptors are left open";
        close(next);
    });
}
