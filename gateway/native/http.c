// Web servers of the emulated gateway, which answer as prepared and record what they are asked.
#include "http.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include "trace.h"

enum { kMaxAnswers = 32, kMaxHead = 16384 };

struct Answer {
    int port;
    int status;
    long delay_milliseconds;
    char path[512];
    char body[64];
};

static struct Answer answers[kMaxAnswers];
static int answer_count;

static void answers_read(FILE* file) {
    char* line = NULL;
    size_t room = 0;
    while (answer_count < kMaxAnswers && getline(&line, &room, file) >= 0) {
        struct Answer* answer = &answers[answer_count];
        char* rest = line;
        const char* port = word_next(&rest);
        const char* status = word_next(&rest);
        const char* delay = word_next(&rest);
        char* path = word_next(&rest);
        const char* body = word_next(&rest);
        if (!body) continue;
        answer->port = atoi(port);
        answer->status = atoi(status);
        answer->delay_milliseconds = atol(delay);
        hex_decode(path);
        snprintf(answer->path, sizeof answer->path, "%s", path);
        snprintf(answer->body, sizeof answer->body, "%s", body);
        answer_count++;
    }
    free(line);
}

static const struct Answer* answer_find(int port, const char* target) {
    const struct Answer* found = NULL;
    for (int i = 0; i < answer_count; i++) {
        const struct Answer* answer = &answers[i];
        size_t length = strlen(answer->path);
        if (answer->port != port || strncmp(target, answer->path, length) != 0) continue;
        if (!found || length >= strlen(found->path)) found = answer;
    }
    return found;
}

// Reads from the connection until the head of the request is complete. Returns the number of
// bytes in the buffer, or 0 when there is no whole head.
static size_t head_read(int client, char* head) {
    size_t count = 0;
    while (count < kMaxHead - 1) {
        ssize_t more = read(client, head + count, kMaxHead - 1 - count);
        if (more <= 0) return 0;
        count += (size_t)more;
        head[count] = '\0';
        if (strstr(head, "\r\n\r\n")) return count;
    }
    return 0;
}

// The text of a header field, up to its line end, or null. Cuts nothing.
static const char* field_find(const char* head, const char* name) {
    size_t length = strlen(name);
    for (const char* line = strstr(head, "\r\n"); line; line = strstr(line + 2, "\r\n")) {
        if (strncasecmp(line + 2, name, length) == 0 && line[2 + length] == ':') {
            return line + 3 + length + strspn(line + 3 + length, " ");
        }
    }
    return NULL;
}

// Stores the request's body in a new file of the run's directory, whose name it returns in `name`.
static void body_keep(int client, const char* head, size_t count, char name[32]) {
    static int number;
    snprintf(name, 32, "request-%d-%d", (int)getpid(), number++);
    char path[256];
    snprintf(path, sizeof path, RUN_DIR "/%s", name);
    FILE* file = fopen(path, "we");
    if (!file) return;

    const char* length = field_find(head, "Content-Length");
    long left = length ? atol(length) : 0;
    if (field_find(head, "Expect")) {
        static const char kGoOn[] = "HTTP/1.1 100 Continue\r\n\r\n";
        (void)!write(client, kGoOn, sizeof kGoOn - 1);
    }
    const char* body = strstr(head, "\r\n\r\n") + 4;
    size_t here = count - (size_t)(body - head);
    fwrite(body, 1, here, file);
    left -= (long)here;
    char part[4096];
    while (left > 0) {
        ssize_t more = read(client, part, sizeof part);
        if (more <= 0) break;
        fwrite(part, 1, (size_t)more, file);
        left -= more;
    }
    fclose(file);
}

static void request_record(int port, const char* method, const char* target, char* head,
                           const char* body) {
    struct Line line = {0};
    line_text(&line, "{\"request\":");
    line_json(&line, method);
    line_text(&line, ",\"target\":");
    line_json(&line, target);
    line_text(&line, ",\"port\":");
    line_number(&line, port);
    line_text(&line, ",\"head\":");
    line_json(&line, head);
    line_text(&line, ",\"body\":");
    line_json(&line, body);
    line_text(&line, "}");
    trace_write(&line);
}

static void answer_send(int client, const struct Answer* answer) {
    FILE* stream = fdopen(client, "w");
    if (!stream) return;
    FILE* body = answer ? run_file(answer->body) : NULL;
    long size = 0;
    if (body && fseek(body, 0, SEEK_END) == 0) size = ftell(body);
    if (body) rewind(body);
    fprintf(stream, "HTTP/1.1 %d Answer\r\nContent-Length: %ld\r\nConnection: close\r\n\r\n",
            answer ? answer->status : 404, size);
    char part[4096];
    for (size_t count; body && (count = fread(part, 1, sizeof part, body)) > 0;) {
        fwrite(part, 1, count, stream);
    }
    if (body) fclose(body);
    fclose(stream);
}

static void serve(int port, int client) {
    static char head[kMaxHead];
    size_t count = head_read(client, head);
    if (count == 0) {
        close(client);
        return;
    }
    char body[32];
    body_keep(client, head, count, body);
    strstr(head, "\r\n\r\n")[0] = '\0';

    char* rest = head + strcspn(head, "\r");
    if (*rest) *rest++ = '\0';
    char* words = head;
    const char* method = word_next(&words);
    const char* target = word_next(&words);
    if (!method || !target) {
        close(client);
        return;
    }
    request_record(port, method, target, rest, body);
    const struct Answer* answer = answer_find(port, target);
    if (answer && answer->delay_milliseconds) {
        usleep((useconds_t)answer->delay_milliseconds * 1000);
    }
    answer_send(client, answer);
}

static int listen_on(int port) {
    int listener = socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int no = 0;
    struct sockaddr_in6 address = {.sin6_family = AF_INET6, .sin6_port = htons((uint16_t)port)};
    // Version 4 addresses, too.
    if (listener < 0 || setsockopt(listener, IPPROTO_IPV6, IPV6_V6ONLY, &no, sizeof no) != 0 ||
        bind(listener, (const struct sockaddr*)&address, sizeof address) != 0 ||
        listen(listener, 16) != 0) {
        fprintf(stderr, "gateway-init: port %d: %s\n", port, strerror(errno));
        exit(125);
    }
    return listener;
}

static bool port_seen_before(int index) {
    for (int i = 0; i < index; i++) {
        if (answers[i].port == answers[index].port) return true;
    }
    return false;
}

void http_start(void) {
    FILE* file = run_file("http");
    if (!file) return;
    answers_read(file);
    fclose(file);
    for (int i = 0; i < answer_count; i++) {
        if (port_seen_before(i)) continue;
        int port = answers[i].port;
        int listener = listen_on(port);
        pid_t server = fork();
        if (server != 0) {
            close(listener);
            continue;
        }
        signal(SIGPIPE, SIG_IGN);
        for (;;) {
            int client = accept(listener, NULL, NULL);
            if (client >= 0) serve(port, client);
        }
    }
}
