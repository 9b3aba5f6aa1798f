// A small HTTP server on the loopback device, for the tests of transfers.
#include "http_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "support.h"

namespace {

struct Answer {
    const char* path;
    const char* text;  // the whole answer as it is sent
};
constexpr Answer kAnswers[] = {
    {"/200", "HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nhello\n"},
    {"/404", "HTTP/1.1 404 Not Found\r\nContent-Length: 10\r\n\r\nnot found\n"},
    {"/500", "HTTP/1.1 500 Internal Server Error\r\nContent-Length: 7\r\n\r\nfailed\n"},
    {"/redirect", "HTTP/1.1 302 Found\r\nLocation: /200\r\nContent-Length: 6\r\n\r\nmoved\n"},
    {"/empty", "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"},
    {"/chunked",
     "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nfirst\r\n8\r\n, "
     "second\r\n0\r\n\r\n"},
    {"/cut-chunk", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nfirst\r\n8\r\n, se"},
    {"/truncated", "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly this"},
    {"/until-close", "HTTP/1.0 200 OK\r\n\r\nup to the end"},
    {"/close", ""},
    {"/nonsense", "nonsense\r\n\r\n"},
};

void send_all(int peer, const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        const ssize_t sent = send(peer, text.data() + at, text.size() - at, MSG_NOSIGNAL);
        if (sent <= 0) return;
        at += static_cast<std::size_t>(sent);
    }
}

std::size_t content_length(const std::string& head) {
    const std::size_t at = head.find("Content-Length: ");
    return at == std::string::npos ? 0 : strtoul(head.c_str() + at + 16, nullptr, 10);
}

// One request with its body; an upload is told to go on first.
std::string receive_request(int peer) {
    std::string request;
    std::size_t expected = std::string::npos;
    char piece[65536];
    while (request.size() < expected) {
        const ssize_t got = recv(peer, piece, sizeof piece, 0);
        if (got <= 0) break;
        request.append(piece, static_cast<std::size_t>(got));
        const std::size_t end = request.find("\r\n\r\n");
        if (expected != std::string::npos || end == std::string::npos) continue;
        const std::string head = request.substr(0, end);
        expected = end + 4 + content_length(head);
        if (head.find("Expect: 100-continue") != std::string::npos) {
            send_all(peer, "HTTP/1.1 100 Continue\r\n\r\n");
        }
    }
    return request;
}

std::string answer_for(const std::string& request) {
    const std::size_t start = request.find(' ') + 1;
    const std::string path = request.substr(start, request.find(' ', start) - start);
    if (path == "/large") {
        return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(kLargeBody) + "\r\n\r\n" +
               large_body();
    }
    if (path == "/slow") sleep(1);
    if (path == "/hang") sleep(600);
    for (const Answer& answer : kAnswers) {
        if (path == answer.path) return answer.text;
    }
    return kAnswers[0].text;
}

[[noreturn]] void serve(int listener, const std::string& requests) {
    for (;;) {
        const int peer = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (peer < 0) _exit(1);
        const std::string request = receive_request(peer);
        const int file = open(requests.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        if (write(file, request.data(), request.size()) < 0) _exit(1);
        close(file);
        if (!request.empty()) send_all(peer, answer_for(request));
        shutdown(peer, SHUT_WR);
        close(peer);
    }
}

// A socket that is bound to a free port of the loopback device.
int bound_socket(std::uint16_t& port) {
    const int bound = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(bind(bound, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(getsockname(bound, reinterpret_cast<sockaddr*>(&address), &size), 0);
    port = ntohs(address.sin_port);
    return bound;
}

}  // namespace

HttpServer http_server_start() {
    HttpServer server;
    server.requests = temp_file("");
    const int listener = bound_socket(server.port);
    EXPECT_EQ(listen(listener, 16), 0);
    fflush(nullptr);
    server.process = fork();
    if (server.process == 0) serve(listener, server.requests);
    close(listener);
    return server;
}

void http_server_stop(const HttpServer& server) {
    kill(server.process, SIGKILL);
    waitpid(server.process, nullptr, 0);
}

std::string url_of(const HttpServer& server, const std::string& path) {
    return "http://127.0.0.1:" + std::to_string(server.port) + path;
}

std::string requests_of(const HttpServer& server) {
    return file_text(server.requests);
}

std::string large_body() {
    std::string body;
    body.reserve(kLargeBody + 16);
    for (std::uint32_t i = 0; body.size() < kLargeBody; ++i)
        body += std::to_string(i) + "\n";
    body.resize(kLargeBody);
    return body;
}

std::uint16_t unused_port() {
    std::uint16_t port = 0;
    close(bound_socket(port));
    return port;
}
