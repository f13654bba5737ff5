// The PON driver's and the input device's records as the target lays them
// out: the mode in host order at an odd offset, the stamp in two longs.
#include <gtest/gtest.h>

#include <cstring>

#include "btn_reader.h"
#include "kemu.h"
#include "pon_events.h"

TEST(DeviceRecords, PonModeAndKeyRecordInTheTargetsLayout) {
    // 0x07000000 is mode 7 in the other byte order: no mode at all.
    for (const auto &[mode, index] : {std::pair<uint32_t, int>{7, 0}, {1, 1}, {0x07000000, -1}}) {
        kemu::PonEvent e{{sizeof e, 0, 0, 0, 0}, {}, kemu::kPonWanChange, {}};
        memcpy(e.value, &mode, sizeof mode);
        uint8_t event[kPonEventRoom] = {};
        ASSERT_EQ(pon_parse(reinterpret_cast<const uint8_t *>(&e), sizeof e, event), Parse::kOk);
        EXPECT_EQ(pon_mode_index(pon_read(event).wanMode), index) << mode;
    }
    kemu::InputRecord in{};
    in.input_event_sec = 12, in.input_event_usec = 345678;
    uint8_t bytes[24] = {};
    memcpy(bytes, &in, sizeof in);
    // A record of the other word size (16 or 24 bytes) is no record.
    const std::pair<size_t, int64_t> rows[] = {{sizeof in, 12345}, {sizeof in - 1, 0}, {40 - sizeof in, 0}};
    for (const auto &[len, ms] : rows) {
        KeyRecord k;
        EXPECT_EQ(btn_parse(bytes, len, &k), ms ? Parse::kOk : Parse::kTooShort) << len;
        EXPECT_EQ(k.ms, ms) << len;
    }
}
