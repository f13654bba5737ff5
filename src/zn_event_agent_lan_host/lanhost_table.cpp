// The host list and the list of pending DHCP requests.
#include "lanhost_table.h"

#include <strings.h>

#include <cstdlib>

#include "agent_log.h"

lhost *hostListHead;
dhcpRequestEntry *dhcpRequestListHead;

namespace {

// Unlinks node from the singly linked list at head; whether it was there.
template <typename T> bool unlink_node(T **head, T *node) {
    for (T **link = head; *link; link = &(*link)->next) {
        if (*link == node) {
            *link = node->next;
            return true;
        }
    }
    return false;
}

// The first record of the list that match accepts, or null.
template <typename T, typename Match> T *find_node(T *head, Match &&match) {
    for (T *node = head; node; node = node->next)
        if (match(*node))
            return node;
    return nullptr;
}

// A zeroed record at the head of the list, or null.
template <typename T> T *push_new(T **head) {
    auto *node = static_cast<T *>(calloc(1, sizeof(T)));
    if (node) {
        node->next = *head;
        *head = node;
    }
    return node;
}

void del_timer(event **timer) {
    if (*timer) {
        event_del(*timer);
        event_free(*timer);
        *timer = nullptr;
    }
}

} // namespace

lhost *list_init_add_lhost() {
    lhost *host = push_new(&hostListHead);
    if (!host)
        LANHOST_LOG(1, "malloc fail\n");
    return host;
}

lhost *list_find_lhost(const char *macText) {
    return find_node(hostListHead, [macText](const lhost &h) { return strcasecmp(h.macAddr, macText) == 0; });
}

void list_del_lhost(lhost *host) {
    if (!host || !unlink_node(&hostListHead, host))
        return;
    if (host->arpTimer)
        wrapper_libevent_lhost_delArptimer(host);
    if (host->icmp6Timer)
        wrapper_libevent_lhost_delIcmp6timer(host);
    free(host);
}

dhcpRequestEntry *list_add_dhcpRequestEntry(const char *macText) {
    dhcpRequestEntry *entry = push_new(&dhcpRequestListHead);
    if (entry)
        lanhost_copy_text(entry->macAddr, macText);
    return entry;
}

dhcpRequestEntry *list_find_dhcpRequestEntry(const char *macText) {
    return find_node(dhcpRequestListHead,
                     [macText](const dhcpRequestEntry &e) { return strcmp(e.macAddr, macText) == 0; });
}

void list_del_dhcpRequestEntry(dhcpRequestEntry *entry) {
    if (entry && unlink_node(&dhcpRequestListHead, entry))
        free(entry);
}

void list_reset_dhcpRequestEntry() {
    while (dhcpRequestListHead)
        list_del_dhcpRequestEntry(dhcpRequestListHead);
}

int wrapper_libevent_lhost_delArptimer(lhost *host) {
    del_timer(&host->arpTimer);
    LANHOST_LOG(3, "del arpping timer");
    return 0;
}

int wrapper_libevent_lhost_delIcmp6timer(lhost *host) {
    del_timer(&host->icmp6Timer);
    LANHOST_LOG(3, "del icmp6 timer");
    return 0;
}
