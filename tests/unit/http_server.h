// A small HTTP server on the loopback device, for the tests of transfers. It serves one connection
// at a time, gives the answer that the path asks for, and keeps what it was sent.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

inline constexpr std::size_t kLargeBody = 10u << 20;  // bytes that "/large" answers with

struct HttpServer {
    pid_t process = -1;
    std::uint16_t port = 0;
    std::string requests;  // the file that holds all requests, one behind the other
};

// Starts a server; it listens when this returns.
HttpServer http_server_start();
void http_server_stop(const HttpServer& server);

// The URL of a path, "/200" for example.
std::string url_of(const HttpServer& server, const std::string& path);

// What the server was sent up to now.
std::string requests_of(const HttpServer& server);

// The body of "/large".
std::string large_body();

// A port of the loopback device at which nobody listens.
std::uint16_t unused_port();
