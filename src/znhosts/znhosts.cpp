// znhosts: the gateway's LAN host table as the store publishes it, for a
// person at the console (aligned columns, redrawn with --watch) or a script
// (--json). It reads through the store's public calls only, so it runs
// unchanged against the gateway's own store library.
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include <unistd.h>

#include "znsutils.h"

namespace {

constexpr uint32_t kOidHosts = 155, kOidHost = 156, kOidOfflineHost = 159;
constexpr int kMaxIndex = 255;            // both tables hold indexes 1 to 255
constexpr size_t kHostsCounterOffset = 8; // moves on every change under Hosts
constexpr const char kPortPrefix[] = "InternetGatewayDevice.LANDevice.1.";
constexpr useconds_t kWatchPollUs = 200 * 1000;

enum class Kind { Text, Mac, U32, I32, Bool };

struct Field {
    const char *name; // the store's parameter name, also the JSON key
    Kind kind;
    bool offline; // present in OfflineHost objects too
};

constexpr Field kFields[] = {
    {"MACAddress", Kind::Mac, true},
    {"IPAddress", Kind::Text, true},
    {"AddressSource", Kind::Text, true},
    {"HostName", Kind::Text, true},
    {"Layer2Interface", Kind::Text, true},
    {"InterfaceType", Kind::Text, true},
    {"DeviceType", Kind::U32, true},
    {"Active", Kind::Bool, false},
    {"ipv6Active", Kind::Bool, false},
    {"LeaseTimeRemaining", Kind::I32, false},
    {"X_ZN_IPV6LocalAddress", Kind::Text, true},
    {"X_ZN_IPV6Address", Kind::Text, true},
    {"X_ZN_GUAIPAddress", Kind::Text, true},
    {"UTCDowntime", Kind::U32, true},
    {"CustomiseName", Kind::Text, true},
    {"Vendor", Kind::Text, false},
    {"X_ZN_DUID", Kind::Text, false},
    {"StartUptime", Kind::U32, false},
    {"X_ZN_V6LeaseTimeRemaining", Kind::I32, false},
};
constexpr size_t kFieldCount = sizeof kFields / sizeof kFields[0];

// One object of either table: its index and each field as text (numbers in
// decimal), empty for a field the object lacks.
struct Row {
    int index;
    std::string value[kFieldCount];
};

std::string field_text(zns_xml_handle_t *h, uint32_t oid, zns_ia_t ia, const Field &f) {
    // Wider than any field of the Host objects, whatever their widths.
    union {
        char text[512];
        uint8_t mac[6];
        uint32_t u32;
        int32_t i32;
        uint8_t byte;
    } v;
    memset(&v, 0, sizeof v);
    if (znsXml_getParameterByOID(h, oid, ia, f.name, &v) != 0)
        return "";
    char out[32];
    switch (f.kind) {
    case Kind::Text:
        v.text[sizeof v.text - 1] = '\0';
        return v.text;
    case Kind::Mac:
        snprintf(out, sizeof out, "%02x:%02x:%02x:%02x:%02x:%02x", v.mac[0], v.mac[1], v.mac[2], v.mac[3], v.mac[4],
                 v.mac[5]);
        return out;
    case Kind::U32:
        snprintf(out, sizeof out, "%u", v.u32);
        return out;
    case Kind::I32:
        snprintf(out, sizeof out, "%d", v.i32);
        return out;
    case Kind::Bool:
        snprintf(out, sizeof out, "%u", v.byte);
        return out;
    }
    return "";
}

std::vector<Row> read_table(zns_xml_handle_t *h, uint32_t oid) {
    std::vector<Row> rows;
    for (int i = 1; i <= kMaxIndex; i++) {
        zns_ia_t ia = znsXml_ConstructIAValue(__FILE__, __func__, __LINE__, 2, "1,%d", i);
        if (!znsXml_GetObjectByOID(h, oid, ia, 1))
            continue;
        Row r{i, {}};
        for (size_t f = 0; f < kFieldCount; f++)
            if (oid == kOidHost || kFields[f].offline)
                r.value[f] = field_text(h, oid, ia, kFields[f]);
        rows.push_back(std::move(r));
    }
    return rows;
}

size_t field_index(const char *name) {
    for (size_t f = 0; f < kFieldCount; f++)
        if (strcmp(kFields[f].name, name) == 0)
            return f;
    return kFieldCount; // never: every caller names a field of the table
}

const std::string &get(const Row &r, const char *name) { return r.value[field_index(name)]; }

// ---- JSON ----------------------------------------------------------------

// The lead bytes of UTF-8 sequences of two to four bytes (RFC 3629), with the
// range the second byte must lie in; every later byte is 0x80 to 0xbf.
struct Utf8Lead {
    uint8_t lo, hi;
    size_t len;
    uint8_t second_lo, second_hi;
};
constexpr Utf8Lead kUtf8Leads[] = {
    {0xc2, 0xdf, 2, 0x80, 0xbf}, {0xe0, 0xe0, 3, 0xa0, 0xbf}, {0xe1, 0xec, 3, 0x80, 0xbf}, {0xed, 0xed, 3, 0x80, 0x9f},
    {0xee, 0xef, 3, 0x80, 0xbf}, {0xf0, 0xf0, 4, 0x90, 0xbf}, {0xf1, 0xf3, 4, 0x80, 0xbf}, {0xf4, 0xf4, 4, 0x80, 0x8f},
};

// The bytes at s that make a whole UTF-8 sequence of two or more bytes, with
// *whole set, or else the broken start of one: its lead byte and the bytes
// that fitted after it.
size_t utf8_step(const unsigned char *s, size_t left, bool *whole) {
    *whole = false;
    for (const Utf8Lead &l : kUtf8Leads) {
        if (s[0] < l.lo || s[0] > l.hi)
            continue;
        for (size_t i = 1; i < l.len; i++) {
            const uint8_t lo = i == 1 ? l.second_lo : 0x80, hi = i == 1 ? l.second_hi : 0xbf;
            if (i >= left || s[i] < lo || s[i] > hi)
                return i;
        }
        *whole = true;
        return l.len;
    }
    return 1;
}

// A JSON string of any bytes: valid UTF-8 stays, each broken sequence
// becomes one U+FFFD, control bytes are escaped.
std::string json_string(const std::string &s) {
    std::string out = "\"";
    const auto *bytes = reinterpret_cast<const unsigned char *>(s.data());
    for (size_t i = 0, step = 1; i < s.size(); i += step) {
        const unsigned char c = bytes[i];
        bool whole = false;
        step = c < 0x80 ? 1 : utf8_step(bytes + i, s.size() - i, &whole);
        if (c < 0x80) {
            char esc[8];
            snprintf(esc, sizeof esc, c < 0x20 || c == 0x7f ? "\\u%04x" : c == '"' || c == '\\' ? "\\%c" : "%c", c);
            out += esc;
        } else {
            out += whole ? s.substr(i, step) : "\xef\xbf\xbd";
        }
    }
    return out + "\"";
}

void print_json_rows(const char *key, const std::vector<Row> &rows, bool offline) {
    printf("  \"%s\": [", key);
    for (size_t i = 0; i < rows.size(); i++) {
        printf("%s\n    {\"index\": %d", i ? "," : "", rows[i].index);
        for (size_t f = 0; f < kFieldCount; f++) {
            if (offline && !kFields[f].offline)
                continue;
            const std::string &v = rows[i].value[f];
            bool number = kFields[f].kind != Kind::Text && kFields[f].kind != Kind::Mac && !v.empty();
            printf(", \"%s\": %s", kFields[f].name, number ? v.c_str() : json_string(v).c_str());
        }
        printf("}");
    }
    printf("%s]", rows.empty() ? "" : "\n  ");
}

void print_json(unsigned count, const std::vector<Row> &hosts, const std::vector<Row> &offline) {
    printf("{\n  \"HostNumberOfEntries\": %u,\n", count);
    print_json_rows("hosts", hosts, false);
    printf(",\n");
    print_json_rows("offline", offline, true);
    printf("\n}\n");
}

// ---- table ---------------------------------------------------------------

std::string port_text(const std::string &path) {
    struct Short {
        const char *object;
        const char *label;
    };
    static constexpr Short kShort[] = {
        {"LANEthernetInterfaceConfig.", "LAN "},
        {"WLANConfiguration.", "WLAN "},
    };
    std::string rest =
        path.compare(0, sizeof kPortPrefix - 1, kPortPrefix) == 0 ? path.substr(sizeof kPortPrefix - 1) : path;
    for (const Short &s : kShort)
        if (rest.compare(0, strlen(s.object), s.object) == 0)
            return s.label + rest.substr(strlen(s.object));
    return rest;
}

std::string lease_text(const std::string &seconds) {
    if (seconds.empty())
        return "";
    long s = strtol(seconds.c_str(), nullptr, 10);
    if (s < 0)
        return "snooped";
    char out[32];
    snprintf(out, sizeof out, "%ldh%02ldm", s / 3600, s / 60 % 60);
    return out;
}

// Offline stamps are wall-clock seconds, or the uptime when the clock was not set yet.
std::string since_text(const std::string &stamp) {
    unsigned long t = strtoul(stamp.c_str(), nullptr, 10);
    if (t == 0)
        return "";
    char out[48];
    if (t < 1500000000UL) {
        snprintf(out, sizeof out, "uptime %lus", t);
        return out;
    }
    time_t tt = time_t(t);
    struct tm tm;
    localtime_r(&tt, &tm);
    strftime(out, sizeof out, "%Y-%m-%d %H:%M:%S", &tm);
    return out;
}

std::string ipv6_text(const Row &r) {
    std::string out;
    for (const char *name : {"X_ZN_IPV6LocalAddress", "X_ZN_IPV6Address", "X_ZN_GUAIPAddress"}) {
        const std::string &a = get(r, name);
        if (!a.empty() && out.find(a) == std::string::npos)
            out += (out.empty() ? "" : " ") + a;
    }
    return out;
}

std::string online_text(const Row &r) {
    bool v4 = get(r, "Active") == "1", v6 = get(r, "ipv6Active") == "1";
    return v4 && v6 ? "v4+v6" : v4 ? "v4" : v6 ? "v6" : "no";
}

struct Column {
    const char *title;
    std::string (*cell)(const Row &);
};

constexpr Column kColumns[] = {
    {"MAC", [](const Row &r) { return get(r, "MACAddress"); }},
    {"ADDRESS", [](const Row &r) { return get(r, "IPAddress"); }},
    {"SOURCE", [](const Row &r) { return get(r, "AddressSource"); }},
    {"NAME", [](const Row &r) { return get(r, "HostName"); }},
    {"PORT", [](const Row &r) { return port_text(get(r, "Layer2Interface")); }},
    {"TYPE", [](const Row &r) { return get(r, "InterfaceType"); }},
    {"DEV", [](const Row &r) { return get(r, "DeviceType"); }},
    {"ONLINE", online_text},
    {"LEASE", [](const Row &r) { return lease_text(get(r, "LeaseTimeRemaining")); }},
    {"OFFLINE SINCE", [](const Row &r) { return since_text(get(r, "UTCDowntime")); }},
    {"IPV6", ipv6_text},
};

void print_table(const char *heading, const std::vector<Row> &rows, bool offline) {
    printf("%s\n", heading);
    if (rows.empty()) {
        printf("  (none)\n");
        return;
    }
    std::vector<const Column *> cols;
    for (const Column &c : kColumns)
        if (!offline || (strcmp(c.title, "ONLINE") != 0 && strcmp(c.title, "LEASE") != 0))
            cols.push_back(&c);
    std::vector<std::vector<std::string>> cells;
    std::vector<size_t> width;
    width.reserve(cols.size());
    for (const Column *c : cols)
        width.push_back(strlen(c->title));
    for (const Row &r : rows) {
        cells.emplace_back();
        for (size_t i = 0; i < cols.size(); i++) {
            cells.back().push_back(cols[i]->cell(r));
            width[i] = std::max(width[i], cells.back().back().size());
        }
    }
    auto line = [&](auto text) {
        printf(" ");
        for (size_t i = 0; i < cols.size(); i++)
            printf(" %-*s", i + 1 < cols.size() ? int(width[i]) : 0, text(i)); // no trailing blanks
        printf("\n");
    };
    line([&](size_t i) { return cols[i]->title; });
    for (const auto &row : cells)
        line([&](size_t i) { return row[i].c_str(); });
}

// ---- the program -----------------------------------------------------------

struct Snapshot {
    bool present = false;
    unsigned count = 0, counter = 0;
};

Snapshot hosts_object(zns_xml_handle_t *h) {
    Snapshot s;
    zns_ia_t ia = znsXml_ConstructIAValue(__FILE__, __func__, __LINE__, 1, "1");
    const auto *hosts = static_cast<const uint8_t *>(znsXml_GetObjectByOID(h, kOidHosts, ia, 1));
    if (!hosts)
        return s;
    uint16_t count = 0, counter = 0;
    znsXml_getParameterByOID(h, kOidHosts, ia, "HostNumberOfEntries", &count);
    memcpy(&counter, hosts + kHostsCounterOffset, sizeof counter);
    s = {true, count, counter};
    return s;
}

int show(zns_xml_handle_t *h, bool json, const Snapshot &s) {
    std::vector<Row> hosts = read_table(h, kOidHost), offline = read_table(h, kOidOfflineHost);
    if (json) {
        print_json(s.count, hosts, offline);
    } else {
        printf("%u active of %zu known hosts, %zu offline entries\n", s.count, hosts.size(), offline.size());
        print_table("Hosts:", hosts, false);
        print_table("OfflineHost:", offline, true);
    }
    return fflush(stdout) == 0 ? 0 : 1;
}

volatile sig_atomic_t stop_watch;

int usage() {
    fputs("usage: znhosts [--json] [--watch]\n"
          "  prints the store's LAN Hosts and OfflineHost tables;\n"
          "  --watch redraws them whenever the Hosts table changes, until Ctrl-C\n",
          stderr);
    return 2;
}

} // namespace

