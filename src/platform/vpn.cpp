// VPN: IPsec service and tunnels, PPTP server and its users, PPTP client.
#include "platform/vpn.h"

#include <cjson/cJSON.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <span>
#include <string_view>

#include "nvram.h"
#include "platform/handlers.h"
#include "tools/file.h"
#include "tools/http.h"
#include "tools/line_file.h"
#include "tools/netif.h"
#include "tools/reply.h"
#include "tools/shell.h"
#include "tools/store.h"
#include "tools/text.h"

namespace {

constexpr std::size_t kNameSize = 128;
constexpr std::size_t kAddressSize = 20;
constexpr std::size_t kCommandSize = 256;
constexpr std::size_t kUrlSize = 512;
constexpr std::size_t kDigestSize = 64;

// ---- The two line files: what differs between tunnels and users ---------------------------------

struct LineFile {
    const char* path;
    const char* name;       // as answered
    std::size_t line_size;  // buffer in which a search reads its lines
    const char* added;      // script run for a new line, in the background
};

constexpr LineFile kTunnels = {"/disk/conf/ipsec.cfg", "ipsec.cfg", 4096,
                               "/usr/sbin/ipsec.sh add %s >/dev/null 2>&1 &"};
constexpr LineFile kUsers = {"/disk/conf/pptpuser.cfg", "pptpuser.cfg", 1024,
                             "/usr/sbin/pptp.sh user_add %s >/dev/null 2>&1 &"};

// Whether a line's name begins with `name`: 1 or 0, -1 when the file cannot be opened.
int line_check(const LineFile& file, const char* name) {
    return line_file_has(name, file.path, file.line_size);
}

// Adds the line that the request gives under `member`, unless its name begins one that is there.
cJSON* line_add(cJSON* reply, const cJSON* args, const char* member, const LineFile& file) {
    const char* line = arg_filled(args, member);
    if (!line) return reply_stat(reply, "err");

    char name[kNameSize] = {};
    char command[kCommandSize] = {};
    (void)text_copy(name, text_until(line, " "));
    if (!shell_print(command, file.added, name)) return reply_stat(reply, "err");
    if (line_file_is_there(file.path) && line_check(file, name) != 0)
        return reply_stat(reply, "err");

    add_line(line, file.path);
    shell_run(command);
    return reply_stat(reply, "ok");
}

// The name that the request gives under `member`, cut at 127 characters, and the number of its
// line. False when there is no such name in the request or in the file.
bool line_named(const cJSON* args, const char* member, const LineFile& file,
                char (&name)[kNameSize], int& number) {
    const char* given = arg_filled(args, member);
    if (!given) return false;
    (void)text_copy(name, given);
    if (line_check(file, name) != 1) return false;
    number = find_name_which_line(name, file.path);
    return number > 0;
}

// Empties the file, creating it if needed.
void line_file_clear(const LineFile& file) {
    char command[kCommandSize] = {};
    if (!shell_print(command, "> %s >/dev/null 2>/dev/null", file.path)) return;
    const int lock = line_file_lock(file.path);  // a deletion would bring back the other lines
    shell_run(command);
    folder_unlock(lock);
}

// The MD5 digest of a file as hexadecimal text; empty when there is none.
void file_digest(const char* path, char (&digest)[kDigestSize]) {
    char command[128] = {};
    if (!shell_print(command, "md5sum %s |awk '{print $1}' 2>/dev/null", path)) return;
    const int lock = line_file_lock(path);  // not of a part of it
    system_operate(command, digest);
    folder_unlock(lock);
    digest[text_until(digest, "\r\n").size()] = '\0';
}

// Uploads the file to the URL that the request gives, and answers with its name and digest.
cJSON* file_upload(cJSON* reply, cJSON* cbk, const cJSON* args, const LineFile& file) {
    const char* url = arg_filled(args, "postUrl");
    if (!url || std::strlen(url) >= kUrlSize) return reply_stat(reply, "err");

    char digest[kDigestSize] = {};
    const bool exists = line_file_is_there(file.path);
    if (exists) {
        curl_post_file(url, file.path);
        file_digest(file.path, digest);
    }
    reply_stat(reply, exists && !*digest ? "err" : "ok");
    add_item(reply, "cbk", cbk);
    add_text(cbk, "name", exists ? file.name : "NONE");
    add_text(cbk, "md5", digest);
    return reply;
}

}  // namespace

