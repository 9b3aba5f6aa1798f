// The user netlink channel to the gateway's kernel side, as libnetlink.so offers it, with the
// layouts of the WAN rate query. All numbers are in the byte order of the host.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    kWanRateUnit = 102,        // the netlink unit of the rate channel
    kWanRateRequestType = 17,  // asks for the rates of the WAN links
    kWanRateRequestCode = 4,
};

// The query, 48 bytes. Every byte without a name of its own is zero.
struct WanRateRequest {
    uint8_t header[16];  // space for the channel's own header
    uint32_t type;       // kWanRateRequestType
    uint32_t length;     // size of this record
    uint32_t reserved[4];
    uint32_t code;  // kWanRateRequestCode
    uint32_t unit;  // kWanRateUnit
};

// One link of the reply, 48 bytes.
struct WanRateEntry {
    int32_t down_rate;  // bits per second
    int32_t up_rate;    // bits per second
    uint8_t reserved[8];
    char name[32];  // "WAN1" .. "WAN4", NUL-terminated
};

// The head of the reply, 48 bytes; `count` entries follow it.
struct WanRateReply {
    uint8_t header[24];
    int32_t count;
    uint8_t reserved[20];
};

// Opens and registers the channel. 0 on success, negative on failure.
int user_netlink_regist(int unit, int flag);

// Sends `length` bytes of a request. 0 or more on success, negative on failure.
int netlink_send_user(int unit, void* request, int length);

// Waits for the reply and calls `callback` with it once; the reply belongs to the library and is
// gone when the callback returns. 0 or more on success, negative on failure (no callback then).
int netlink_receive_user(int (*callback)(void* reply));

// Closes the channel.
void user_netlink_unregist(void);

#ifdef __cplusplus
}

static_assert(sizeof(WanRateRequest) == 48);
static_assert(offsetof(WanRateRequest, header) == 0);
static_assert(offsetof(WanRateRequest, type) == 16);
static_assert(offsetof(WanRateRequest, length) == 20);
static_assert(offsetof(WanRateRequest, reserved) == 24);
static_assert(offsetof(WanRateRequest, code) == 40);
static_assert(offsetof(WanRateRequest, unit) == 44);
static_assert(sizeof(WanRateReply) == 48);
static_assert(offsetof(WanRateReply, count) == 24);
static_assert(sizeof(WanRateEntry) == 48);
static_assert(offsetof(WanRateEntry, down_rate) == 0);
static_assert(offsetof(WanRateEntry, up_rate) == 4);
static_assert(offsetof(WanRateEntry, name) == 16);
#endif
