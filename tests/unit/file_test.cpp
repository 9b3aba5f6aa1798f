// Files under fixed names in folders that everybody may write to: creating them, taking turns.
#include "tools/file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <string>

#include "support.h"

namespace {

bool create_and_write(const std::string& path, const char* text) {
    FILE* file = file_create(path.c_str());
    if (!file) return false;
    EXPECT_GE(fputs(text, file), 0);
    EXPECT_EQ(fclose(file), 0);
    return true;
}

}  // namespace

TEST(File, CreatesANewFile) {
    const std::string path = absent_file();
    ASSERT_TRUE(create_and_write(path, "new\n"));
    EXPECT_EQ(file_text(path), "new\n");
}

TEST(File, CreatesNothingThatOthersMayWriteTo) {
    const std::string path = absent_file();
    const mode_t before = umask(0);
    ASSERT_TRUE(create_and_write(path, "new\n"));
    umask(before);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0644U);
}

TEST(File, EmptiesAnOldFile) {
    const std::string path = temp_file("a long text of before\n");
    ASSERT_TRUE(create_and_write(path, "new\n"));
    EXPECT_EQ(file_text(path), "new\n");
}

TEST(File, RefusesASymbolicLink) {
    const std::string victim = temp_file("precious");
    const std::string link = absent_file();
    ASSERT_EQ(symlink(victim.c_str(), link.c_str()), 0);
    EXPECT_EQ(file_create(link.c_str()), nullptr);
    EXPECT_EQ(file_text(victim), "precious");
}

TEST(File, RefusesALinkToNothing) {
    const std::string nothing = absent_file();
    const std::string link = absent_file();
    ASSERT_EQ(symlink(nothing.c_str(), link.c_str()), 0);
    EXPECT_EQ(file_create(link.c_str()), nullptr);
    EXPECT_FALSE(file_exists(nothing));
}

TEST(File, RefusesASecondNameOfAFile) {
    const std::string victim = temp_file("precious");
    const std::string name = absent_file();
    ASSERT_EQ(link(victim.c_str(), name.c_str()), 0);
    EXPECT_EQ(file_create(name.c_str()), nullptr);
    EXPECT_EQ(file_text(victim), "precious");
}

TEST(File, RefusesAFileOfAnotherUser) {
    const std::string path = temp_file("theirs");
    if (chown(path.c_str(), 1, 1) != 0) GTEST_SKIP() << "only root can give a file away";
    EXPECT_EQ(file_create(path.c_str()), nullptr);
    EXPECT_EQ(file_text(path), "theirs");
}

TEST(File, RefusesAPipeAtOnce) {
    const std::string path = absent_file();
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(file_create(path.c_str()), nullptr) << "nobody reads";
    const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    EXPECT_EQ(file_create(path.c_str()), nullptr);
    close(reader);
}

TEST(File, FailsWhereNothingCanBeCreated) {
    EXPECT_EQ(file_create((absent_file() + "/in/no/folder").c_str()), nullptr);
    EXPECT_EQ(file_create(scratch_dir().c_str()), nullptr) << "a folder";
}

TEST(File, TellsSymbolicLinks) {
    const std::string file = temp_file("");
    const std::string link = absent_file();
    const std::string dead_link = absent_file();
    ASSERT_EQ(symlink(file.c_str(), link.c_str()), 0);
    ASSERT_EQ(symlink("nowhere", dead_link.c_str()), 0);
    EXPECT_TRUE(is_symbolic_link(link.c_str()));
    EXPECT_TRUE(is_symbolic_link(dead_link.c_str()));
    EXPECT_FALSE(is_symbolic_link(file.c_str()));
    EXPECT_FALSE(is_symbolic_link(scratch_dir().c_str()));
    EXPECT_FALSE(is_symbolic_link(absent_file().c_str()));
}

namespace {

// Whether the folder could be locked by somebody else right now.
bool is_free(const std::string& folder) {
    const int other = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    EXPECT_GE(other, 0) << folder;
    const bool free = flock(other, LOCK_EX | LOCK_NB) == 0;
    close(other);
    return free;
}

}  // namespace

TEST(FolderLock, HoldsTheFolderOfTheFile) {
    const int lock = folder_lock(absent_file().c_str());
    ASSERT_GE(lock, 0);
    EXPECT_FALSE(is_free(scratch_dir()));
    EXPECT_TRUE(fcntl(lock, F_GETFD) & FD_CLOEXEC) << "what the shell starts does not hold it";
    folder_unlock(lock);
    EXPECT_TRUE(is_free(scratch_dir()));
}

TEST(FolderLock, IsOnThisFolderForAFileWithoutOne) {
    run_apart([] {
        ASSERT_EQ(chdir(scratch_dir().c_str()), 0);
        const int lock = folder_lock("file");
        ASSERT_GE(lock, 0);
        EXPECT_FALSE(is_free(scratch_dir()));
        folder_unlock(lock);
    });
}

TEST(FolderLock, IsNoneWithoutTheFolder) {
    EXPECT_EQ(folder_lock((absent_file() + "/file").c_str()), -1);
    EXPECT_EQ(folder_lock((scratch_dir() + repeat(PATH_MAX, 'x') + "/file").c_str()), -1);
    folder_unlock(-1);
}

TEST(FolderLock, WaitsForItsTurn) {
    const std::string file = absent_file();
    const int lock = folder_lock(file.c_str());
    const pid_t child = fork();
    if (child == 0) {
        close(lock);  // its own copy, or it would wait for itself
        folder_unlock(folder_lock(file.c_str()));
        _exit(0);
    }
    usleep(100000);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, WNOHANG), 0) << "it did not wait";
    folder_unlock(lock);
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}
