// One question to the kernel over a netlink socket, with all of its answers.
#pragma once

#include <libmnl/libmnl.h>

#include <cstddef>

// Opens a socket for one netlink family, NETLINK_ROUTE say; null when that fails. The owner closes
// it with mnl_socket_close().
mnl_socket* netlink_open(int family);

// Begins a request in `buffer`, which is aligned for it and large enough: an empty message of this
// type, `flags` besides NLM_F_REQUEST.
nlmsghdr* netlink_request(void* buffer, unsigned type, unsigned flags);

// Sends a request and calls `each` with every message of the answer. True when the kernel answered
// completely; an error that it reports is a failure. `each` returns MNL_CB_OK to go on.
[[nodiscard]] bool netlink_ask(mnl_socket* socket, nlmsghdr* request, mnl_cb_t each, void* data);

// The first attribute of this type behind a message's own header of `header_size` bytes; null when
// there is none.
const nlattr* netlink_attribute(const nlmsghdr* message, std::size_t header_size, unsigned type);
