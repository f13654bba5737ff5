// Sends one DHCP client message the way a client without an address does:
// broadcast from 0.0.0.0:68 to 255.255.255.255:67, built by hand on a packet
// socket of the interface.
//   lanhost_dhcp_send IFACE TYPE MAC [IP|- [NAME]]
// TYPE is the message type (1 discover, 3 request); MAC goes into the client
// identifier; IP, unless "-", into the requested address; NAME into the host name.
#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/ip.h>
#include <netinet/udp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

constexpr size_t kBootpMinimum = 300;

uint16_t ip_checksum(const uint8_t *p, size_t n) {
    uint32_t sum = 0;
    for (size_t i = 0; i + 1 < n; i += 2)
        sum += uint32_t(p[i] << 8 | p[i + 1]);
    while (sum >> 16)
        sum = (sum & 0xFFFF) + (sum >> 16);
    return htons(uint16_t(~sum));
}

void put(std::vector<uint8_t> *out, uint8_t code, const void *value, size_t len) {
    out->push_back(code);
    out->push_back(uint8_t(len));
    auto *v = static_cast<const uint8_t *>(value);
    out->insert(out->end(), v, v + len);
}

} // namespace

int main(int argc, char **argv) {
    uint8_t mac[6];
    if (argc < 4 || sscanf(argv[3], "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &mac[0], &mac[1], &mac[2], &mac[3], &mac[4],
                           &mac[5]) != 6) {
        fprintf(stderr, "usage: %s IFACE TYPE MAC [IP|- [NAME]]\n", argv[0]);
        return 2;
    }
    std::vector<uint8_t> dhcp(240, 0);
    dhcp[0] = 1; // BOOTREQUEST
    dhcp[1] = 1; // Ethernet
    dhcp[2] = 6;
    const uint32_t xid = htonl(uint32_t(getpid()));
    memcpy(&dhcp[4], &xid, 4);
    memcpy(&dhcp[28], mac, 6);
    const uint8_t cookie[] = {99, 130, 83, 99};
    memcpy(&dhcp[236], cookie, 4);
    const uint8_t type = uint8_t(atoi(argv[2]));
    put(&dhcp, 53, &type, 1);
    uint8_t clientId[7] = {1};
    memcpy(clientId + 1, mac, 6);
    put(&dhcp, 61, clientId, sizeof clientId);
    in_addr ip;
    if (argc > 4 && strcmp(argv[4], "-") != 0) {
        if (inet_pton(AF_INET, argv[4], &ip) != 1) {
            fprintf(stderr, "bad address %s\n", argv[4]);
            return 2;
        }
        put(&dhcp, 50, &ip, 4);
    }
    if (argc > 5)
        put(&dhcp, 12, argv[5], strlen(argv[5]));
    dhcp.push_back(255);
    if (dhcp.size() < kBootpMinimum)
        dhcp.resize(kBootpMinimum, 0);

    std::vector<uint8_t> packet(sizeof(iphdr) + sizeof(udphdr) + dhcp.size());
    memcpy(packet.data() + sizeof(iphdr) + sizeof(udphdr), dhcp.data(), dhcp.size());
    auto *iph = reinterpret_cast<iphdr *>(packet.data());
    iph->version = 4;
    iph->ihl = 5;
    iph->tot_len = htons(uint16_t(packet.size()));
    iph->ttl = 64;
    iph->protocol = IPPROTO_UDP;
    iph->daddr = INADDR_BROADCAST;
    iph->check = ip_checksum(packet.data(), sizeof(iphdr));
    auto *udp = reinterpret_cast<udphdr *>(packet.data() + sizeof(iphdr));
    udp->source = htons(68);
    udp->dest = htons(67);
    udp->len = htons(uint16_t(packet.size() - sizeof(iphdr))); // checksum 0: none

    int s = socket(AF_PACKET, SOCK_DGRAM, htons(ETH_P_IP));
    sockaddr_ll to{};
    to.sll_family = AF_PACKET;
    to.sll_protocol = htons(ETH_P_IP);
    to.sll_ifindex = int(if_nametoindex(argv[1]));
    to.sll_halen = ETH_ALEN;
    memset(to.sll_addr, 0xFF, ETH_ALEN);
    if (s < 0 || to.sll_ifindex == 0 ||
        sendto(s, packet.data(), packet.size(), 0, reinterpret_cast<sockaddr *>(&to), sizeof to) < 0) {
        perror("send");
        return 1;
    }
    close(s);
    return 0;
}
