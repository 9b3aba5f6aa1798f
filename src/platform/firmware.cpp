// Firmware: upgrade on command, push of an offer, over-the-air check.
#include "platform/firmware.h"

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "log/log.h"
#include "nvram.h"
#include "platform/handlers.h"
#include "tools/http.h"
#include "tools/reply.h"
#include "tools/shell.h"
#include "tools/store.h"
#include "tools/text.h"

namespace {

constexpr char kOfferFile[] = "/tmp/pushfile";
constexpr std::size_t kCheckUrlSize = 256;
constexpr std::size_t kDateSize = 16;

// The keys of the second store that the update scripts read.
constexpr char kOfferPath[] = "CLOUD_PUSH_FIRMWARE_FWADDR";
constexpr char kOfferName[] = "CLOUD_PUSH_FIRMWARE_FWNAME";
constexpr char kOfferNotes[] = "CLOUD_PUSH_FIRMWARE_FWDESC";
constexpr char kOfferMd5[] = "CLOUD_PUSH_FIRMWARE_FWMD5ADDR";
constexpr char kOfferType[] = "CLOUD_PUSH_FIRMWARE_FWTYPE";

// An argument and the key of the second store that takes it.
struct KeyArgument {
    const char* argument;
    const char* key;
};

constexpr KeyArgument kUpgradeArguments[] = {
    {"upGradeUrl", "CPECTL_FIRMWARE_URL"},
    {"upGradeMd5", "CPECTL_FIRMWARE_MD5"},
    {"upGradeNm", "CPECTL_FIRMWARE_NAME"},
};

constexpr KeyArgument kPushArguments[] = {
    {"fwurl", kOfferPath},
    {"fwname", kOfferName},
    {"fwdesc", kOfferNotes},
    {"fwmd5", kOfferMd5},
};

// Stores all arguments, or none when one of them is no text.
bool store_all(const cJSON* args, std::span<const KeyArgument> arguments) {
    for (const KeyArgument& each : arguments) {
        if (!arg_text(args, each.argument)) return false;
    }
    for (const KeyArgument& each : arguments) {
        mvram_update(each.key, arg_text(args, each.argument));
    }
    return true;
}

// The query to the check server. False when it does not fit.
bool check_url(std::span<char> url) {
    char date[kDateSize] = {};
    bool fits = text_print(url, "http://%s/cloud-ota/pltcheck?devMac=%s", CPECTL_OTA_HOST,
                           nvram_text("LAN_DEF_MAC"));
    fits = text_append(url, "&platform=") && fits;
    fits = text_append(url, nvram_text("PRODUCT_TYPE")) && fits;
    system_operate("cat /etc/router.ver | grep SW_DATE | cut -d '=' -f 2", date);
    return text_append(url, "&version=") && text_append(url, date) && fits;
}

// Copies a text to `offset` of `info`, with its terminator, as far as there is room.
void copy_to(std::span<char> info, std::size_t offset, const char* text) {
    (void)text_copy({info.data() + offset, info.size() - offset}, text);
}

// The members of an offer, in the order in which they are copied.
struct OfferMember {
    const char* member;
    std::size_t offset;
};

constexpr OfferMember kOfferMembers[] = {
    {"path", offsetof(PushInfo, path)},
    {"textNotes", offsetof(PushInfo, notes)},
    {"md5", offsetof(PushInfo, md5)},
    {"type", offsetof(PushInfo, type)},
};

// Room for an offer whose values run over, whatever their lengths: a PushInfo and all of them.
std::size_t offer_room(const cJSON* answer) {
    const cJSON* message = cJSON_GetObjectItem(answer, "msg");
    std::size_t room = sizeof(PushInfo) + 1;
    for (const OfferMember& each : kOfferMembers) {
        const char* text = arg_text(message, each.member);
        if (text) room += std::strlen(text);
    }
    return room;
}

// The offer in the file that the check left; null when there is none. From malloc.
char* offer_read() {
    cJSON* answer = parse_file_to_Json(kOfferFile);
    if (!answer) {
        cpectl_log(kLogError, "parse push file erro\n");
        return nullptr;
    }
    const std::size_t room = offer_room(answer);
    auto* info = static_cast<char*>(std::calloc(room, 1));
    const bool complete = info && get_push_info(answer, {info, room}) == 0;
    cJSON_Delete(answer);
    if (!complete) {
        cpectl_log(kLogError, "get push info erro\n");
        return nullptr;
    }
    return info;
}

}  // namespace

cJSON* cpectl_upgrade(std::int32_t, const cJSON* args) {
    cJSON* reply = reply_new("upGrade");
    if (!reply) return reply_lost(__func__, Lost::plain);
    if (!store_all(args, kUpgradeArguments)) return reply_stat(reply, "er");

    reply_stat(reply, "ok");
    shell_run("/usr/sbin/cpectlUpgrade.sh >/dev/null 2>&1 &");
    return reply;
}

cJSON* cpectl_push_firmware(std::int32_t, const cJSON* args) {
    cJSON* reply = reply_new("pushfw");
    if (!reply) return reply_lost(__func__, Lost::plain);
    if (!store_all(args, kPushArguments)) return reply_stat(reply, "er");

    shell_run("/usr/sbin/pushOTA.sh get &");
    return reply_stat(reply, "ok");
}

int get_push_info(const cJSON* answer, std::span<char> info) {
    std::memset(info.data(), 0, info.size());
    const cJSON* message = cJSON_GetObjectItem(answer, "msg");
    if (!message) {
        cpectl_log(kLogError, "root erro\n");
        return -1;
    }
    for (const OfferMember& each : kOfferMembers) {
        const char* text = arg_text(message, each.member);
        if (!text) return -1;
        copy_to(info, each.offset, text);
        if (each.offset != offsetof(PushInfo, path)) continue;
        const char* slash = std::strrchr(text, '/');
        copy_to(info, offsetof(PushInfo, name), slash ? slash + 1 : text);
    }
    return 0;
}

// Kept: answers nothing on any outcome; the keys and the script tell what was found.
cJSON* cpectl_checkOta(std::int32_t, const cJSON*) {
    char url[kCheckUrlSize] = {};
    if (!check_url(url)) return nullptr;
    if (getUrl(kOfferFile, url) == 0) return nullptr;
    const char* info = offer_read();
    if (!info) return nullptr;

    mvram_update(kOfferPath, info + offsetof(PushInfo, path));
    mvram_update(kOfferName, info + offsetof(PushInfo, name));
    mvram_update(kOfferNotes, info + offsetof(PushInfo, notes));
    mvram_update(kOfferMd5, info + offsetof(PushInfo, md5));
    mvram_update(kOfferType, info + offsetof(PushInfo, type));
    shell_run("/usr/sbin/pushOTA.sh get &");
    return nullptr;
}