int check_ipsec_tun(const char* name) {
    return line_check(kTunnels, name);
}

int check_pptpd_user(const char* name) {
    return line_check(kUsers, name);
}

// ---- IPsec service ------------------------------------------------------------------------------

namespace {

constexpr char kIpsecInstall[] = "/usr/sbin/ipsec.sh install >/dev/null 2>&1 &";

// Kept: both commands run the same script action, which looks at the switch.
cJSON* ipsec_switch(cJSON* reply, const char* value) {
    nvram_update("IPSEC_ENABLE", value);
    nvram_commit();
    shell_run(kIpsecInstall);
    return reply_stat(reply, "ok");
}

}  // namespace

cJSON* cpectl_vpn_ipsec_open(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("ipsecOpen");
    if (!reply) return reply_lost(__func__, Lost::spaced);
    return ipsec_switch(reply, "YES");
}

cJSON* cpectl_vpn_ipsec_close(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("ipsecClose");
    if (!reply) return reply_lost(__func__, Lost::spaced);
    return ipsec_switch(reply, "NO");
}

cJSON* cpectl_vpn_ipsec_sta_get(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("ipsecStaGet");
    cJSON* cbk = cJSON_CreateObject();
    if (!reply || !cbk) return reply_lost(__func__, Lost::spaced);

    add_item(reply, "cbk", cbk);
    add_text(cbk, "run", yes_or_no(nvram_text("IPSEC_ENABLE")));
    return reply_stat(reply, "ok");
}

cJSON* cpectl_vpn_ipsec_conf_get(std::int32_t, const cJSON* args) {
    cJSON* reply = reply_new("ipsecConfGet");
    cJSON* cbk = cJSON_CreateObject();
    if (!reply || !cbk) return reply_lost(__func__, Lost::spaced);
    return file_upload(reply, cbk, args, kTunnels);
}

// ---- IPsec tunnels ------------------------------------------------------------------------------

namespace {

// Hands the script an action on a tunnel, whether or not there is such a tunnel.
cJSON* tunnel_action(const char* handler, const char* fun, const cJSON* args, int action) {
    cJSON* reply = reply_new(fun);
    cJSON* cbk = cJSON_CreateObject();
    if (!reply || !cbk) return reply_lost(handler, Lost::spaced);

    const char* name = arg_filled(args, "tunName");
    char command[kCommandSize] = {};
    const bool fits = name && shell_print(command, "/usr/sbin/ipsec.sh set %s %d >/dev/null 2>&1 &",
                                          name, action);
    if (fits) {
        shell_run(command);
        reply_stat(cbk, "ok");
        add_text(cbk, "retInfo", "");
    } else {
        reply_stat(reply, "ok");  // Kept: "stat" twice, here and below
        reply_stat(cbk, "err");
        add_text(cbk, "retInfo", name ? "tunName is too long" : "tunName is null");
    }
    add_item(reply, "cbk", cbk);
    return reply_stat(reply, "ok");
}

}  // namespace

cJSON* cpectl_vpn_ipsec_tun_add(std::int32_t, const cJSON* args) {
    cJSON* reply = reply_new("ipsecAddTun");
    if (!reply) return reply_lost(__func__, Lost::spaced);
    return line_add(reply, args, "tunCfg", kTunnels);
}

