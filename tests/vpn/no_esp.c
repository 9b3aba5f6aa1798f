// Preloaded into the IPsec daemon: makes it believe that the kernel took its security associations.
// Kernels of test machines often lack the protocols; all else that the daemon does is real.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <linux/netlink.h>
#include <linux/xfrm.h>
#include <stdbool.h>
#include <sys/socket.h>

static bool is_kernel_socket(int file) {
    int domain = 0, protocol = 0;
    socklen_t length = sizeof(int);
    getsockopt(file, SOL_SOCKET, SO_DOMAIN, &domain, &length);
    getsockopt(file, SOL_SOCKET, SO_PROTOCOL, &protocol, &length);
    return domain == AF_NETLINK && protocol == NETLINK_XFRM;
}

// Whether the kernel says that it has no such protocol or algorithm.
static bool is_missing(const struct nlmsgerr* reply) {
    int type = reply->msg.nlmsg_type;
    return (type == XFRM_MSG_NEWSA || type == XFRM_MSG_UPDSA) &&
           (reply->error == -EPROTONOSUPPORT || reply->error == -ENOSYS);
}

ssize_t recvfrom(int file, void* buffer, size_t size, int flags, struct sockaddr* from,
                 socklen_t* from_size) {
    ssize_t (*receive)(int, void*, size_t, int, struct sockaddr*, socklen_t*) =
        dlsym(RTLD_NEXT, "recvfrom");
    ssize_t count = receive(file, buffer, size, flags, from, from_size);
    struct nlmsghdr* message = buffer;
    if (count >= (ssize_t)NLMSG_LENGTH(sizeof(struct nlmsgerr)) && is_kernel_socket(file) &&
        message->nlmsg_type == NLMSG_ERROR) {
        struct nlmsgerr* reply = NLMSG_DATA(message);
        if (is_missing(reply)) reply->error = 0;
    }
    return count;
}
