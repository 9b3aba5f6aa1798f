// A web server for measurements: answers every request on port 80 of the loopback device with one
// file, quickly. It goes into the background as soon as it can be reached.
//
// usage: http_answer FILE
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "ahead.h"

static int listen_on(uint16_t port) {
    const int one = 1;
    struct sockaddr_in address = {.sin_family = AF_INET, .sin_port = htons(port)};
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int server = socket(AF_INET, SOCK_STREAM, 0);
    setsockopt(server, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    if (bind(server, (struct sockaddr*)&address, sizeof address) != 0) return -1;
    return listen(server, 16) == 0 ? server : -1;
}

static void request_read(int client) {
    char request[4096];
    size_t length = 0;
    ssize_t count;
    do {
        count = read(client, request + length, sizeof request - 1 - length);
        if (count <= 0) return;
        length += (size_t)count;
        request[length] = '\0';
    } while (!strstr(request, "\r\n\r\n") && length < sizeof request - 1);
}

int main(int argc, char** argv) {
    char body[4096] = "", answer[8192];
    FILE* file = argc == 2 ? fopen(argv[1], "r") : NULL;
    if (!file) return 2;
    const size_t size = fread(body, 1, sizeof body - 1, file);
    fclose(file);
    const int length = snprintf(answer, sizeof answer,
                                "HTTP/1.1 200 OK\r\nContent-Length: %zu\r\n"
                                "Connection: close\r\n\r\n%s",
                                size, body);
    signal(SIGPIPE, SIG_IGN);
    run_ahead();
    const int server = listen_on(80);
    const pid_t child = server < 0 ? -1 : fork();
    if (child != 0) return child < 0;
    for (int client; (client = accept(server, NULL, NULL)) >= 0; close(client)) {
        request_read(client);
        if (write(client, answer, (size_t)length) != length) continue;
    }
    return 1;
}