cJSON* cpectl_vpn_ipsec_tun_del(std::int32_t, const cJSON* args) {
    cJSON* reply = reply_new("ipsecDelTun");
    if (!reply) return reply_lost(__func__, Lost::spaced);

    char name[kNameSize] = {};
    char command[kCommandSize] = {};
    int number = 0;
    if (!line_named(args, "tunName", kTunnels, name, number)) return reply_stat(reply, "err");
    if (!shell_print(command, "/usr/sbin/ipsec.sh del %d >/dev/null 2>&1", number))
        return reply_stat(reply, "err");

    // Kept: the script is told the number while the line is still in the file.
    shell_run(command);
    if (del_line(name, kTunnels.path) != 0) return reply_stat(reply, "err");
    shell_run("/usr/sbin/ipsec.sh config >/dev/null 2>&1");
    return reply_stat(reply, "ok");
}

cJSON* cpectl_vpn_ipsec_tun_all_del(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("ipsecDelAllTun");
    if (!reply) return reply_lost(__func__, Lost::spaced);

    line_file_clear(kTunnels);
    shell_run(kIpsecInstall);
    return reply_stat(reply, "ok");
}

cJSON* cpectl_vpn_ipsec_tun_shutdown(std::int32_t, const cJSON* args) {
    return tunnel_action(__func__, "ipsecTunShutdown", args, 0);
}

cJSON* cpectl_vpn_ipsec_tun_reconnect(std::int32_t, const cJSON* args) {
    return tunnel_action(__func__, "ipsecTunReconn", args, 1);
}

cJSON* cpectl_vpn_ipsec_tun_reboot(std::int32_t, const cJSON* args) {
    return tunnel_action(__func__, "ipsecTunReboot", args, 2);
}

// ---- IPsec tunnel state -------------------------------------------------------------------------

