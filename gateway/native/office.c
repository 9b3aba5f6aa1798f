// A busy office around the emulated gateway: hosts in network namespaces of their own behind
// eth0.5, the world beyond two WAN links, datagrams that keep flowing between them, and a wireless
// daemon's control socket. Ends when all that stands; the processes it leaves keep the traffic up
// until the gateway's run is over.
//
// What the gateway then tells is measured: the kernel routes and counts each of these datagrams.
#include <arpa/inet.h>
#include <errno.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sched.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

enum { kPort = 7000, kPayloadMax = 1400 };
enum { kWarmUp = 300, kPatience = 8000 };  // milliseconds

// What a host does: every `pause` milliseconds it sends `up` bytes and gets `down` bytes back, over
// one of the WAN links. Pause 0: it says something once.
struct Host {
    int number;  // last part of its address
    int wan;
    int pause;
    uint32_t up;
    uint32_t down;
    int is_wireless;
};

static const struct Host kHosts[] = {
    {20, 0, 4, 60, 1400, 1},   // watches a film
    {21, 0, 10, 1400, 60, 0},  // sends a backup
    {22, 0, 40, 120, 900, 1},  // reads the news
    {23, 1, 20, 200, 200, 0},  // makes a call
    {24, 0, 0, 60, 60, 0},     // sleeps
};
enum { kHostCount = sizeof kHosts / sizeof kHosts[0], kWanCount = 2 };

static const char* const kFar[kWanCount] = {"203.0.113.10", "198.51.100.10"};
static const char* const kNear[kWanCount] = {"203.0.113.1", "198.51.100.1"};

static void fail(const char* what) {
    fprintf(stderr, "office: %s: %s\n", what, strerror(errno));
    exit(1);
}

// ---- the network

// Hands lines to the ip tool, in the namespace of this process.
static void ip_run(const char* lines) {
    int ends[2];
    if (pipe(ends) != 0) fail("pipe");
    const pid_t tool = fork();
    if (tool < 0) fail("fork");
    if (tool == 0) {
        dup2(ends[0], STDIN_FILENO);
        close(ends[0]);
        close(ends[1]);
        execl("/sbin/ip", "ip", "-batch", "-", (char*)NULL);
        fail("/sbin/ip");
    }
    close(ends[0]);
    const size_t length = strlen(lines);
    const int written = write(ends[1], lines, length) == (ssize_t)length;
    close(ends[1]);
    int status = 0;
    if (waitpid(tool, &status, 0) != tool || !written || status != 0) {
        fprintf(stderr, "office: the network cannot be made\n");
        exit(1);
    }
}

static void setting_write(const char* name) {
    char path[128];
    snprintf(path, sizeof path, "/proc/sys/net/%s", name);
    FILE* file = fopen(path, "we");
    if (!file || fputs("1\n", file) < 0 || fclose(file) != 0) fail(path);
}

// Forwarding, and the accounting of flows. The gateway's /proc is read-only, so a process of its
// own mounts another one, which nobody else sees.
static void settings_write(void) {
    const pid_t writer = fork();
    if (writer < 0) fail("fork");
    if (writer == 0) {
        if (unshare(CLONE_NEWNS) != 0 || mount(NULL, "/", NULL, MS_REC | MS_PRIVATE, NULL) != 0)
            fail("a mount namespace");
        if (mount("proc", "/proc", "proc", 0, NULL) != 0) fail("/proc");
        setting_write("ipv4/ip_forward");
        setting_write("netfilter/nf_conntrack_acct");
        _exit(0);
    }
    int status = 0;
    if (waitpid(writer, &status, 0) != writer || status != 0) exit(1);
}

// ---- the rule that makes the kernel track connections

// Netlink messages under construction.
struct Batch {
    size_t size;
    _Alignas(8) char bytes[1024];
};

static void* batch_add(struct Batch* batch, size_t size) {
    void* place = batch->bytes + batch->size;
    batch->size += NLMSG_ALIGN(size);
    if (batch->size > sizeof batch->bytes) abort();
    return place;
}

static struct nlmsghdr* message_begin(struct Batch* batch, int type, int flags, int family,
                                      int resource) {
    static uint32_t sequence;
    struct nlmsghdr* message = batch_add(batch, NLMSG_HDRLEN);
    message->nlmsg_type = (uint16_t)type;
    message->nlmsg_flags = (uint16_t)(NLM_F_REQUEST | flags);
    message->nlmsg_seq = ++sequence;
    struct nfgenmsg* head = batch_add(batch, sizeof *head);
    head->nfgen_family = (uint8_t)family;
    head->res_id = htons((uint16_t)resource);
    return message;
}

