// The pure helpers of the USB thread where a slip is easy to make.
#include <gtest/gtest.h>

#include <string>

#include "usb_devlist.h"
#include "usb_sysfs.h"

TEST(UsbHelpers, PathCutEndsAtTheUsbDevice) {
    const std::string kDev = "/devices/platform/xhci-hcd.0/usb3/3-1";
    const std::string kScsi = kDev + "/3-1:1.0/host0/target0:0:0/0:0:0:0/block/";
    const struct {
        std::string path, cut;
    } rows[] = {
        {kScsi + "sda/sda1", kDev},
        {kScsi + "sda", kDev},
        {kScsi + "sdaa/sdaa1", kScsi + "sdaa/sdaa1"}, // a two-letter drive
        {kScsi + "sd", kScsi + "sd"},
        {kDev + "/3-1:1.0/ttyUSB0/tty/ttyUSB0", kDev},
        {kDev + "/3-1:1.0/tty/ttyACM0", kDev + "/3-1:1.0/tty/ttyACM0"},
        {kDev + "/3-1:1.0/0003:0ABC:1DEF.0001/input/input5/event3", kDev},
        {kDev + "/3-1:1.0/usbmisc/lp0", kDev},
    };
    for (auto r : rows)
        EXPECT_EQ(usbDevPathCut(r.path.data()), r.cut) << r.path;
}

TEST(UsbHelpers, ListRewriteDropsEveryLineOfTheIdAndNoOther) {
    const std::string file = "1, /dev/sda1\n10, /dev/sdb1\n1, /dev/sdc1\n2, /dev/ttyUSB0";
    const struct {
        uint32_t id;
        bool dropped;
        std::string kept;
    } rows[] = {
        {1, true, "10, /dev/sdb1\n2, /dev/ttyUSB0"},
        {10, true, "1, /dev/sda1\n1, /dev/sdc1\n2, /dev/ttyUSB0"},
        {2, true, "1, /dev/sda1\n10, /dev/sdb1\n1, /dev/sdc1\n"},
        {3, false, file},
    };
    for (const auto &r : rows) {
        std::string text = file;
        size_t len = text.size();
        EXPECT_EQ(usbDevListDropId(text.data(), &len, r.id), r.dropped) << r.id;
        EXPECT_EQ(std::string(text.data(), len), r.kept) << r.id;
    }
}