int main(int argc, char **argv) {
    bool json = false, watch = false;
    for (int i = 1; i < argc; i++) {
        if (strcmp(argv[i], "--json") == 0)
            json = true;
        else if (strcmp(argv[i], "--watch") == 0)
            watch = true;
        else
            return usage();
    }
    zns_xml_handle_t *h = zns_xmlShmInit();
    if (!h) {
        fputs("znhosts: the gateway store can't be opened\n", stderr);
        return 1;
    }
    Snapshot s = hosts_object(h);
    int rc = 0;
    if (!s.present) {
        fprintf(stderr, "znhosts: the store has no %sHosts object\n", kPortPrefix);
        rc = 1;
    } else if (!watch) {
        rc = show(h, json, s);
    } else {
        signal(SIGINT, [](int) { stop_watch = 1; });
        signal(SIGTERM, [](int) { stop_watch = 1; });
        bool tty = isatty(STDOUT_FILENO);
        for (bool first = true; !stop_watch && rc == 0; first = false) {
            if (tty)
                printf("\033[H\033[2J");
            else if (!first)
                printf("\n");
            if (!json) {
                time_t now = time(nullptr);
                char stamp[32];
                tm local{};
                strftime(stamp, sizeof stamp, "%H:%M:%S", localtime_r(&now, &local));
                printf("[%s] ", stamp);
            }
            rc = show(h, json, s);
            unsigned seen = s.counter;
            while (!stop_watch && (s = hosts_object(h)).present && s.counter == seen)
                usleep(kWatchPollUs);
            if (!s.present && !stop_watch) {
                fprintf(stderr, "znhosts: the Hosts object is gone\n");
                rc = 1;
            }
        }
    }
    zns_xmlShmDeInit(&h);
    return rc;
}