namespace {

constexpr char kStateFile[] = "/tmp/ipsec_stat";
constexpr char kEstablishedFile[] = "/tmp/ipsec_state_tmp";
constexpr char kUnroutedFile[] = "/tmp/ipsec_eroute_tmp";

constexpr std::size_t kTunnelCount = 500;
constexpr std::size_t kLineSize = 1024;
constexpr std::string_view kConnectionPrefix = "conn_";  // the daemon's names of our tunnels
constexpr std::string_view kAnyPeer = "0.0.0.0";

struct Tunnel {
    char name[kNameSize];
    std::int32_t number;  // always 0
    char peer[kAddressSize];
    std::int32_t state;  // 1 = established
};

// The tunnels in the order of their file, and an index over their names (open addressing; a slot
// holds the position in `tunnels` plus 1). Status lines are many: each costs one look-up.
struct TunnelTable {
    Tunnel tunnels[kTunnelCount];
    std::size_t count;
    std::uint16_t slots[1024];
};
constexpr std::size_t kSlotCount = sizeof TunnelTable::slots / sizeof(std::uint16_t);
static_assert(kSlotCount >= 2 * kTunnelCount && (kSlotCount & (kSlotCount - 1)) == 0);

TunnelTable table;

std::size_t slot_of(std::string_view name) {
    std::uint32_t hash = 2166136261U;  // FNV-1a
    for (const char c : name)
        hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
    return hash & (kSlotCount - 1);
}

// The slot of the first tunnel with this name, or the free slot where it would go.
std::uint16_t& slot_find(std::string_view name) {
    std::size_t slot = slot_of(name);
    while (table.slots[slot] != 0 && table.tunnels[table.slots[slot] - 1].name != name) {
        slot = (slot + 1) & (kSlotCount - 1);
    }
    return table.slots[slot];
}

// The tunnel of one of the daemon's connections; null when it is none of ours.
Tunnel* tunnel_of_connection(std::string_view connection) {
    if (!begins_with(connection, kConnectionPrefix)) return nullptr;
    const std::uint16_t slot = slot_find(text_tail(connection, kConnectionPrefix.size()));
    return slot == 0 ? nullptr : &table.tunnels[slot - 1];
}

// Word `number` of a line, counted from 1, when a blank follows it; empty otherwise.
std::string_view closed_word(std::string_view line, int number) {
    std::string_view word;
    for (int i = 0; i < number; i++) {
        word = text_until(line, " ");
        if (word.size() == line.size()) return {};
        line = text_tail(line, word.size() + 1);
    }
    return word;
}

// Reads the tunnel file. A line with an empty name ends the table.
void tunnels_read(std::FILE* file) {
    char line[kLineSize];
    std::memset(&table, 0, sizeof table);
    while (table.count < kTunnelCount && next_line(file, line)) {
        Tunnel& tunnel = table.tunnels[table.count];
        const std::string_view text = text_until(line, "\n");
        (void)text_copy(tunnel.name, text_until(text, " "));
        if (!*tunnel.name) return;
        (void)text_copy(tunnel.peer, closed_word(text, 6));
        table.count++;
        std::uint16_t& slot = slot_find(tunnel.name);
        if (slot == 0) slot = static_cast<std::uint16_t>(table.count);
    }
}

// The address at the start of "198.51.100.7:4500 ...": up to the first colon behind its first
// character.
std::string_view shown_peer(std::string_view text) {
    const std::string_view behind_first = text_until(text_tail(text, 1), ":");
    return text_head(text, 1 + behind_first.size());
}

// One line of an established connection, such as
//   000 #2: "conn_office"[1] 198.51.100.7:4500 STATE_QUICK_R2 (IPsec SA established); ...
void established_line(std::string_view line) {
    if (line.size() < 5 || line[4] != '#') return;
    const std::string_view behind = text_until(text_tail(line, 5), "\n");
    const std::string_view quoted = text_tail(behind, text_until(behind, "\"").size() + 1);
    const std::string_view connection = text_until(quoted, "\"/");
    Tunnel* tunnel = tunnel_of_connection(connection);
    if (!tunnel) return;

    // What the daemon shows for a peer that may be any stands behind the number of the instance.
    const std::string_view rest = text_tail(quoted, connection.size() + 1);
    const std::size_t instance_end = text_find(rest, "] ");
    if (begins_with(tunnel->peer, kAnyPeer) && instance_end < rest.size())
        (void)text_copy(tunnel->peer, shown_peer(text_tail(rest, instance_end + 2)));
    tunnel->state = 1;
}

// One line of an unrouted connection, such as
//   000 "conn_office": 10.0.0.0/24===192.0.2.1...198.51.100.7; unrouted; eroute owner: #0
void unrouted_line(std::string_view line) {
    if (line.size() < 5 || line[4] != '"') return;
    Tunnel* tunnel = tunnel_of_connection(text_until(text_tail(line, 5), "\"/\n"));
    // Kept: whatever peer the line names, an unrouted listing wins over an established one.
    if (tunnel) tunnel->state = 0;
}

// Hands each line of a file, or each piece that fills `line`, to `each`.
void for_each_line(std::FILE* file, std::span<char> line, void (*each)(std::string_view)) {
    while (next_line(file, line))
        each(line.data());
}

// Writes one line for each tunnel. False when that fails.
bool states_write(std::FILE* file) {
    for (std::size_t i = 0; i < table.count; i++) {
        Tunnel& tunnel = table.tunnels[i];
        if (tunnel.state != 1) (void)text_copy(tunnel.peer, kAnyPeer);
        if (std::fprintf(file, "%s %d %s %d \n", tunnel.name, tunnel.number, tunnel.peer,
                         tunnel.state) < 0)
            return false;
    }
    return true;
}

// Has the control tool's status sorted into the two work files, and empties the state file.
void status_fetch() {
    shell_run(
        "/usr/local/sbin/ipsec whack --status|grep \"eroute owner\"|grep \"established\""
        " > /tmp/ipsec_state_tmp 2>/dev/null");
    shell_run(
        "/usr/local/sbin/ipsec whack --status|grep \"; unrouted;\" |grep -v \"; erouted;\""
        " |grep -v \"established\" |grep -v \"0.0.0.0\" > /tmp/ipsec_eroute_tmp 2>/dev/null");
    char command[kCommandSize] = {};
    if (shell_print(command, "echo -n > %s", kStateFile)) shell_run(command);
}

// Whether the shell would write through a symbolic link that somebody laid in the open folder.
bool is_diverted() {
    return is_symbolic_link(kEstablishedFile) || is_symbolic_link(kUnroutedFile) ||
           is_symbolic_link(kStateFile);
}

}  // namespace

