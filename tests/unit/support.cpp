// What the unit tests share: scratch files, child processes with namespaces of their own, and
// seeing what is printed.
#include "support.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>

namespace {

constexpr int kChildSkipped = 77;

pid_t g_owner = 0;  // the process that made the scratch directory, and removes it
std::string g_scratch_dir;

void scratch_remove() {
    if (getpid() != g_owner) return;
    std::error_code ignored;
    std::filesystem::remove_all(g_scratch_dir, ignored);
}

// The result of the calling test, from a child that ran its body.
void adopt_child_result(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == kChildSkipped) {
        GTEST_SKIP() << "skipped in the child process, see above";
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
        << "the child process failed, see above; its wait status is " << status;
}

int child_exit_code() {
    const testing::TestResult& result =
        *testing::UnitTest::GetInstance()->current_test_info()->result();
    if (result.Failed()) return 1;
    return result.Skipped() ? kChildSkipped : 0;
}

void write_or_throw_away(const char* path, const std::string& content) {
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    if (file < 0) return;
    (void)!write(file, content.data(), content.size());
    close(file);
}

// Root in new namespaces: with a user namespace around them, or as the root that we are.
bool enter_namespaces(int namespaces) {
    const uid_t uid = geteuid();
    const gid_t gid = getegid();
    if (unshare(CLONE_NEWUSER | namespaces) == 0) {
        write_or_throw_away("/proc/self/setgroups", "deny");
        write_or_throw_away("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
        write_or_throw_away("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
    } else if (unshare(namespaces) != 0) {
        return false;
    }
    if ((namespaces & CLONE_NEWNS) == 0) return true;
    return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

void set_file_limit(rlim_t soft) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = soft < limit.rlim_max ? soft : limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

const std::string& scratch_dir() {
    if (g_owner == 0) {
        const char* base = getenv("TMPDIR");
        g_scratch_dir = std::string(base ? base : "/tmp") + "/cpectl-unit-XXXXXX";
        if (!mkdtemp(g_scratch_dir.data())) {
            perror(g_scratch_dir.c_str());
            abort();
        }
        g_owner = getpid();
        atexit(scratch_remove);
    }
    return g_scratch_dir;
}

std::string absent_file() {
    static unsigned count = 0;
    return scratch_dir() + "/" + std::to_string(getpid()) + "-" + std::to_string(count++);
}

std::string temp_file(std::string_view content) {
    const std::string path = absent_file();
    write_file(path, content);
    return path;
}

std::string file_text(const std::string& path) {
    FILE* file = fopen(path.c_str(), "rb");
    if (!file) return "(" + path + " cannot be read: " + strerror(errno) + ")";
    std::string text;
    char piece[4096];
    for (std::size_t got; (got = fread(piece, 1, sizeof piece, file)) > 0;)
        text.append(piece, got);
    fclose(file);
    return text;
}

void write_file(const std::string& path, std::string_view content) {
    FILE* file = fopen(path.c_str(), "wb");
    ASSERT_NE(file, nullptr) << path << ": " << strerror(errno);
    EXPECT_EQ(fwrite(content.data(), 1, content.size(), file), content.size()) << path;
    EXPECT_EQ(fclose(file), 0) << path;
}

bool file_exists(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
}

std::string log_messages(const std::string& path) {
    std::string messages;
    const std::string text = file_text(path);
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text.find('\n', at);
        const std::string line = text.substr(at, end - at);
        messages +=
            (line.size() > 26 && line.compare(24, 2, "::") == 0 ? line.substr(26) : line) + "\n";
        at = end + 1;
    }
    return messages;
}

std::string repeat(std::size_t count, char character) {
    return std::string(count, character);
}

std::string data_dir() {
    const char* chosen = getenv("CPECTL_DATA");
    const std::string path = chosen ? chosen : CPECTL_PROJECT_DIR "/../shared/data";
    if (file_exists(path)) return path;
    // In a function of its own: the macro returns nothing.
    [&path] { GTEST_SKIP() << "no shared test data at " << path; }();
    return "";
}

std::string printed_by(const std::function<void()>& body) {
    const std::string path = temp_file("");
    fflush(stdout);
    const int kept = dup(STDOUT_FILENO);
    const int file = open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    dup2(file, STDOUT_FILENO);
    body();
    fflush(stdout);
    dup2(kept, STDOUT_FILENO);
    close(kept);
    close(file);
    return file_text(path);
}

void run_apart(const std::function<void()>& body) {
    scratch_dir();
    fflush(nullptr);
    const pid_t child = fork();
    ASSERT_GE(child, 0) << strerror(errno);
    if (child == 0) {
        body();
        fflush(nullptr);
        // Not _exit(): what measures coverage writes its counts at exit.
        exit(child_exit_code());
    }
    adopt_child_result(child);
}

void run_in_namespace(int namespaces, const std::function<void()>& body) {
    run_apart([namespaces, &body] {
        if (!enter_namespaces(namespaces)) {
            GTEST_SKIP() << "this machine allows no namespaces: " << strerror(errno);
        }
        body();
    });
}

void mount_tmpfs(const std::string& path, std::size_t size) {
    const std::string options = size ? "mode=0755,size=" + std::to_string(size) : "mode=0755";
    ASSERT_EQ(mount("none", path.c_str(), "tmpfs", 0, options.c_str()), 0)
        << path << ": " << strerror(errno);
}

void mount_private_tmp() {
    const std::string kept = CPECTL_PROJECT_DIR;
    const std::string scratch = scratch_dir();
    const int folder = open(kept.c_str(), O_PATH | O_CLOEXEC);
    mount_tmpfs("/tmp");
    std::filesystem::create_directories(scratch);
    if (folder < 0 || file_exists(kept)) return;
    std::filesystem::create_directories(kept);
    const std::string from = "/proc/self/fd/" + std::to_string(folder);
    ASSERT_EQ(mount(from.c_str(), kept.c_str(), nullptr, MS_BIND, nullptr), 0) << strerror(errno);
}

void run_with_private_tmp(const std::function<void()>& body) {
    run_apart([&body] {
        if (enter_namespaces(CLONE_NEWNS)) mount_private_tmp();
        body();
    });
}

bool run(std::initializer_list<std::string> command) {
    std::vector<char*> words;
    for (const std::string& word : command)
        words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        execvp(words[0], words.data());
        _exit(127);
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

namespace {

// What has to stand before a program of this build: its emulator, when it is for another machine.
std::vector<std::string> emulator_words() {
    std::vector<std::string> words;
    const std::string_view emulator = CPECTL_EMULATOR;  // words separated by "|"
    for (std::size_t at = 0; at < emulator.size();) {
        const std::size_t end = std::min(emulator.find('|', at), emulator.size());
        words.emplace_back(emulator.substr(at, end - at));
        at = end + 1;
    }
    return words;
}

}  // namespace

void exec_program(const std::string& program, const std::vector<std::string>& arguments) {
    std::vector<std::string> words = emulator_words();
    const std::string file = words.empty() ? program : words[0];
    if (words.empty())
        words = {"cpectl"};
    else
        words.insert(words.end(), {"-0", "cpectl", program});
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    execvp(file.c_str(), pointers.data());
    _exit(126);
}

std::string shell_words(const std::string& program) {
    std::string text;
    for (const std::string& word : emulator_words())
        text += "'" + word + "' ";
    return text + "'" + program + "'";
}

bool wait_until(const std::function<bool()>& condition) {
    const double end = seconds_now() + 30;
    while (!condition()) {
        if (seconds_now() > end) return false;
        usleep(5000);
    }
    return true;
}

double seconds_now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void forbid_new_files() {
    set_file_limit(0);
}

void allow_new_files() {
    set_file_limit(1024);
}

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    // The local time of the records is checked: a zone that is not the machine's own, half an hour
    // off, shows which clock was taken.
    setenv("TZ", "TST-5:30", 1);
    tzset();
    return RUN_ALL_TESTS();
}
