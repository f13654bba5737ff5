// The data model's layout: no two fields of a record overlap. Paths and
// instances are proven by every use of znsUtil; the tracker's test compares
// the positions it reads records at with the model's.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "datamodel.h"

using namespace zns;

TEST(DataModel, FieldsAreDisjointAndInsideTheirRecords) {
    size_t n = 0;
    const ObjectLayout *objs = dm_objects(&n);
    ASSERT_GT(n, 20u);
    for (size_t i = 0; i < n; i++) {
        const ObjectLayout &o = objs[i];
        std::vector<std::pair<uint32_t, uint32_t>> spans;
        if (o.def->counter_offset >= 0)
            spans.push_back({uint32_t(o.def->counter_offset), uint32_t(o.def->counter_offset) + 2});
        for (size_t p = 0; p < o.param_count; p++) {
            EXPECT_LE(o.params[p].offset + o.params[p].size, o.record_size) << o.def->path << " " << o.params[p].name;
            spans.push_back({o.params[p].offset, o.params[p].offset + o.params[p].size});
        }
        std::sort(spans.begin(), spans.end());
        for (size_t s = 1; s < spans.size(); s++)
            EXPECT_LE(spans[s - 1].second, spans[s].first) << o.def->path;
        if (i > 0) {
            EXPECT_NE(o.parent, nullptr) << o.def->path << " has no parent in the model";
        }
    }
}