int ipsec_get_state_to_file() {
    if (is_diverted()) return -1;
    status_fetch();
    std::FILE* state = std::fopen(kStateFile, "a+e");
    std::FILE* established = std::fopen(kEstablishedFile, "re");
    std::FILE* tunnels = line_file_open(kTunnels.path);
    std::FILE* unrouted = std::fopen(kUnroutedFile, "re");
    // On failure the open ones are left to the end of the process.
    if (!state || !established || !tunnels || !unrouted) return -1;

    char line[kLineSize + 1];
    tunnels_read(tunnels);
    for_each_line(established, line, established_line);
    for_each_line(unrouted, std::span(line, kLineSize), unrouted_line);
    const bool written = states_write(state);
    std::fclose(established);
    std::fclose(tunnels);
    std::fclose(unrouted);
    return std::fclose(state) == 0 && written ? 0 : -1;
}

namespace {

// Appends the entry for a line of the state file. False when it cannot be created.
bool add_tunnel_state(cJSON* array, std::string_view line) {
    char name[kNameSize] = {};
    char peer[kAddressSize] = {};
    char state[10] = {};
    std::string_view words[4];
    for (std::string_view& word : words)
        (void)take_word(line, word);
    (void)text_copy(name, words[0]);
    (void)text_copy(peer, words[2]);
    (void)text_copy(state, text_until(words[3], "\r\n"));

    cJSON* entry = cJSON_CreateObject();
    if (!entry) return false;
    cJSON_AddItemToArray(array, entry);
    add_text(entry, "name", name);
    add_text(entry, "ip", peer);
    add_text(entry, "stat", state);
    return true;
}

// Appends an entry for each line of the state file. False when the file cannot be opened or an
// entry cannot be created.
bool add_tunnel_states(cJSON* array) {
    std::FILE* file = std::fopen(kStateFile, "re");
    if (!file) return false;
    char line[256];
    bool complete = true;
    while (complete && next_line(file, line))
        complete = add_tunnel_state(array, line);
    std::fclose(file);
    return complete;
}

}  // namespace

cJSON* cpectl_vpn_ipsec_tun_sta_get(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("ipsecTunStaGet");
    if (!reply) return reply_lost(__func__, Lost::spaced);
    cJSON* cbk = cJSON_CreateObject();
    cJSON* tunnels = cJSON_CreateArray();
    if (!cbk || !tunnels) return reply_stat(reply, "err");

    // One at a time: two at once would empty each other's work files.
    const int lock = folder_lock(kStateFile);
    // Kept: no state is no error, and answers an empty list.
    const bool complete = ipsec_get_state_to_file() != 0 || add_tunnel_states(tunnels);
    folder_unlock(lock);
    if (!complete) return reply_stat(reply, "err");

    add_item(reply, "cbk", cbk);
    add_item(cbk, "tun", tunnels);
    return reply_stat(reply, "ok");
}

// ---- PPTP server --------------------------------------------------------------------------------

namespace {

// Kept: two texts for the same restart; the other one is in cpectl_pptpd_user_all_del().
constexpr char kPptpdRestart[] = "/usr/sbin/pptp.sh init server >/dev/null 2>/dev/null &";

// Reads one end of the address pool. False when it is no address for its length.
bool pool_address(const char* key, char (&address)[kAddressSize]) {
    const char* stored = nvram_text(key);
    if (std::strlen(stored) >= 16) return false;
    return text_copy(address, stored);
}

}  // namespace

