// Files under fixed names: creating them in folders open to everybody, and taking turns with them.
#pragma once

#include <cstdio>

// Opens `path` for writing, created or emptied. What others may have laid there is refused: a
// symbolic link, a pipe or device, a file of another user, a second name of some file. Only its
// user may write to a new one. Null on failure.
std::FILE* file_create(const char* path);

// Whether `path` is a symbolic link: one that was laid where a command of the shell is about to
// write. False when there is nothing at `path`.
bool is_symbolic_link(const char* path);

// Locks the folder of `path` against other processes of this program, and waits as long as another
// one holds it. The lock is on the folder since files in it are replaced, and since nothing is to
// be left behind. Returns what to unlock; -1 when the folder cannot be opened: there is no lock
// then.
int folder_lock(const char* path);
void folder_unlock(int lock);
