// The PON driver's mode in host order at its odd offset and the input
// device's record in this build's struct input_event, on every target.
#include <gtest/gtest.h>

#include "btn_reader.h"
#include "kemu.h"
#include "pon_events.h"

TEST(DeviceRecords, PonModeAndKeyRecordInTheTargetsLayout) {
    kemu::PonEvent e{{sizeof e, 0, 0, 0, 0}, {}, kemu::kPonWanChange, {}};
    const uint32_t gpon = 1; // read in the other byte order, no mode at all
    memcpy(e.value, &gpon, sizeof gpon);
    uint8_t event[kPonEventRoom] = {};
    ASSERT_EQ(pon_parse(reinterpret_cast<const uint8_t *>(&e), sizeof e, event), Parse::kOk);
    EXPECT_EQ(pon_mode_index(pon_read(event).wanMode), 1);
    kemu::InputRecord in{};
    in.input_event_sec = 12, in.input_event_usec = 345678;
    KeyRecord k;
    ASSERT_EQ(btn_parse(reinterpret_cast<const uint8_t *>(&in), sizeof in, &k), Parse::kOk);
    EXPECT_EQ(k.ms, 12345);
}
