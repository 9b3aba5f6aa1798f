// HTTP: a download into a file, an upload in the background, and reading a downloaded JSON file.
#include "tools/http.h"

#include <cjson/cJSON.h>
#include <curl/curl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "log/log.h"
#include "tools/file.h"
#include "tools/platform_library.h"
#include "tools/reply.h"
#include "tools/shell.h"

namespace {

constexpr char kCurlSoname[] = "libcurl.so.4";

// The calls of libcurl that a download needs.
struct Curl {
    decltype(&curl_slist_append) list_append;
    decltype(&curl_slist_free_all) list_free;
    decltype(&curl_easy_init) init;
    decltype(&curl_easy_setopt) setopt;
    decltype(&curl_easy_perform) perform;
    decltype(&curl_easy_cleanup) cleanup;
};

template <typename Call>
bool curl_call(Call& call, const char* symbol) {
    call = reinterpret_cast<Call>(library_symbol(kCurlSoname, symbol));
    return call != nullptr;
}

// Loads libcurl: only here, since linked in it would be most of every command's start.
bool curl_load(Curl& curl) {
    return curl_call(curl.list_append, "curl_slist_append") &&
           curl_call(curl.list_free, "curl_slist_free_all") &&
           curl_call(curl.init, "curl_easy_init") && curl_call(curl.setopt, "curl_easy_setopt") &&
           curl_call(curl.perform, "curl_easy_perform") &&
           curl_call(curl.cleanup, "curl_easy_cleanup");
}

// One GET into an open file. False when libcurl cannot start; a failed transfer is true.
bool download(const Curl& curl, const char* url, std::FILE* file) {
    // Kept: the header is never sent, the list is not attached to the session.
    curl_slist* headers = curl.list_append(nullptr, "Accept: Agent-007");
    CURL* session = curl.init();
    if (!session) return false;

    curl.setopt(session, CURLOPT_URL, url);
    curl.setopt(session, CURLOPT_SSL_VERIFYPEER, 0L);
    curl.setopt(session, CURLOPT_SSL_VERIFYHOST, 0L);
    curl.setopt(session, CURLOPT_WRITEDATA, file);
    if (curl.perform(session) != CURLE_OK) curl.list_free(headers);
    curl.cleanup(session);
    return true;
}

// The size of an open file in bytes, read from its start; -1 when it cannot be told or could not
// be held in memory anyway (a folder reports the largest number there is).
std::int32_t file_size(std::FILE* file) {
    if (std::fseek(file, 0, SEEK_END) != 0) return -1;
    const long size = std::ftell(file);
    if (std::fseek(file, 0, SEEK_SET) != 0 || size < 0 || size >= INT32_MAX) return -1;
    return static_cast<std::int32_t>(size);
}

// The whole content of an open file as text, from malloc; null when there is no memory for it.
char* file_text(std::FILE* file) {
    const std::int32_t size = file_size(file);
    if (size < 0) return nullptr;
    const auto length = static_cast<std::size_t>(size);
    auto* text = static_cast<char*>(std::calloc(length + 1, 1));
    if (text && std::fread(text, 1, length, file) != length) {
        // It shrank meanwhile: what was read is terminated all the same.
    }
    return text;
}

}  // namespace

int getUrl(const char* path, const char* url) {
    std::FILE* file = file_create(path);
    if (!file) return 0;
    Curl curl;
    const bool tried = curl_load(curl) && download(curl, url, file);
    std::fclose(file);
    return tried ? 1 : 0;
}

int curl_post_file(const char* url, const char* path) {
    char command[1024] = {};
    if (url[0] != '-' &&  // curl would take it for an option
        shell_print(command, "curl %s -F \"file=@%s\" >/dev/null 2>&1 &", url, path)) {
        shell_run(command);
    }
    return 0;
}

cJSON* cJSON_Parse_File(const char* path) {
    constexpr int kOpenTries = 4;
    constexpr int kParseTries = 3;
    constexpr useconds_t kOpenPause = 300000;   // microseconds
    constexpr useconds_t kParsePause = 500000;  // microseconds
    if (!path) return nullptr;

    int failures = 0;  // of both kinds
    char* text = nullptr;
    for (;;) {
        std::FILE* file = std::fopen(path, "rbe");
        if (!file) {
            if (++failures >= kOpenTries) {
                cpectl_log(kLogError, "fopen %s erro\n", path);
                return nullptr;
            }
            usleep(kOpenPause);
            continue;
        }
        std::free(text);
        text = file_text(file);
        std::fclose(file);
        if (!text) {
            cpectl_log(kLogError, "malloc erro\n");
            return nullptr;
        }
        if (cJSON* tree = cJSON_Parse(text)) {
            std::free(text);
            return tree;
        }
        // The last text that did not parse stays: cJSON's error position points into it.
        if (++failures >= kParseTries) {
            cpectl_log(kLogError, "cJSON_Parse  erro\n");
            return nullptr;
        }
        usleep(kParsePause);
    }
}

cJSON* parse_file_to_Json(const char* path) {
    if (!path) return nullptr;
    cJSON* tree = cJSON_Parse_File(path);
    if (!tree) cpectl_log(kLogError, "Parse fail ! : [%s]\n", json_error_text());
    return tree;
}