cJSON* cpectl_pptpd_open(std::int32_t, const cJSON* args) {
    cJSON* reply = reply_new("pptpdOpen");
    if (!reply) return reply_lost(__func__, Lost::spaced);

    const cJSON* pool = cJSON_GetObjectItem(args, "ip");
    const char* start = arg_filled(pool, "start");
    const char* end = arg_filled(pool, "end");
    const char* encrypt = arg_filled(args, "encrypt");
    if (!start || !end || !encrypt) return reply_stat(reply, "err");

    nvram_update("PPTPD_ENABLE", "YES");
    nvram_update("PPTPD_REMOTEIP_START", start);
    nvram_update("PPTPD_REMOTEIP_END", end);
    nvram_update("PPTPD_REQ128", encrypt);
    nvram_commit();
    shell_run(kPptpdRestart);
    return reply_stat(reply, "ok");
}

cJSON* cpectl_pptpd_oclose(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("pptpdClose");
    if (!reply) return reply_lost(__func__, Lost::spaced);

    nvram_update("PPTPD_ENABLE", "NO");
    nvram_commit();
    shell_run(kPptpdRestart);
    return reply_stat(reply, "ok");
}

cJSON* cpectl_pptpd_sta_get(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("pptpdStaGet");
    cJSON* cbk = cJSON_CreateObject();
    cJSON* pool = cJSON_CreateObject();
    if (!reply || !cbk || !pool) return reply_lost(__func__, Lost::spaced);

    char start[kAddressSize] = {};
    char end[kAddressSize] = {};
    if (!pool_address("PPTPD_REMOTEIP_START", start)) return reply_stat(reply, "err");
    if (!pool_address("PPTPD_REMOTEIP_END", end)) return reply_stat(reply, "err");

    add_item(reply, "cbk", cbk);
    add_item(cbk, "ip", pool);
    add_text(pool, "start", start);
    add_text(pool, "end", end);
    add_text(cbk, "enable", yes_or_no(nvram_text("PPTPD_ENABLE")));
    add_text(cbk, "encrypt", yes_or_no(nvram_text("PPTPD_REQ128")));
    return reply_stat(reply, "ok");
}

cJSON* cpectl_pptpd_conf_get(std::int32_t, const cJSON* args) {
    cJSON* reply = reply_new("pptpdConfGet");
    cJSON* cbk = cJSON_CreateObject();
    if (!reply || !cbk) return reply_lost(__func__, Lost::spaced);
    return file_upload(reply, cbk, args, kUsers);
}

// ---- PPTP server users --------------------------------------------------------------------------

namespace {

constexpr char kClientsFile[] = "/tmp/pptp_clients";

// One connected client: the words of its line behind the first.
struct Client {
    char name[kNameSize];
    char gw[kAddressSize];
    char ip[kAddressSize];
    char client[kAddressSize];
};

// Splits a line of the clients file. False when it has fewer than five words.
bool client_parse(std::string_view line, Client& client) {
    std::string_view rest = text_until(line, "\r\n");
    std::string_view words[4];
    for (std::string_view& word : words) {
        const std::string_view before = rest;
        if (!take_word(rest, word) || word.size() == before.size()) return false;
    }
    (void)text_copy(client.name, words[1]);
    (void)text_copy(client.gw, words[2]);
    (void)text_copy(client.ip, words[3]);
    (void)text_copy(client.client, text_until(rest, " "));
    return true;
}

// Appends an entry for each line of the clients file. False when one cannot be created.
bool add_clients(cJSON* array, std::FILE* file) {
    char line[256];
    while (next_line(file, line)) {
        Client client = {};
        if (!client_parse(line, client)) continue;
        cJSON* entry = cJSON_CreateObject();
        if (!entry) return false;
        cJSON_AddItemToArray(array, entry);
        add_text(entry, "name", client.name);
        add_text(entry, "gw", client.gw);
        add_text(entry, "ip", client.ip);
        add_text(entry, "client", client.client);
    }
    return true;
}

}  // namespace

cJSON* cpectl_pptpd_user_add(std::int32_t, const cJSON* args) {
    cJSON* reply = reply_new("pptpdAddUser");
    if (!reply) return reply_lost(__func__, Lost::spaced);
    return line_add(reply, args, "userCfg", kUsers);
}

