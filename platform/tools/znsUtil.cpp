// znsUtil: reads and writes the store from the shell.
#include <cstdio>
#include <cstring>
#include <string>

#include "../store/region.h"
#include "../store/store_text.h"
#include "znsutils.h"

namespace {

using namespace zns;

int usage() {
    fputs("usage: znsUtil -s PATH PARAM TYPE VALUE   set a parameter (TYPE: string uint int bool mac)\n"
          "       znsUtil -g PATH PARAM              print a parameter's value\n"
          "       znsUtil -l PATH                    list the parameters of PATH and below\n"
          "       znsUtil -a PATH                    add the instance PATH names\n"
          "       znsUtil -d PATH                    delete the instance PATH names\n",
          stderr);
    return 2;
}

int fail(const char *what, const char *detail) {
    fprintf(stderr, "znsUtil: %s: %s\n", what, detail);
    return 1;
}

bool type_matches(const char *word, uint32_t type) {
    struct Word {
        const char *word;
        uint32_t type;
    };
    static constexpr Word kWords[] = {
        {"string", ZNS_TYPE_STRING}, {"uint", ZNS_TYPE_UINT32}, {"uint", ZNS_TYPE_UINT16}, {"uint", ZNS_TYPE_BYTE},
        {"int", ZNS_TYPE_INT32},     {"bool", ZNS_TYPE_BOOL},   {"mac", ZNS_TYPE_MAC},
    };
    for (const Word &w : kWords)
        if (strcmp(word, w.word) == 0 && w.type == type)
            return true;
    return false;
}

struct Target {
    const ObjectLayout *obj = nullptr;
    zns_ia_t ia = 0;
};

int resolve(const char *path, Target *t) { return dm_parse_path(path, false, &t->obj, &t->ia, nullptr); }

// The parameter name of the object at path; reports and returns nullptr when either is unknown.
const ParamLayout *resolve_param(const char *path, const char *name, Target *t) {
    if (resolve(path, t) != 0) {
        fail(path, "no such object path");
        return nullptr;
    }
    const ParamLayout *p = dm_param(t->obj, name);
    if (!p)
        fail(name, "no such parameter");
    return p;
}

int cmd_set(zns_xml_handle_t *h, const char *path, const char *name, const char *type, const char *text) {
    Target t;
    const ParamLayout *p = resolve_param(path, name, &t);
    if (!p)
        return 1;
    if (!type_matches(type, p->type))
        return fail(type, "not the parameter's type");
    ParamValue v;
    const char *why = "";
    if (p->type == ZNS_TYPE_STRING) {
        // Text from the shell is taken as it stands, escapes and all.
        v = {p->name, p->type, std::vector<uint8_t>(text, text + strlen(text))};
        if ((why = value_check(p, v)))
            return fail(text, why);
    } else if (text_to_value(p, text, &v, &why) != 0) {
        return fail(text, why);
    }
    std::vector<uint8_t> value = v.bytes;
    if (p->type == ZNS_TYPE_STRING)
        value.push_back(0);
    if (znsXml_setOneParameterByOIDIndirect(h, t.obj->def->oid, t.ia, p->name, p->type, value.data()) != 0)
        return fail(path, "object not present");
    return 0;
}

int cmd_get(zns_xml_handle_t *h, const char *path, const char *name) {
    Target t;
    const ParamLayout *p = resolve_param(path, name, &t);
    if (!p)
        return 1;
    const void *rec = znsXml_GetObjectByOID(h, t.obj->def->oid, t.ia, 1);
    if (!rec)
        return fail(path, "object not present");
    printf("%s\n", value_to_text(p, static_cast<const uint8_t *>(rec) + p->offset).c_str());
    return 0;
}

int cmd_list(zns_xml_handle_t *h, const char *path) {
    Target t;
    if (resolve(path, &t) != 0)
        return fail(path, "no such object path");
    if (!znsXml_GetObjectByOID(h, t.obj->def->oid, t.ia, 1))
        return fail(path, "object not present");
    std::string out;
    tree_dump(region_map(), t.obj, t.ia, false, &out);
    fputs(out.c_str(), stdout);
    return 0;
}

int cmd_add_del(zns_xml_handle_t *h, const char *path, bool add) {
    Target t;
    if (resolve(path, &t) != 0 || t.obj->depth == 0)
        return fail(path, "not an instance path");
    const char *last = strrchr(path, '.');
    if (!last || !std::isdigit(static_cast<unsigned char>(last[1])))
        return fail(path, "not an instance path");
    int rc = add ? znsXml_addObjectByOIDIAIndirect(h, t.obj->def->oid, t.ia, 0, 0)
                 : znsXml_delObjectByOIDIAIndirect(h, t.obj->def->oid, t.ia);
    if (rc != 0)
        return fail(path, add ? "exists already, or its parent is missing" : "no such instance");
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 3 || argv[1][0] != '-' || strlen(argv[1]) != 2)
        return usage();
    const char op = argv[1][1];
    const int want = op == 's' ? 6 : op == 'g' ? 4 : 3;
    if (!strchr("sglad", op) || argc != want)
        return usage();
    zns_xml_handle_t *h = zns_xmlShmInit();
    if (!h)
        return fail("store", "not reachable");
    int rc;
    switch (op) {
    case 's':
        rc = cmd_set(h, argv[2], argv[3], argv[4], argv[5]);
        break;
    case 'g':
        rc = cmd_get(h, argv[2], argv[3]);
        break;
    case 'l':
        rc = cmd_list(h, argv[2]);
        break;
    default:
        rc = cmd_add_del(h, argv[2], op == 'a');
        break;
    }
    zns_xmlShmDeInit(&h);
    return rc;
}
