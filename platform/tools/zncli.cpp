// zncli: the gateway's system commands, and the board settings a real
// board keeps in its factory data.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "znp.h"
#include "znsutils.h"

namespace {

constexpr const char *kTimerSocket = "/tmp/zn_event_agent_timer";
constexpr size_t kTimerTextMax = 255;

int usage() {
    fputs("usage: zncli sys restoredefault        restore the store's factory defaults\n"
          "       zncli sys flushnat              clear the software flow table\n"
          "       zncli board set KEY VALUE       set a board setting (province, ponmode, usbnum, BTN_MODE.Mode, ...)\n"
          "       zncli board get KEY\n"
          "       zncli board show\n"
          "       zncli log set MODULE LEVEL      raise or lower a module's log threshold at run time\n"
          "       zncli log clear MODULE          go back to the module's own threshold\n"
          "       zncli timer fire PATH           the scheduler: the timed task of store object PATH is due\n",
          stderr);
    return 2;
}

int fail(const char *what) {
    fprintf(stderr, "zncli: %s\n", what);
    return 1;
}

int cmd_sys(const std::string &what) {
    if (what == "restoredefault") {
        znp::journal("restoredefault", "zncli");
        return znsXml_restoreDefaultXml(ZNS_RESTORE_FACTORY) == 0 ? 0 : fail("restore failed");
    }
    if (what == "flushnat")
        return znp::journal("flushnat", "zncli") == 0 ? 0 : fail("journal not writable");
    return usage();
}

int cmd_board(int argc, char **argv) {
    std::string sub = argv[0];
    if (sub == "set" && argc == 3)
        return znp::board_set(argv[1], argv[2]) == 0 ? 0 : fail("bad key or value, or board file not writable");
    if (sub == "get" && argc == 2) {
        std::string v;
        if (znp::board_get(argv[1], &v) != 0)
            return fail("no such setting");
        printf("%s\n", v.c_str());
        return 0;
    }
    if (sub == "show" && argc == 1) {
        std::string out;
        znp::board_list(&out);
        fputs(out.c_str(), stdout);
        return 0;
    }
    return usage();
}

int cmd_log(int argc, char **argv) {
    std::string sub = argv[0];
    if (argc < 2 || !*argv[1] || strchr(argv[1], '/'))
        return usage();
    std::string path = std::string(znp::kLogLevelDir) + "/" + argv[1];
    if (sub == "clear" && argc == 2)
        return remove(path.c_str()) == 0 ? 0 : fail("no override in force");
    if (sub != "set" || argc != 3)
        return usage();
    char *end = nullptr;
    long level = strtol(argv[2], &end, 10);
    if (!*argv[2] || *end || level < 0 || level > 9)
        return fail("LEVEL must be 0 to 9");
    mkdir(znp::kLogLevelDir, 0755);
    FILE *f = fopen(path.c_str(), "w");
    if (!f)
        return fail("cannot write the override");
    fprintf(f, "%ld\n", level);
    return fclose(f) == 0 ? 0 : fail("cannot write the override");
}

// What the gateway's scheduler does when a timed task falls due: the task's
// store path, as one datagram, to the agent's timer socket.
int cmd_timer(int argc, char **argv) {
    if (argc != 2 || std::string(argv[0]) != "fire")
        return usage();
    const size_t len = strlen(argv[1]);
    if (len > kTimerTextMax)
        return fail("PATH has more than 255 characters");
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return fail("no socket");
    sockaddr_un to{};
    to.sun_family = AF_UNIX;
    snprintf(to.sun_path, sizeof to.sun_path, "%s", kTimerSocket);
    ssize_t sent = sendto(fd, argv[1], len, 0, reinterpret_cast<sockaddr *>(&to), sizeof to);
    close(fd);
    return sent == ssize_t(len) ? 0 : fail("the agent's timer socket takes nothing");
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 3)
        return usage();
    std::string area = argv[1];
    if (area == "sys" && argc == 3)
        return cmd_sys(argv[2]);
    if (area == "board")
        return cmd_board(argc - 2, argv + 2);
    if (area == "log")
        return cmd_log(argc - 2, argv + 2);
    if (area == "timer")
        return cmd_timer(argc - 2, argv + 2);
    return usage();
}
