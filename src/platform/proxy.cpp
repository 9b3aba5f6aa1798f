// The intranet proxy client: starting and stopping it.
#include <cjson/cJSON.h>

#include <cstdint>

#include "platform/handlers.h"
#include "tools/reply.h"
#include "tools/shell.h"
#include "tools/store.h"
#include "tools/text.h"

namespace {

constexpr std::size_t kLanInfoSize = 25;
constexpr int kWebPort = 80;

// An argument and the NVRAM key that takes it.
constexpr TextField kProxyFields[] = {
    {"serverHost", "PROXY_SERVER_IP"},
    {"serverPort", "PROXY_SERVER_PORT"},
    {"clientKey", "PROXY_SERVER_KEY"},
    {"timeout", "PROXY_SERVER_TIMEOUT"},
};

bool has_all_texts(const cJSON* args) {
    for (const TextField& field : kProxyFields) {
        if (!arg_text(args, field.member)) return false;
    }
    return true;
}

}  // namespace

cJSON* cpectl_open_proxy_client(std::int32_t, const cJSON* args) {
    cJSON* reply = reply_new("openIntranetProxy");
    cJSON* cbk = cJSON_CreateObject();
    // Kept: one of the two failing alone is not caught.
    if (!reply && !cbk) return reply_lost(__func__, Lost::spaced);

    if (has_all_texts(args)) {
        // Kept: no commit; the script reads the running values.
        for (const TextField& field : kProxyFields)
            nvram_update(field.key, arg_text(args, field.member));
        reply_stat(reply, "ok");
        shell_run("/usr/sbin/proxy_client.sh start >/dev/null 2>&1 &");
    } else {
        reply_stat(reply, "er");
    }

    char lan[kLanInfoSize] = {};
    (void)text_print(lan, "%s:%d", nvram_text("LAN_IP"), kWebPort);
    if (cbk) {
        add_item(reply, "cbk", cbk);
        add_text(cbk, "lanInfo", lan);
    }
    return reply;
}

cJSON* cpectl_close_proxy_client(std::int32_t, const cJSON*) {
    shell_run("/usr/sbin/proxy_client.sh stop >/dev/null 2>&1 &");
    cJSON* reply = reply_new("closeIntranetProxy");
    if (!reply) return reply_lost(__func__, Lost::spaced);
    return reply_stat(reply, "ok");
}
