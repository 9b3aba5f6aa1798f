// Questions over netlink; see rtnetlink.h.
#include "monitor/rtnetlink.h"

#include <errno.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cstddef>
#include <cstdint>

// The kernel answers while the question is being sent; this is for a kernel that never does.
static constexpr timeval kAnswerTime = {1, 0};

mnl_socket* netlink_open(int family) {
    mnl_socket* socket = mnl_socket_open2(family, SOCK_CLOEXEC);
    if (!socket) return nullptr;
    if (mnl_socket_bind(socket, 0, MNL_SOCKET_AUTOPID) < 0) {
        mnl_socket_close(socket);
        return nullptr;
    }
    (void)setsockopt(mnl_socket_get_fd(socket), SOL_SOCKET, SO_RCVTIMEO, &kAnswerTime,
                     sizeof kAnswerTime);
    return socket;
}

nlmsghdr* netlink_request(void* buffer, unsigned type, unsigned flags) {
    nlmsghdr* request = mnl_nlmsg_put_header(buffer);
    request->nlmsg_type = static_cast<std::uint16_t>(type);
    request->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
    return request;
}

static bool answer_read(mnl_socket* socket, std::uint32_t sequence, mnl_cb_t each, void* data) {
    // Of the size that the kernel fills at most in one go.
    alignas(nlmsghdr) static char buffer[32768];
    for (;;) {
        const ssize_t size = mnl_socket_recvfrom(socket, buffer, sizeof buffer);
        if (size < 0 && errno == EINTR) continue;
        if (size < 0) return false;
        const int state = mnl_cb_run(buffer, static_cast<std::size_t>(size), sequence,
                                     mnl_socket_get_portid(socket), each, data);
        if (state <= MNL_CB_STOP) return state == MNL_CB_STOP;
    }
}

bool netlink_ask(mnl_socket* socket, nlmsghdr* request, mnl_cb_t each, void* data) {
    static std::uint32_t last_sequence;
    request->nlmsg_seq = ++last_sequence;
    // An answer that is one message ends with the acknowledgement asked for here, a dump by itself.
    if ((request->nlmsg_flags & NLM_F_DUMP) != NLM_F_DUMP) request->nlmsg_flags |= NLM_F_ACK;
    if (mnl_socket_sendto(socket, request, request->nlmsg_len) < 0) return false;
    return answer_read(socket, request->nlmsg_seq, each, data);
}

const nlattr* netlink_attribute(const nlmsghdr* message, std::size_t header_size, unsigned type) {
    const void* next = mnl_nlmsg_get_payload_offset(message, header_size);
    const auto* end = static_cast<const char*>(mnl_nlmsg_get_payload_tail(message));
    for (;;) {
        const auto* attribute = static_cast<const nlattr*>(next);
        const auto left = end - static_cast<const char*>(next);
        if (!mnl_attr_ok(attribute, static_cast<int>(left))) return nullptr;
        if (mnl_attr_get_type(attribute) == type) return attribute;
        next = mnl_attr_next(attribute);
    }
}
