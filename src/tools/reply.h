// Replies: building the JSON object that a handler answers with, and reading its arguments.
#pragma once

#include <span>

struct cJSON;

// The string value of an argument; null when there is no argument object, no such member, or the
// member is no string. Members are found without regard to case, as the JSON library does.
const char* arg_text(const cJSON* args, const char* name);

// The same, but null for an empty string too.
const char* arg_filled(const cJSON* args, const char* name);

// Starts a reply with its "fun". Null when there is no memory.
[[nodiscard]] cJSON* reply_new(const char* fun);

// Adds "stat" and returns the reply.
cJSON* reply_stat(cJSON* reply, const char* stat);

// The two wordings of the log record for a reply that could not be built.
enum class Lost {
    plain,   // "...function:%s call"
    spaced,  // "...function: %s call"
};

// Logs that the reply of `handler` could not be built, and returns null for it.
cJSON* reply_lost(const char* handler, Lost wording);

// Whether every member was added that a handler asked for: without memory, one may be missing, and
// the reply must not be printed then.
bool reply_is_whole();

// Adds one member, whose name has to outlive the object; `item` may be null, which counts as a
// member that could not be added.
void add_text(cJSON* object, const char* member, const char* value);
void add_number(cJSON* object, const char* member, double value);
void add_item(cJSON* object, const char* member, cJSON* item);

// A text member and the key of NVRAM that it shows.
struct TextField {
    const char* member;
    const char* key;
};

// Adds a member for each field, empty when the key is absent.
void add_fields(cJSON* object, std::span<const TextField> fields);

// The text at which the last JSON text that was parsed went wrong, as the JSON library points to
// it;
// "(null)" when none did.
const char* json_error_text();

// "YES" when `text` begins with YES, else "NO".
const char* yes_or_no(const char* text);
