// The shell calls of a command by themselves: runs each argument in the shell, one after the other.
// "<" before a text: what it prints is read, as for a captured call. Behind "=": becomes that
// program.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static int captured(const char* text) {
    char part[2048];
    FILE* output = popen(text, "re");
    if (!output) return -1;
    while (fread(part, 1, sizeof part, output) > 0) {
    }
    return pclose(output);
}

int main(int argc, char** argv) {
    for (int i = 1; i < argc; i++) {
        if (strcmp(argv[i], "=") == 0) return execv(argv[i + 1], argv + i + 1);
        const int status = argv[i][0] == '<' ? captured(argv[i] + 1) : system(argv[i]);
        if (status == -1) return 1;
    }
    return 0;
}
