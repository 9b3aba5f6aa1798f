// What the unit tests share: scratch files, child processes with namespaces of their own, and
// seeing what is printed.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

// A directory of this test program, removed at its end.
const std::string& scratch_dir();

// A new file in the scratch directory with this content; its path.
std::string temp_file(std::string_view content);

// A path in the scratch directory at which there is nothing.
std::string absent_file();

// The content of a file; a text that says so when it cannot be read.
std::string file_text(const std::string& path);
void write_file(const std::string& path, std::string_view content);
bool file_exists(const std::string& path);

// The content of a log without the times; records that end in a newline of their own are followed
// by an empty line.
std::string log_messages(const std::string& path);

// `count` times the character.
std::string repeat(std::size_t count, char character);

// The shared test data; an empty path with a skip of the calling test when it is not there.
std::string data_dir();

// What `body` writes to standard output.
std::string printed_by(const std::function<void()>& body);

// Runs `body` in a child process, so that what it does to the process is gone afterwards; the
// calling test fails or is skipped as the child was.
void run_apart(const std::function<void()>& body);

// The same in new namespaces (CLONE_NEWNS, CLONE_NEWNET ... for unshare(2)) in which the child is
// root. Skips where the machine allows none. A new mount namespace is cut off from the old one.
void run_in_namespace(int namespaces, const std::function<void()>& body);

// Mounts an empty tmpfs; `size` is its limit in bytes, 0 for none.
void mount_tmpfs(const std::string& path, std::size_t size = 0);

// Mounts an empty /tmp, with an empty scratch directory in it; the project, with all that is built,
// stays where it is. Only in a mount namespace.
void mount_private_tmp();

// Runs `body` in a child process that has a /tmp of its own where the machine allows it.
void run_with_private_tmp(const std::function<void()>& body);

// Runs a program and waits; true when it ended with 0.
bool run(std::initializer_list<std::string> command);

// Becomes a program of this build, as "cpectl" with these arguments; through the emulator where the
// build is for another machine. Only in a child process: it ends with 126 when that fails.
[[noreturn]] void exec_program(const std::string& program,
                               const std::vector<std::string>& arguments);

// What starts a program of this build in a shell.
std::string shell_words(const std::string& program);

// Waits until the condition holds, but for half a minute at most; whether it held.
bool wait_until(const std::function<bool()>& condition);

// Seconds on a clock that nothing sets back.
double seconds_now();

// Keeps the process from opening anything more, and lets it again.
void forbid_new_files();
void allow_new_files();
