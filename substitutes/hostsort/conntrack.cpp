// The kernel's flow table; see conntrack.h.
#include "hostsort/conntrack.h"

#include <libnetfilter_conntrack/libnetfilter_conntrack.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_conntrack.h>
#include <sys/socket.h>

using FlowCallback = void(const FlowReading&);

static FlowReading flow_reading(const nf_conntrack* flow) {
    // An attribute that is not set reads as 0.
    FlowReading reading = {};
    reading.key.number = nfct_get_attr_u32(flow, ATTR_ID);
    reading.key.began =
        static_cast<std::uint32_t>(nfct_get_attr_u64(flow, ATTR_TIMESTAMP_START) / 1000);
    reading.key.from = nfct_get_attr_u32(flow, ATTR_ORIG_IPV4_SRC);
    reading.key.to = nfct_get_attr_u32(flow, ATTR_ORIG_IPV4_DST);
    reading.key.from_port = nfct_get_attr_u16(flow, ATTR_ORIG_PORT_SRC);
    reading.key.to_port = nfct_get_attr_u16(flow, ATTR_ORIG_PORT_DST);
    reading.key.protocol = nfct_get_attr_u8(flow, ATTR_ORIG_L4PROTO);
    reading.answerer = nfct_get_attr_u32(flow, ATTR_REPL_IPV4_SRC);
    reading.sent = nfct_get_attr_u64(flow, ATTR_ORIG_COUNTER_BYTES);
    reading.answered = nfct_get_attr_u64(flow, ATTR_REPL_COUNTER_BYTES);
    return reading;
}

static int flow_take(const nlmsghdr* message, void* data) {
    FlowCallback* each = *static_cast<FlowCallback**>(data);
    nf_conntrack* flow = nfct_new();
    if (!flow) return MNL_CB_ERROR;
    if (nfct_nlmsg_parse(message, flow) == 0 && nfct_attr_is_set(flow, ATTR_ORIG_IPV4_SRC) > 0 &&
        nfct_attr_is_set(flow, ATTR_ORIG_COUNTER_BYTES) > 0)
        each(flow_reading(flow));
    nfct_destroy(flow);
    return MNL_CB_OK;
}

bool conntrack_walk(mnl_socket* socket, void (*each)(const FlowReading& flow)) {
    alignas(nlmsghdr) char buffer[64];
    constexpr unsigned kType = (NFNL_SUBSYS_CTNETLINK << 8) | IPCTNL_MSG_CT_GET;
    nlmsghdr* request = netlink_request(buffer, kType, NLM_F_DUMP);
    auto* head = static_cast<nfgenmsg*>(mnl_nlmsg_put_extra_header(request, sizeof(nfgenmsg)));
    head->nfgen_family = AF_INET;
    head->version = NFNETLINK_V0;
    return netlink_ask(socket, request, flow_take, &each);
}
