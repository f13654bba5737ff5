#include "region.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "store_text.h"

namespace zns {
namespace {

constexpr uint32_t kMagic = 0x5a4e5332; // "ZNS2": the region's layout
constexpr uint32_t kIndexDeleted = ~0u;
// Past this many used buckets an add rebuilds the index, so that probes
// always meet an empty bucket.
constexpr uint32_t kIndexRebuildMark = kIndexSize / 4 * 3;

uint32_t model_signature() {
    // FNV-1a over every object's layout: a region made by a build with
    // another model would be read at the wrong offsets.
    uint32_t h = 2166136261u;
    auto mix = [&h](uint32_t v) {
        for (int i = 0; i < 4; i++) {
            h ^= (v >> (8 * i)) & 0xff;
            h *= 16777619u;
        }
    };
    size_t n = 0;
    const ObjectLayout *objs = dm_objects(&n);
    for (size_t i = 0; i < n; i++) {
        mix(objs[i].def->oid);
        mix(objs[i].record_size);
        for (size_t p = 0; p < objs[i].param_count; p++) {
            mix(objs[i].params[p].offset);
            mix(objs[i].params[p].type);
        }
    }
    return h;
}

uint32_t load_acquire(const uint32_t *p) { return __atomic_load_n(p, __ATOMIC_ACQUIRE); }
// NOLINTNEXTLINE(readability-non-const-parameter): the atomic store writes *p
void store_release(uint32_t *p, uint32_t v) { __atomic_store_n(p, v, __ATOMIC_RELEASE); }

uint32_t index_next(uint32_t bucket) { return (bucket + 1) & (kIndexSize - 1); }

uint32_t index_home(uint32_t oid, zns_ia_t ia) {
    uint64_t x = ia ^ (uint64_t(oid) * 0x9e3779b97f4a7c15u);
    x ^= x >> 31;
    x *= 0xbf58476d1ce4e5b9u;
    x ^= x >> 29;
    return uint32_t(x) & (kIndexSize - 1);
}

Slot *index_probe(Region *r, uint32_t oid, zns_ia_t ia) {
    uint32_t b = index_home(oid, ia);
    for (uint32_t n = 0; n < kIndexSize; n++, b = index_next(b)) {
        const uint32_t v = load_acquire(&r->index[b]);
        if (v == 0)
            return nullptr;
        Slot *s = v != kIndexDeleted ? &r->slots[v - 1] : nullptr;
        if (s && slot_live(s) && s->oid == oid && s->ia == ia)
            return s;
    }
    return nullptr;
}

Slot *slot_scan(Region *r, uint32_t oid, zns_ia_t ia) {
    uint32_t n = load_acquire(&r->slot_hwm);
    for (uint32_t i = 0; i < n; i++) {
        Slot *s = &r->slots[i];
        if (slot_live(s) && s->oid == oid && s->ia == ia)
            return s;
    }
    return nullptr;
}

// Writers of the index, under the lock. A new entry takes the first bucket
// of its probe that is empty or deleted: buckets before it stay in use, so
// a reader's probe never stops short of a key that stays live.
void index_put(Region *r, uint32_t slot) {
    uint32_t b = index_home(r->slots[slot].oid, r->slots[slot].ia);
    while (r->index[b] != 0 && r->index[b] != kIndexDeleted)
        b = index_next(b);
    if (r->index[b] == 0)
        r->index_used++;
    store_release(&r->index[b], slot + 1);
}

void index_erase(Region *r, uint32_t slot) {
    for (uint32_t b = index_home(r->slots[slot].oid, r->slots[slot].ia); r->index[b] != 0; b = index_next(b)) {
        if (r->index[b] == slot + 1) {
            store_release(&r->index[b], kIndexDeleted);
            return;
        }
    }
}

// Deleted buckets only ever pile up: a rebuild empties them, and mends an
// index that a writer left half-changed when it died.
void index_rebuild(Region *r) {
    const uint32_t gen = r->index_gen;
    __atomic_store_n(&r->index_gen, gen + 1, __ATOMIC_RELAXED);
    __atomic_thread_fence(__ATOMIC_RELEASE);
    for (uint32_t &b : r->index)
        __atomic_store_n(&b, 0u, __ATOMIC_RELAXED);
    r->index_used = 0;
    for (uint32_t i = 0; i < r->slot_hwm; i++)
        if (slot_live(&r->slots[i]))
            index_put(r, i);
    store_release(&r->index_gen, gen + 2);
}

int init_lock(pthread_mutex_t *m) {
    pthread_mutexattr_t a;
    pthread_mutexattr_init(&a);
    pthread_mutexattr_setpshared(&a, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&a, PTHREAD_MUTEX_ROBUST);
    int rc = pthread_mutex_init(m, &a);
    pthread_mutexattr_destroy(&a);
    return rc;
}

// Fills a newly created region: the saved tree, or the defaults when there
// is none or it can't be read.
void region_fill(Region *r) {
    std::string saved;
    std::string bad;
    if (read_file(kSaveFile, &saved) != 0 || tree_load(r, saved.c_str(), &bad) != 0) {
        if (!bad.empty())
            fprintf(stderr, "zns store: %s: bad line \"%s\"; starting from the defaults\n", kSaveFile, bad.c_str());
        region_clear(r);
        tree_load(r, dm_defaults(), nullptr);
    }
    region_reset_counters(r);
}

Region *region_create_or_open() {
    int fd = shm_open(kShmName, O_RDWR | O_CREAT | O_EXCL, 0600);
    bool creator = fd >= 0;
    if (!creator) {
        if (errno != EEXIST)
            return nullptr;
        fd = shm_open(kShmName, O_RDWR, 0600);
        if (fd < 0)
            return nullptr;
        // The creator may not have sized it yet.
        struct stat st {};
        for (int i = 0; i < 5000 && fstat(fd, &st) == 0 && size_t(st.st_size) < kRegionSize; i++)
            usleep(1000);
        if (size_t(st.st_size) < kRegionSize) {
            close(fd);
            return nullptr;
        }
    } else if (ftruncate(fd, kRegionSize) != 0) {
        close(fd);
        shm_unlink(kShmName);
        return nullptr;
    }
    void *p = mmap(nullptr, kRegionSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (p == MAP_FAILED)
        return nullptr;
    auto *r = static_cast<Region *>(p);
    if (creator) {
        r->magic = kMagic;
        r->model_sig = model_signature();
        r->slot_hwm = 0;
        r->arena_used = 0;
        init_lock(&r->lock);
        {
            RegionLock lock(r);
            region_fill(r);
        }
        store_release(&r->ready, 1);
        return r;
    }
    for (int i = 0; i < 5000 && !load_acquire(&r->ready); i++)
        usleep(1000);
    if (!load_acquire(&r->ready) || r->magic != kMagic || r->model_sig != model_signature()) {
        fprintf(stderr, "zns store: shared memory %s is not ready or from another data model\n", kShmName);
        munmap(p, kRegionSize);
        return nullptr;
    }
    return r;
}

void bump_counter(Region *r, const ObjectLayout *obj, zns_ia_t ia) {
    const ObjectLayout *owner = dm_counter_owner(obj);
    if (!owner)
        return;
    uint32_t idx[kMaxDepth];
    for (int i = 0; i < owner->depth; i++)
        idx[i] = ia_index(ia, i);
    Slot *s = slot_find(r, owner->def->oid, ia_make(idx, owner->depth));
    if (!s)
        return;
    auto *counter =
        reinterpret_cast<uint16_t *>(static_cast<uint8_t *>(slot_record(r, s)) + owner->def->counter_offset);
    __atomic_store_n(counter, uint16_t(*counter + 1), __ATOMIC_RELEASE);
}

// Writes the values into a record; true when a byte changed. Text keeps
// the field's last byte NUL at all times, so a reader never runs past it.
bool apply_values(const ObjectLayout *obj, uint8_t *rec, const std::vector<ParamValue> &values) {
    bool changed = false;
    for (const ParamValue &v : values) {
        const ParamLayout *p = dm_param(obj, v.name.c_str());
        uint8_t *field = rec + p->offset;
        if (p->type == ZNS_TYPE_STRING) {
            const std::string text(v.bytes.begin(), v.bytes.end());
            const size_t n = text.size();
            if (text.compare(0, n, reinterpret_cast<const char *>(field),
                             strnlen(reinterpret_cast<char *>(field), p->size)) != 0)
                changed = true;
            std::memcpy(field, text.c_str(), n);
            std::memset(field + n, 0, p->size - n);
        } else {
            if (std::memcmp(field, v.bytes.data(), p->size) != 0)
                changed = true;
            std::memcpy(field, v.bytes.data(), p->size);
        }
    }
    return changed;
}

int check_values(const ObjectLayout *obj, const std::vector<ParamValue> &values) {
    for (const ParamValue &v : values) {
        const ParamLayout *p = dm_param(obj, v.name.c_str());
        if (!p || value_check(p, v))
            return -1;
    }
    return 0;
}

bool ia_has_prefix(zns_ia_t ia, zns_ia_t prefix, int depth) {
    for (int i = 0; i < depth; i++)
        if (ia_index(ia, i) != ia_index(prefix, i))
            return false;
    return true;
}

} // namespace

Region *region_map() {
    static std::once_flag once;
    static Region *region;
    // A store that couldn't be reached is tried again on the next call.
    static std::mutex retry;
    std::call_once(once, [] { region = region_create_or_open(); });
    if (!region) {
        std::lock_guard<std::mutex> g(retry);
        if (!region)
            region = region_create_or_open();
    }
    return region;
}

RegionLock::RegionLock(Region *r) : r_(r) {
    if (pthread_mutex_lock(&r_->lock) == EOWNERDEAD) {
        pthread_mutex_consistent(&r_->lock);
        index_rebuild(r_);
    }
}

RegionLock::~RegionLock() { pthread_mutex_unlock(&r_->lock); }

bool slot_live(const Slot *s) { return load_acquire(&s->state) == kSlotLive; }

Slot *slot_find(Region *r, uint32_t oid, zns_ia_t ia) {
    const uint32_t gen = load_acquire(&r->index_gen);
    if (gen % 2 == 0) {
        Slot *s = index_probe(r, oid, ia);
        __atomic_thread_fence(__ATOMIC_ACQUIRE);
        if (__atomic_load_n(&r->index_gen, __ATOMIC_RELAXED) == gen)
            return s;
    }
    return slot_scan(r, oid, ia);
}

// Records are handed out in slot order and never move: rec_off rises with
// the slot number.
Slot *slot_at_offset(Region *r, uint32_t rec_off) {
    Slot *end = r->slots + load_acquire(&r->slot_hwm);
    Slot *s = std::lower_bound(r->slots, end, rec_off, [](const Slot &a, uint32_t off) { return a.rec_off < off; });
    return s != end && s->rec_off == rec_off && slot_live(s) ? s : nullptr;
}

void *slot_record(Region *r, const Slot *s) { return region_base(r) + s->rec_off; }

const char *value_check(const ParamLayout *p, const ParamValue &v) {
    if (v.type != p->type)
        return "wrong type";
    if (p->type == ZNS_TYPE_STRING)
        return v.bytes.size() >= p->size                                       ? "text too long"
               : std::find(v.bytes.begin(), v.bytes.end(), 0) != v.bytes.end() ? "NUL inside text"
                                                                               : nullptr;
    if (v.bytes.size() != p->size)
        return "wrong width";
    if (p->type == ZNS_TYPE_BOOL && v.bytes[0] > 1)
        return "boolean not 0 or 1";
    return nullptr;
}

int region_add(Region *r, const ObjectLayout *obj, zns_ia_t ia, const std::vector<ParamValue> &values) {
    if (ia_depth(ia) != obj->depth || slot_find(r, obj->def->oid, ia) || check_values(obj, values))
        return -1;
    if (obj->parent) {
        uint32_t idx[kMaxDepth];
        for (int i = 0; i < obj->parent->depth; i++)
            idx[i] = ia_index(ia, i);
        if (!slot_find(r, obj->parent->def->oid, ia_make(idx, obj->parent->depth)))
            return -1;
    }
    // A free slot of the same object reuses its record; else a new one.
    Slot *s = nullptr;
    for (uint32_t i = 0; i < r->slot_hwm && !s; i++)
        if (!slot_live(&r->slots[i]) && r->slots[i].oid == obj->def->oid)
            s = &r->slots[i];
    if (!s) {
        uint32_t size = (obj->record_size + 7) & ~7u;
        if (r->slot_hwm >= kMaxSlots || kArenaSize - r->arena_used < size)
            return -1;
        s = &r->slots[r->slot_hwm];
        s->oid = obj->def->oid;
        s->rec_off = uint32_t(kArenaStart + r->arena_used);
        s->rec_size = obj->record_size;
        r->arena_used += size;
        store_release(&r->slot_hwm, r->slot_hwm + 1);
    }
    auto *rec = static_cast<uint8_t *>(slot_record(r, s));
    std::memset(rec, 0, s->rec_size);
    apply_values(obj, rec, values);
    s->ia = ia;
    store_release(&s->state, kSlotLive);
    if (r->index_used >= kIndexRebuildMark)
        index_rebuild(r); // takes in the new slot too
    else
        index_put(r, uint32_t(s - r->slots));
    bump_counter(r, obj, ia);
    return 0;
}

int region_delete(Region *r, const ObjectLayout *obj, zns_ia_t ia) {
    Slot *target = slot_find(r, obj->def->oid, ia);
    if (!target)
        return -1;
    for (uint32_t i = 0; i < r->slot_hwm; i++) {
        Slot *s = &r->slots[i];
        if (!slot_live(s) || s == target || !ia_has_prefix(s->ia, ia, obj->depth))
            continue;
        const ObjectLayout *o = dm_object(s->oid);
        if (o != obj && dm_in_subtree(o, obj->def->oid)) {
            store_release(&s->state, kSlotFree);
            index_erase(r, i);
        }
    }
    store_release(&target->state, kSlotFree);
    index_erase(r, uint32_t(target - r->slots));
    bump_counter(r, obj, ia);
    return 0;
}

int region_set(Region *r, Slot *s, const std::vector<ParamValue> &values) {
    const ObjectLayout *obj = dm_object(s->oid);
    if (!obj || check_values(obj, values))
        return -1;
    if (apply_values(obj, static_cast<uint8_t *>(slot_record(r, s)), values))
        bump_counter(r, obj, s->ia);
    return 0;
}

void region_clear(Region *r) {
    for (uint32_t i = 0; i < r->slot_hwm; i++)
        store_release(&r->slots[i].state, kSlotFree);
    index_rebuild(r);
}

void region_reset_counters(Region *r) {
    for (uint32_t i = 0; i < r->slot_hwm; i++) {
        const Slot *s = &r->slots[i];
        const ObjectLayout *obj = slot_live(s) ? dm_object(s->oid) : nullptr;
        if (obj && obj->def->counter_offset >= 0)
            __atomic_store_n(
                reinterpret_cast<uint16_t *>(static_cast<uint8_t *>(slot_record(r, s)) + obj->def->counter_offset),
                uint16_t(0), __ATOMIC_RELEASE);
    }
}

} // namespace zns
