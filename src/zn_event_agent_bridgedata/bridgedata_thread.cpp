// The worker of the channel: its netlink socket, the commands to the
// kernel, and the store writes of the reports it reads.
#include <linux/netlink.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "agent_log.h"
#include "agent_store.h"
#include "bridgedata.h"

namespace {

constexpr uint32_t kBridgeDataOid = 272;
constexpr uint16_t kConnect = 1;
constexpr uint16_t kDisconnect = 2;

// The listener a command names, behind the netlink header.
struct Command {
    nlmsghdr hdr;
    uint32_t pid;
};
static_assert(sizeof(Command) == 20, "a command is 20 bytes");

sockaddr_nl kernel_address() {
    sockaddr_nl addr;
    memset(&addr, 0, sizeof addr);
    addr.nl_family = AF_NETLINK;
    return addr;
}

// A message of one buffer with its netlink peer, for sendmsg and recvmsg.
msghdr one_buffer_msg(sockaddr_nl *peer, iovec *iov) {
    msghdr msg;
    memset(&msg, 0, sizeof msg);
    msg.msg_name = peer;
    msg.msg_namelen = sizeof *peer;
    msg.msg_iov = iov;
    msg.msg_iovlen = 1;
    return msg;
}

// Overwrites the bridge data node with the report, each report with a
// handle of its own; the store isn't saved here.
void store_report(const bridgedataReport &r) {
    ScopedStore store;
    if (!store.get()) {
        // Reported as a step of the read, which the line names.
        zns_log_print(__FILE__, "brigedata_update_znsnode", __LINE__, 1, "XMLSHMINIT init error\n");
        return;
    }
    void *node = znsXml_GetObjectByOID(store.get(), kBridgeDataOid, 0, 1);
    zns_param_list_t *list = node ? newParameterList() : nullptr;
    if (!list)
        return;
    const struct {
        const char *name;
        uint32_t type;
        const void *value;
    } params[] = {
        {"InterfaceName", ZNS_TYPE_STRING, r.InterfaceName},
        {"sessionID", ZNS_TYPE_UINT32, &r.sessionID},
        {"smac", ZNS_TYPE_STRING, r.smac},
        {"dmac", ZNS_TYPE_STRING, r.dmac},
        {"ip", ZNS_TYPE_STRING, r.ip},
        {"dns", ZNS_TYPE_STRING, r.dns},
    };
    for (const auto &p : params)
        setParameterToList(list, p.name, p.type, p.value);
    znsXml_setParameterIndirectByParaList(store.get(), znsXmlGetPtrOffset(store.get(), node), list);
    freeParameterList(list);
    printf("brigedata_update_znsnode dev=%s, sessionID=%d \n", r.InterfaceName, int(r.sessionID));
    printf("    smac=%s \n", r.smac);
    printf("    dmac=%s \n", r.dmac);
    printf("    ip=%s \n", r.ip);
    printf("    dns=%s \n", r.dns);
    fflush(stdout);
}

// Sends the command of the type for this process; the result of the send.
int command(int fd, uint16_t type, const char *verb) {
    const pid_t pid = getpid();
    int ret = bridgedataMsgSend(fd, type, &pid);
    if (ret < 0)
        printf("bridgedata-event_agent %s to kernel fail(ret=%d) \n", verb, ret);
    return ret;
}

} // namespace

int bridgedataMsgSend(int fd, uint16_t type, const pid_t *pid) {
    auto *cmd = static_cast<Command *>(calloc(1, sizeof(Command)));
    if (!cmd) {
        puts("bridgedata-event_agent malloc netlink msg header fail ");
        return -1;
    }
    cmd->hdr.nlmsg_len = sizeof(Command);
    cmd->hdr.nlmsg_type = type;
    cmd->hdr.nlmsg_pid = uint32_t(*pid);
    cmd->pid = uint32_t(*pid);
    sockaddr_nl kernel = kernel_address();
    iovec iov{cmd, sizeof(Command)};
    msghdr msg = one_buffer_msg(&kernel, &iov);
    int ret = int(sendmsg(fd, &msg, 0));
    if (ret < 0)
        printf("bridgedata-event_agent sendmsg to kernel fail(ret=%d) \n", ret);
    free(cmd);
    return ret;
}

int bridgedataConnect(int fd) { return command(fd, kConnect, "connect"); }

int bridgedataDisconnect(int fd) { return command(fd, kDisconnect, "disconnect"); }

void brigedata_update_znsnode(int fd) {
    uint8_t buf[kBridgeDataReadSize] = {};
    sockaddr_nl from;
    iovec iov{buf, sizeof buf};
    msghdr msg = one_buffer_msg(&from, &iov);
    ssize_t len = recvmsg(fd, &msg, 0);
    if (len <= 0) {
        printf("bridgedata-event_agent recvmsg fail(len=%d) \n", int(len));
        return;
    }
    if (size_t(len) < sizeof(nlmsghdr))
        return;
    bridgedata_walk(buf, size_t(len), store_report);
}

void *bridgedataThread(void *) {
    int fd = socket(AF_NETLINK, SOCK_RAW, kBridgeDataProtocol);
    if (fd < 0) {
        printf("bridgedata-event_agent create netlink socket fail(fd=%d) \n", fd);
    } else {
        sockaddr_nl addr = kernel_address();
        addr.nl_pid = uint32_t(getpid());
        int ret = bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr);
        if (ret < 0) {
            printf("bridgedata-event_agent netlink bind to pid %d fail(ret=%d) \n", int(getpid()), ret);
            close(fd);
        } else if (bridgedataConnect(fd) < 0) {
            close(fd);
        } else {
            for (;;)
                brigedata_update_znsnode(fd);
        }
    }
    pthread_detach(pthread_self());
    pthread_exit(nullptr);
}