static struct nlmsghdr* table_message(struct Batch* batch, int type) {
    return message_begin(batch, NFNL_SUBSYS_NFTABLES << 8 | type, NLM_F_CREATE, NFPROTO_IPV4, 0);
}

static void message_end(struct Batch* batch, struct nlmsghdr* message) {
    message->nlmsg_len = (uint32_t)(batch->bytes + batch->size - (char*)message);
}

static struct nlattr* attribute_add(struct Batch* batch, int type, const void* data, size_t size) {
    struct nlattr* attribute = batch_add(batch, sizeof(struct nlattr) + size);
    attribute->nla_type = (uint16_t)type;
    attribute->nla_len = (uint16_t)(sizeof(struct nlattr) + size);
    if (size > 0) memcpy((char*)attribute + sizeof(struct nlattr), data, size);
    return attribute;
}

static void text_add(struct Batch* batch, int type, const char* text) {
    attribute_add(batch, type, text, strlen(text) + 1);
}

static void number_add(struct Batch* batch, int type, uint32_t number) {
    const uint32_t in_network_order = htonl(number);
    attribute_add(batch, type, &in_network_order, sizeof in_network_order);
}

static struct nlattr* nest_begin(struct Batch* batch, int type) {
    return attribute_add(batch, type | NLA_F_NESTED, NULL, 0);
}

static void nest_end(struct Batch* batch, struct nlattr* nest) {
    nest->nla_len = (uint16_t)(batch->bytes + batch->size - (char*)nest);
}

static void table_add(struct Batch* batch) {
    struct nlmsghdr* message = table_message(batch, NFT_MSG_NEWTABLE);
    text_add(batch, NFTA_TABLE_NAME, "office");
    message_end(batch, message);
}

static void chain_add(struct Batch* batch) {
    struct nlmsghdr* message = table_message(batch, NFT_MSG_NEWCHAIN);
    text_add(batch, NFTA_CHAIN_TABLE, "office");
    text_add(batch, NFTA_CHAIN_NAME, "through");
    text_add(batch, NFTA_CHAIN_TYPE, "filter");
    struct nlattr* hook = nest_begin(batch, NFTA_CHAIN_HOOK);
    number_add(batch, NFTA_HOOK_HOOKNUM, NF_INET_FORWARD);
    number_add(batch, NFTA_HOOK_PRIORITY, 0);
    nest_end(batch, hook);
    message_end(batch, message);
}

// A rule that looks at a flow's state and does nothing: it is enough that there is one.
static void rule_add(struct Batch* batch) {
    struct nlmsghdr* message = table_message(batch, NFT_MSG_NEWRULE);
    text_add(batch, NFTA_RULE_TABLE, "office");
    text_add(batch, NFTA_RULE_CHAIN, "through");
    struct nlattr* expressions = nest_begin(batch, NFTA_RULE_EXPRESSIONS);
    struct nlattr* expression = nest_begin(batch, NFTA_LIST_ELEM);
    text_add(batch, NFTA_EXPR_NAME, "ct");
    struct nlattr* data = nest_begin(batch, NFTA_EXPR_DATA);
    number_add(batch, NFTA_CT_DREG, NFT_REG_1);
    number_add(batch, NFTA_CT_KEY, NFT_CT_STATE);
    nest_end(batch, data);
    nest_end(batch, expression);
    nest_end(batch, expressions);
    message_end(batch, message);
}

// Sends the batch and waits for the answer to its one acknowledged message.
static void batch_send(const struct Batch* batch) {
    const int channel = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_NETFILTER);
    _Alignas(8) char answer[4096];
    if (channel < 0 || send(channel, batch->bytes, batch->size, 0) < 0 ||
        recv(channel, answer, sizeof answer, 0) < (ssize_t)(NLMSG_HDRLEN + sizeof(int)))
        fail("netfilter");
    close(channel);
    int error;
    memcpy(&error, answer + NLMSG_HDRLEN, sizeof error);
    errno = -error;
    if (error != 0) fail("connection tracking");
}

static void tracking_start(void) {
    struct Batch batch = {0};
    struct nlmsghdr* begin =
        message_begin(&batch, NFNL_MSG_BATCH_BEGIN, 0, AF_UNSPEC, NFNL_SUBSYS_NFTABLES);
    message_end(&batch, begin);
    table_add(&batch);
    chain_add(&batch);
    struct nlmsghdr* rule = (struct nlmsghdr*)(batch.bytes + batch.size);
    rule_add(&batch);
    rule->nlmsg_flags |= NLM_F_ACK | NLM_F_APPEND;
    struct nlmsghdr* end =
        message_begin(&batch, NFNL_MSG_BATCH_END, 0, AF_UNSPEC, NFNL_SUBSYS_NFTABLES);
    message_end(&batch, end);
    batch_send(&batch);
}