cJSON* cpectl_pptpd_user_del(std::int32_t, const cJSON* args) {
    cJSON* reply = reply_new("pptpdDelUser");
    if (!reply) return reply_lost(__func__, Lost::spaced);

    char name[kNameSize] = {};
    char command[kCommandSize] = {};
    int number = 0;
    if (!line_named(args, "userName", kUsers, name, number)) return reply_stat(reply, "err");
    // Kept: the IPsec script is told, not the PPTP script, and in the background.
    if (!shell_print(command, "/usr/sbin/ipsec.sh user_del %d >/dev/null 2>&1 &", number))
        return reply_stat(reply, "err");

    shell_run("/usr/sbin/pptp.sh config_copy >/dev/null 2>&1");
    if (del_line(name, kUsers.path) != 0) return reply_stat(reply, "err");
    shell_run(command);
    return reply_stat(reply, "ok");
}

cJSON* cpectl_pptpd_user_all_del(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("ipsecDelAllUser");  // Kept: not the command's own name
    if (!reply) return reply_lost(__func__, Lost::spaced);

    line_file_clear(kUsers);
    shell_run("/usr/sbin/pptp.sh init server >/dev/null 2>&1 &");
    return reply_stat(reply, "ok");
}

cJSON* cpectl_pptpd_user_sta_get(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("pptpdUserStaGet");
    if (!reply) return reply_lost(__func__, Lost::spaced);
    cJSON* cbk = cJSON_CreateObject();
    cJSON* clients = cJSON_CreateArray();
    if (!cbk || !clients) return reply_stat(reply, "err");

    std::FILE* file = std::fopen(kClientsFile, "re");
    if (!file) return reply_stat(reply, "err");
    const bool complete = add_clients(clients, file);
    std::fclose(file);
    if (!complete) return reply_stat(reply, "err");

    add_item(reply, "cbk", cbk);
    add_item(cbk, "tun", clients);  // Kept: "tun", as for tunnels
    return reply_stat(reply, "ok");
}

// ---- PPTP client --------------------------------------------------------------------------------

namespace {

constexpr char kPptpcRestart[] = "/usr/sbin/pptp.sh init client >/dev/null 2>&1 &";

struct ClientSettings {
    char server[kAddressSize];
    char user[64];
    char password[64];
    char net[kAddressSize];
    char netmask[kAddressSize];
    char encrypt[5];
};

// Reads a needed argument, cut to its buffer. False when it is missing or empty.
bool arg_read(const cJSON* args, const char* name, std::span<char> out) {
    const char* text = arg_filled(args, name);
    if (text) (void)text_copy(out, text);
    return text != nullptr;
}

bool client_settings_read(const cJSON* args, ClientSettings& settings) {
    return arg_read(args, "serverIp", settings.server) &&
           arg_read(args, "userName", settings.user) &&
           arg_read(args, "userPasswd", settings.password) &&
           arg_read(args, "serverNet", settings.net) &&
           arg_read(args, "serverMask", settings.netmask) &&
           arg_read(args, "encrypt", settings.encrypt);
}

void add_stored(cJSON* object, const char* member, const char* key, std::span<char> buffer) {
    (void)text_copy(buffer, nvram_text(key));
    add_text(object, member, buffer.data());
}

// What is known of the tunnel's device: whether it is up, and then its addresses and traffic.
void add_connection(cJSON* cbk, const char* device) {
    if (getpppnic(device) == 1) {
        add_text(cbk, "connect", "NO");
        return;
    }
    char ip[17] = {};
    char gw[17] = {};
    char rxtx[kTrafficTextSize] = {};
    getnic(device, "-i", ip);
    getnic(device, "-g", gw);
    speed_get(device, rxtx);
    add_text(cbk, "connect", "YES");
    add_text(cbk, "ip", ip);
    add_text(cbk, "gw", gw);
    add_text(cbk, "rxtx", rxtx);
}

}  // namespace

