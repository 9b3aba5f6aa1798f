// The kernel's neighbour table; see neighbours.h.
#include "monitor/neighbours.h"

#include <linux/rtnetlink.h>
#include <stdlib.h>
#include <string.h>

static constexpr unsigned kStatesInUse =
    NUD_REACHABLE | NUD_STALE | NUD_DELAY | NUD_PROBE | NUD_PERMANENT;

static bool neighbour_add(NeighbourList& neighbours, const Neighbour& neighbour) {
    constexpr std::size_t kFirstRoom = 64;
    const std::size_t count = neighbours.count;
    if (count == neighbours.count_max) return true;
    if (count == 0 || (count >= kFirstRoom && (count & (count - 1)) == 0)) {
        const std::size_t room = count < kFirstRoom ? kFirstRoom : 2 * count;
        void* list = realloc(neighbours.list, room * sizeof(Neighbour));
        if (!list) return false;
        neighbours.list = static_cast<Neighbour*>(list);
    }
    neighbours.list[neighbours.count++] = neighbour;
    return true;
}

static bool value_copy(const nlattr* attribute, void* out, std::size_t size) {
    if (!attribute || mnl_attr_get_payload_len(attribute) != size) return false;
    memcpy(out, mnl_attr_get_payload(attribute), size);
    return true;
}

static int neighbour_take(const nlmsghdr* message, void* data) {
    NeighbourList& neighbours = *static_cast<NeighbourList*>(data);
    const auto* head = static_cast<const ndmsg*>(mnl_nlmsg_get_payload(message));
    const auto device = static_cast<std::uint32_t>(head->ndm_ifindex);
    if (head->ndm_family != AF_INET || (head->ndm_state & kStatesInUse) == 0) return MNL_CB_OK;
    if (neighbours.device != 0 && neighbours.device != device) return MNL_CB_OK;

    Neighbour neighbour;
    const nlattr* address = netlink_attribute(message, sizeof *head, NDA_DST);
    const nlattr* mac = netlink_attribute(message, sizeof *head, NDA_LLADDR);
    if (!value_copy(address, &neighbour.address, sizeof neighbour.address)) return MNL_CB_OK;
    if (!value_copy(mac, neighbour.mac, sizeof neighbour.mac)) return MNL_CB_OK;
    return neighbour_add(neighbours, neighbour) ? MNL_CB_OK : MNL_CB_ERROR;
}

bool neighbours_read(mnl_socket* socket, NeighbourList& neighbours) {
    alignas(nlmsghdr) char buffer[64];
    nlmsghdr* request = netlink_request(buffer, RTM_GETNEIGH, NLM_F_DUMP);
    auto* head = static_cast<ndmsg*>(mnl_nlmsg_put_extra_header(request, sizeof(ndmsg)));
    head->ndm_family = AF_INET;
    neighbours.list = nullptr;
    neighbours.count = 0;
    return netlink_ask(socket, request, neighbour_take, &neighbours);
}