// ---- hosts and the far side

static void pause_for(int milliseconds) {
    const struct timespec time = {milliseconds / 1000, milliseconds % 1000 * 1000000L};
    nanosleep(&time, NULL);
}

static struct sockaddr_in address_of(const char* text, int port) {
    struct sockaddr_in address = {.sin_family = AF_INET, .sin_port = htons((uint16_t)port)};
    inet_pton(AF_INET, text, &address.sin_addr);
    return address;
}

// Takes the answers that have come. True when there was one.
static int answers_take(int channel) {
    char answer[kPayloadMax];
    int any = 0;
    while (recv(channel, answer, sizeof answer, MSG_DONTWAIT) > 0)
        any = 1;
    return any;
}

// Talks until the end, and says so at `ready` when the first answer has come: the kernel takes up
// to a second to let new devices through.
static void host_talk(const struct Host* host, int ready) {
    const struct sockaddr_in far = address_of(kFar[host->wan], kPort);
    const int channel = socket(AF_INET, SOCK_DGRAM, 0);
    if (channel < 0 || connect(channel, (const struct sockaddr*)&far, sizeof far) != 0)
        fail("a host");
    char payload[kPayloadMax] = {0};
    memcpy(payload, &host->down, sizeof host->down);  // the far side sends so much back
    for (int heard = 0; !heard || host->pause > 0;) {
        (void)!send(channel, payload, host->up, 0);
        pause_for(host->pause > 0 ? host->pause : 50);
        if (!answers_take(channel) || heard) continue;
        heard = write(ready, "", 1) == 1;
    }
    for (;;)
        pause();
}

static void host_run(const void* which, int ready) {
    const struct Host* host = which;
    char lines[512];
    snprintf(lines, sizeof lines,
             "link set lan%dx address 02:00:5e:10:00:%02d up\n"
             "addr add 192.168.1.%d/24 dev lan%dx\n"
             "route add default via 192.168.1.1\n",
             host->number, host->number, host->number, host->number);
    ip_run(lines);
    host_talk(host, ready);
}

static void far_run(const void* unused, int ready) {
    (void)unused;
    (void)ready;
    for (int i = 0; i < kWanCount; i++) {
        char lines[256];
        snprintf(lines, sizeof lines, "link set wan%dx up\naddr add %s/24 dev wan%dx\n", i, kFar[i],
                 i);
        ip_run(lines);
    }
    for (int i = 0; i < kHostCount; i++) {
        char line[64];
        snprintf(line, sizeof line, "route add 192.168.1.%d/32 via %s\n", kHosts[i].number,
                 kNear[kHosts[i].wan]);
        ip_run(line);
    }

    const int channel = socket(AF_INET, SOCK_DGRAM, 0);
    const struct sockaddr_in any = address_of("0.0.0.0", kPort);
    if (channel < 0 || bind(channel, (const struct sockaddr*)&any, sizeof any) != 0) fail("far");
    for (;;) {
        char payload[kPayloadMax];
        struct sockaddr_in from;
        socklen_t size = sizeof from;
        const ssize_t got =
            recvfrom(channel, payload, sizeof payload, 0, (struct sockaddr*)&from, &size);
        uint32_t down = 0;
        if (got >= (ssize_t)sizeof down) memcpy(&down, payload, sizeof down);
        if (down > 0 && down <= sizeof payload)
            (void)!sendto(channel, payload, down, 0, (struct sockaddr*)&from, size);
    }
}

// A process in a network namespace of its own. It waits for a byte at `go`; at `ready` it says when
// its namespace is there, and later what it has to say.
struct Place {
    pid_t process;
    int go;
    int ready;
};

static struct Place place_start(void (*run)(const void*, int ready), const void* argument) {
    int ready[2], go[2];
    if (pipe(ready) != 0 || pipe(go) != 0) fail("pipe");
    const pid_t process = fork();
    if (process < 0) fail("fork");
    char byte = 0;
    if (process == 0) {
        if (unshare(CLONE_NEWNET) != 0) fail("a network namespace");
        if (write(ready[1], &byte, 1) != 1 || read(go[0], &byte, 1) != 1) _exit(1);
        run(argument, ready[1]);
        _exit(1);
    }
    close(ready[1]);
    close(go[0]);
    if (read(ready[0], &byte, 1) != 1) exit(1);
    return (struct Place){process, go[1], ready[0]};
}

static void place_go(const struct Place* place) {
    if (write(place->go, "", 1) != 1) fail("a place");
    close(place->go);
}