cJSON* cpectl_pptpc_open(std::int32_t, const cJSON* args) {
    cJSON* reply = reply_new("pptpcOpen");
    if (!reply) return reply_lost(__func__, Lost::spaced);

    ClientSettings settings = {};
    if (!client_settings_read(args, settings)) return reply_stat(reply, "err");

    nvram_update("PPTPC_ENABLE", "YES");
    nvram_update("PPTPC_SERVER", settings.server);
    nvram_update("PPTPC_USER", settings.user);
    nvram_update("PPTPC_PWD", settings.password);
    nvram_update("PPTPC_SEC", settings.encrypt);
    nvram_update("PPTPC_NETMASK", settings.netmask);
    nvram_update("PPTPC_NET", settings.net);
    mvram_update("PPTPC_MANUAL", "");
    nvram_commit();
    shell_run(kPptpcRestart);
    return reply_stat(reply, "ok");
}

cJSON* cpectl_pptpc_oclose(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("pptpcClose");
    if (!reply) return reply_lost(__func__, Lost::spaced);

    // Kept: the encryption setting and the manual stop stay as they are.
    nvram_update("PPTPC_ENABLE", "NO");
    nvram_update("PPTPC_SERVER", "");
    nvram_update("PPTPC_USER", "");
    nvram_update("PPTPC_PWD", "");
    nvram_update("PPTPC_NETMASK", "");
    nvram_update("PPTPC_NET", "");
    nvram_commit();
    shell_run(kPptpcRestart);
    return reply_stat(reply, "ok");
}

cJSON* cpectl_pptpc_conf_get(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("pptpcConfgGet");
    cJSON* cbk = cJSON_CreateObject();
    if (!reply || !cbk) return reply_lost(__func__, Lost::spaced);

    ClientSettings stored = {};
    add_text(cbk, "enable", yes_or_no(nvram_text("PPTPC_ENABLE")));
    const char* encrypt = yes_or_no(nvram_text("PPTPC_SEC"));
    add_stored(cbk, "serverIp", "PPTPC_SERVER", stored.server);
    add_stored(cbk, "userName", "PPTPC_USER", stored.user);
    add_stored(cbk, "userPasswd", "PPTPC_PWD", stored.password);
    add_stored(cbk, "serverNet", "PPTPC_NET", stored.net);
    add_stored(cbk, "serverMask", "PPTPC_NETMASK", stored.netmask);
    add_text(cbk, "encrypt", encrypt);
    add_item(reply, "cbk", cbk);
    return reply_stat(reply, "ok");
}

cJSON* cpectl_pptpc_sta_get(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("pptpcStaGet");
    cJSON* cbk = cJSON_CreateObject();
    if (!reply || !cbk) return reply_lost(__func__, Lost::spaced);

    char device[64] = {};
    (void)text_copy(device, mvram_text("PPTPC_DEV"));
    if (!*device) (void)text_copy(device, "111");  // Kept: a name that no interface bears
    add_connection(cbk, device);
    add_item(reply, "cbk", cbk);
    return reply_stat(reply, "ok");
}

cJSON* cpectl_pptpc_reconnect(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("pptpcReconn");
    if (!reply) return reply_lost(__func__, Lost::spaced);

    mvram_update("PPTPC_MANUAL", "");
    nvram_commit();  // Kept: here and below, although only the second store may have changed
    shell_run(kPptpcRestart);
    return reply_stat(reply, "ok");
}

cJSON* cpectl_pptpc_shutdown(std::int32_t, const cJSON*) {
    cJSON* reply = reply_new("pptpcShutdown");
    if (!reply) return reply_lost(__func__, Lost::spaced);

    mvram_update("PPTPC_MANUAL", "1");
    nvram_commit();
    shell_run("killall pptpc >/dev/null 2>&1");
    shell_run("/usr/sbin/cron.sh init >/dev/null 2>&1 &");
    return reply_stat(reply, "ok");
}
