// A libcurl of the tests: notes its calls instead of transferring anything.
#include <curl/curl.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

// The macros of the header check the types of callers.
#undef curl_easy_setopt

char fake_curl_calls[4096];
int fake_curl_init_fails;
int fake_curl_result;

static char session;
static char list;

static void note(const char* format, ...) __attribute__((format(printf, 1, 2)));
static void note(const char* format, ...) {
    const size_t used = strlen(fake_curl_calls);
    va_list args;
    va_start(args, format);
    vsnprintf(fake_curl_calls + used, sizeof fake_curl_calls - used, format, args);
    va_end(args);
}

struct curl_slist* curl_slist_append(struct curl_slist* before, const char* text) {
    note("list %s%s\n", text, before ? " to another" : "");
    return (struct curl_slist*)&list;
}

void curl_slist_free_all(struct curl_slist* freed) {
    note("free %s\n", (char*)freed == &list ? "list" : "something else");
}

CURL* curl_easy_init(void) {
    note("init\n");
    return fake_curl_init_fails ? NULL : &session;
}

CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {
    va_list args;
    va_start(args, option);
    if (handle != &session) note("foreign session\n");
    if (option == CURLOPT_URL)
        note("URL %s\n", va_arg(args, const char*));
    else if (option == CURLOPT_SSL_VERIFYPEER)
        note("SSL_VERIFYPEER %ld\n", va_arg(args, long));
    else if (option == CURLOPT_SSL_VERIFYHOST)
        note("SSL_VERIFYHOST %ld\n", va_arg(args, long));
    else if (option == CURLOPT_WRITEDATA)
        note("WRITEDATA %s\n", fputs("body", va_arg(args, FILE*)) < 0 ? "closed" : "open");
    else
        note("option %d\n", (int)option);
    va_end(args);
    return CURLE_OK;
}

CURLcode curl_easy_perform(CURL* handle) {
    note("perform%s\n", handle == &session ? "" : " foreign session");
    return (CURLcode)fake_curl_result;
}

void curl_easy_cleanup(CURL* handle) {
    note("cleanup%s\n", handle == &session ? "" : " foreign session");
}