// Waits until the place says that it is ready.
static void place_await(const struct Place* place) {
    struct pollfd waiting = {place->ready, POLLIN, 0};
    char byte;
    if (poll(&waiting, 1, kPatience) <= 0 || read(place->ready, &byte, 1) != 1) {
        fprintf(stderr, "office: a host is not heard\n");
        exit(1);
    }
    close(place->ready);
}

static void device_pair(const char* name, int number, pid_t other_end) {
    char lines[256];
    snprintf(lines, sizeof lines,
             "link add name %s%d type veth peer name %s%dx\nlink set %s%dx netns %d\n"
             "link set %s%d up\n",
             name, number, name, number, name, number, (int)other_end, name, number);
    ip_run(lines);
}

static void network_make(void) {
    ip_run(
        "link add eth0.5 address 02:00:5e:10:00:01 type bridge forward_delay 0\n"
        "addr add 192.168.1.1/24 dev eth0.5\nlink set eth0.5 up\n");
    settings_write();
    tracking_start();

    struct Place far = place_start(far_run, NULL);
    for (int i = 0; i < kWanCount; i++) {
        device_pair("wan", i, far.process);
        char line[64];
        snprintf(line, sizeof line, "addr add %s/24 dev wan%d\n", kNear[i], i);
        ip_run(line);
    }
    place_go(&far);
    struct Place hosts[kHostCount];
    for (int i = 0; i < kHostCount; i++) {
        hosts[i] = place_start(host_run, &kHosts[i]);
        device_pair("lan", kHosts[i].number, hosts[i].process);
        char line[64];
        snprintf(line, sizeof line, "link set lan%d master eth0.5\n", kHosts[i].number);
        ip_run(line);
        place_go(&hosts[i]);
    }
    for (int i = 0; i < kHostCount; i++)
        place_await(&hosts[i]);
}

// ---- the wireless daemon

// The wireless host number `index` as the daemon tells it; nothing behind the last one.
static void station_print(int index, char* out, size_t size) {
    out[0] = '\0';
    for (int i = 0; i < kHostCount; i++) {
        if (!kHosts[i].is_wireless || index-- > 0) continue;
        snprintf(out, size, "02:00:5e:10:00:%02d\nflags=[AUTH][ASSOC][AUTHORIZED]\naid=%d\n",
                 kHosts[i].number, i + 1);
        return;
    }
}

// The index of the wireless host behind the one that a "STA-NEXT" names; -1 when there is none.
static int station_after(const char* mac) {
    char text[128];
    for (int index = 0;; index++) {
        station_print(index, text, sizeof text);
        if (!*text) return -1;
        if (strncmp(text, mac, strlen("02:00:5e:10:00:00")) == 0) return index + 1;
    }
}

static void daemon_answer(const char* command, char* out, size_t size) {
    const char next[] = "STA-NEXT ";
    const int is_next = strncmp(command, next, sizeof next - 1) == 0;
    const int after = is_next ? station_after(command + sizeof next - 1) : 0;
    if (strcmp(command, "GET_CONFIG") == 0)
        snprintf(out, size, "bssid=02:00:5e:10:00:01\nssid=Office\n");
    else if (strcmp(command, "STA-FIRST") == 0 || (is_next && after >= 0))
        station_print(after, out, size);
    else
        snprintf(out, size, "%s\n", strncmp(command, "DEAUTH", 6) == 0 ? "OK" : "FAIL");
}

_Noreturn static void daemon_run(int channel) {
    for (;;) {
        char command[128], answer[256];
        struct sockaddr_un from;
        socklen_t size = sizeof from;
        const ssize_t got =
            recvfrom(channel, command, sizeof command - 1, 0, (struct sockaddr*)&from, &size);
        command[got > 0 ? got : 0] = '\0';
        daemon_answer(command, answer, sizeof answer);
        (void)!sendto(channel, answer, strlen(answer), 0, (struct sockaddr*)&from, size);
    }
}

static void daemon_start(void) {
    struct sockaddr_un own = {.sun_family = AF_UNIX, .sun_path = "/var/run/hostapd/wlan0"};
    mkdir("/var/run/hostapd", 0755);
    unlink(own.sun_path);
    const int channel = socket(AF_UNIX, SOCK_DGRAM, 0);
    if (channel < 0 || bind(channel, (struct sockaddr*)&own, sizeof own) != 0) fail(own.sun_path);
    const pid_t process = fork();
    if (process < 0) fail("fork");
    if (process == 0) daemon_run(channel);
    close(channel);
}

int main(void) {
    network_make();
    daemon_start();
    pause_for(kWarmUp);
    return 0;
}
