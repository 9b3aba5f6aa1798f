// Replies: building the JSON object that a handler answers with, and reading its arguments.
#include "tools/reply.h"

#include <cjson/cJSON.h>

#include <cmath>
#include <cstdint>

#include "log/log.h"
#include "tools/store.h"
#include "tools/text.h"

namespace {

bool member_lost = false;

// The digits of a whole number that has at most 15 of them, at the end of `out`; null for any other
// number, and for the zero below zero, which has a sign.
const char* whole_digits(double value, char (&out)[20]) {
    constexpr double kLimit = 1e15;
    if (!(value > -kLimit && value < kLimit) || (value == 0 && std::signbit(value))) return nullptr;
    const auto whole = static_cast<std::int64_t>(value);
    if (static_cast<double>(whole) != value) return nullptr;

    auto rest = static_cast<std::uint64_t>(whole < 0 ? -whole : whole);
    std::size_t at = sizeof out - 1;
    out[at] = '\0';
    do {
        out[--at] = static_cast<char>('0' + rest % 10);
        rest /= 10;
    } while (rest != 0);
    if (whole < 0) out[--at] = '-';
    return out + at;
}

}  // namespace

const char* arg_text(const cJSON* args, const char* name) {
    const cJSON* item = cJSON_GetObjectItem(args, name);
    return cJSON_IsString(item) ? item->valuestring : nullptr;
}

const char* arg_filled(const cJSON* args, const char* name) {
    const char* text = arg_text(args, name);
    return text && *text ? text : nullptr;
}

cJSON* reply_new(const char* fun) {
    cJSON* reply = cJSON_CreateObject();
    if (reply) add_text(reply, "fun", fun);
    return reply;
}

cJSON* reply_stat(cJSON* reply, const char* stat) {
    add_text(reply, "stat", stat);
    return reply;
}

cJSON* reply_lost(const char* handler, Lost wording) {
    if (wording == Lost::spaced)
        cpectl_log(kLogError, "Fail to create json respond for function: %s call", handler);
    else
        cpectl_log(kLogError, "Fail to create json respond for function:%s call", handler);
    return nullptr;
}

bool reply_is_whole() {
    return !member_lost;
}

void add_text(cJSON* object, const char* member, const char* value) {
    add_item(object, member, cJSON_CreateString(value));
}

void add_number(cJSON* object, const char* member, double value) {
    // For its number, the JSON library prints and scans: a whole number is spared that, as the text
    // is the same.
    char buffer[20];
    const char* digits = whole_digits(value, buffer);
    add_item(object, member, digits ? cJSON_CreateRaw(digits) : cJSON_CreateNumber(value));
}

void add_item(cJSON* object, const char* member, cJSON* item) {
    if (!cJSON_AddItemToObjectCS(object, member, item)) member_lost = true;
}

void add_fields(cJSON* object, std::span<const TextField> fields) {
    for (const TextField& field : fields)
        add_text(object, field.member, nvram_text(field.key));
}

const char* json_error_text() {
    const char* text = cJSON_GetErrorPtr();
    return text ? text : "(null)";
}

const char* yes_or_no(const char* text) {
    return begins_with(text, "YES") ? "YES" : "NO";
}
