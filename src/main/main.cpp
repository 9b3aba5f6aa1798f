// cpectl: does one management command of the gateway and prints its answer as one JSON line.
#include <cjson/cJSON.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "log/log.h"
#include "main/command.h"
#include "tools/reply.h"
#include "tools/text.h"

namespace {

constexpr std::size_t kArgumentTextSize = 1024;  // bytes, the terminator included

constexpr int kAnswered = 0;
constexpr int kNoAnswer = -1;  // seen as 255

// Gives a closed standard stream a descriptor that can be read but not written, so that no file
// that is opened later takes its number and is mistaken for it.
void standard_streams_hold() {
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; stream++) {
        if (fcntl(stream, F_GETFD) == -1 && errno == EBADF) {
            if (open("/dev/null", O_RDONLY) != stream) return;
        }
    }
}

bool is_help(std::string_view request) {
    return request == "-h" || request == "--help" || request == "?";
}

// The parsed argument text; null, which every handler takes, when it is no JSON.
const cJSON* arguments_parse(const char* text) {
    const cJSON* args = cJSON_Parse(text);
    if (args)
        cpectl_log(kLogInfo, "args is :%s,function:%s call", text, "main");
    else
        // Kept: the wording, "argv[3]" and "faild" included.
        cpectl_log(kLogError, "argv[3] is not json,cJSON_Parse faild function:%s call", "main");
    return args;
}

// Writes a text and a newline, which takes the place of its NUL, to standard output: all of it, or
// false. Not through a stream, whose first use costs more than a whole answer.
bool line_write(char* text) {
    std::size_t left = std::strlen(text);
    text[left++] = '\n';
    while (left > 0) {
        const ssize_t written = write(STDOUT_FILENO, text, left);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        text += written;
        left -= static_cast<std::size_t>(written);
    }
    return true;
}

// Prints the answer as one line. False when there is none, or it could not be written whole.
bool answer_print(const cJSON* answer) {
    char* line = nullptr;
    if (reply_is_whole()) {
        if (!answer) return false;  // meant so, or logged by its handler
        line = cJSON_PrintUnformatted(answer);
    }
    if (!line) {
        reply_lost("main", Lost::plain);
        return false;
    }
    return line_write(line);
}

// Runs the command that the request names and prints its answer. Returns the exit status.
int command_run(const char* request, const cJSON* args) {
    const CommandEntry* row = command_find(request);
    if (!row) return kNoAnswer;
    const cJSON* answer = row->handler(row->argc, args);

    // A reader that has gone away is a failed write, told by the exit status. Only now: the scripts
    // above get the usual treatment of signals.
    std::signal(SIGPIPE, SIG_IGN);
    return answer_print(answer) ? kAnswered : kNoAnswer;
}

}  // namespace

// Nothing that is allocated on the way is freed: the process ends right after its answer.
int main(int argc, char** argv) {
    standard_streams_hold();
    if (argc == 2) {
        if (!is_help(argv[1])) return command_run(argv[1], nullptr);
        std::signal(SIGPIPE, SIG_IGN);
        command_list();
        return kNoAnswer;  // Kept: scripts may rely on it
    }
    if (argc != 3) return kNoAnswer;

    char text[kArgumentTextSize] = {};
    if (!text_copy(text, argv[2])) {
        dprintf(STDERR_FILENO, "cpectl: argument text is longer than %zu bytes\n", sizeof text - 1);
        return kNoAnswer;
    }
    return command_run(argv[1], arguments_parse(text));
}
