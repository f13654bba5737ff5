// The shared-memory region behind the store: a header with the one writers'
// lock, an index of the live slots, a table of object slots and an arena of
// records. Readers look up without the lock; every change happens under it.
#pragma once

#include <pthread.h>

#include <cstdint>
#include <string>
#include <vector>

#include "datamodel.h"

namespace zns {

constexpr const char *kShmName = "/zns_store";
constexpr const char *kSaveFile = "/userconfig/config/zns_store.conf";
constexpr uint32_t kMaxSlots = 8192;
constexpr uint32_t kArenaSize = 16u << 20;
constexpr uint32_t kIndexSize = 2 * kMaxSlots; // a power of two: at most half of it is live

enum SlotState : uint32_t { kSlotFree = 0, kSlotLive = 1 };

struct Slot {
    uint32_t state; // SlotState, read and written atomically
    uint32_t oid;
    uint64_t ia;
    uint32_t rec_off;
    uint32_t rec_size;
};

struct Region {
    uint32_t magic;
    uint32_t model_sig; // a region made by another data model is not used
    uint32_t ready;
    uint32_t slot_hwm;
    pthread_mutex_t lock;
    uint32_t arena_used;
    // Live slots by (oid, instance), probed linearly from the key's hash: a
    // bucket holds a slot's number + 1, 0 when never used, or a mark that
    // its slot was deleted. index_gen is odd while a writer rebuilds the
    // index; a reader that meets a rebuild scans the slots instead.
    uint32_t index_gen;
    uint32_t index_used; // buckets that are not 0
    uint32_t pad;
    uint32_t index[kIndexSize];
    Slot slots[kMaxSlots];
};

constexpr size_t kArenaStart = (sizeof(Region) + 63) & ~size_t{63};
constexpr size_t kRegionSize = kArenaStart + kArenaSize;

// One value of a parameter list, already in its record form.
struct ParamValue {
    std::string name;
    uint32_t type;
    std::vector<uint8_t> bytes; // text: the characters without NUL
};

// The process's mapping of the region, created and filled on first use in
// the system. nullptr when the store can't be reached.
Region *region_map();
inline uint8_t *region_base(Region *r) { return reinterpret_cast<uint8_t *>(r); }

// Holds the writers' lock; recovers it from a writer that died holding it.
class RegionLock {
public:
    explicit RegionLock(Region *r);
    ~RegionLock();
    RegionLock(const RegionLock &) = delete;
    RegionLock &operator=(const RegionLock &) = delete;

private:
    Region *r_;
};

// Lock-free look-ups.
Slot *slot_find(Region *r, uint32_t oid, zns_ia_t ia);
Slot *slot_at_offset(Region *r, uint32_t rec_off);
void *slot_record(Region *r, const Slot *s);
bool slot_live(const Slot *s);

// Writers: call with the lock held. 0 or -1; on -1 nothing changed.
int region_add(Region *r, const ObjectLayout *obj, zns_ia_t ia, const std::vector<ParamValue> &values);
int region_delete(Region *r, const ObjectLayout *obj, zns_ia_t ia);
int region_set(Region *r, Slot *s, const std::vector<ParamValue> &values);
// Empties the region; used before a load of the defaults.
void region_clear(Region *r);
// Zeroes every change counter: a tree just loaded has not changed yet.
void region_reset_counters(Region *r);

// Checks a value against its parameter; the reason when it doesn't fit.
const char *value_check(const ParamLayout *p, const ParamValue &v);

} // namespace zns
