// Replies: building the JSON object that a handler answers with, and reading its arguments.
#include "tools/reply.h"

#include <cjson/cJSON.h>

#include "log/log.h"
#include "tools/store.h"
#include "tools/text.h"

namespace {

bool member_lost = false;

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
    add_item(object, member, cJSON_CreateNumber(value));
}

void add_item(cJSON* object, const char* member, cJSON* item) {
    if (!cJSON_AddItemToObject(object, member, item)) member_lost = true;
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
