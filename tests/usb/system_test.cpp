// The unchanged agent with USB devices made by `vgw usb plug`: real nodes, sysfs trees, images and mounts.
#include <gtest/gtest.h>

#include <string>

#include "shell.h"

using zntest::eventually;
using zntest::file_text;
using zntest::sh;

namespace {

const std::string kList = "/tmp/usbDevListMore";
const std::string kEvents = "/tmp/monitor.out";
const std::string kProductData = "0abc, 1def, Flash Disk, Generic, 0123456789, 100, ";

bool has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

// A command, then a shell condition that must come true.
struct Step {
    std::string cmd, until;
};

} // namespace

// Boards have several USB ports unless a test says otherwise.
class Usb : public testing::Test {
protected:
    void TearDown() override {
        for (pid_t pid : {monitor, agent})
            if (pid > 0)
                zntest::stop_process(pid);
        EXPECT_EQ(sh("vgw usb clear && rm -rf /mnt/* /dev/sdq1 /dev/input/event1").status, 0);
    }
    void start_agent() {
        monitor = zntest::start_process(ZN_BUILD_DIR "/bin/znsMonitor", kEvents.c_str());
        const std::string sub = "/run/zns_bus/sub." + std::to_string(monitor) + ".";
        ASSERT_TRUE(eventually([&] { return has(file_text("/proc/net/unix"), sub); }));
        agent = zntest::start_agent("/tmp/agent.out");
        ASSERT_TRUE(eventually([] { return has(file_text("/proc/net/unix"), "/tmp/zn_event_agent_usb"); }));
    }
    static void walk(std::initializer_list<Step> steps) {
        for (const Step &s : steps) {
            sh(s.cmd);
            EXPECT_TRUE(eventually([&] { return sh(s.until).status == 0; }))
                << s.cmd << "\nuntil: " << s.until << "\n" << file_text(kList) << file_text("/tmp/agent.out");
        }
    }
    pid_t agent = 0, monitor = 0;
};

TEST_F(Usb, AdmitsInOrderNumbersByPortAndRefuses) {
    start_agent();
    walk({
        {"vgw usb plug sda1 --bus usb3 --label DATA",
         "grep -qxF '1, /dev/sda1, USB_STORAGE, 2, 1, /mnt/usb2_1, " + kProductData + "vfat, DATA, 0' " + kList},
        {"vgw usb plug ttyUSB0 --bus usb2",
         "grep -qxF '2, /dev/ttyUSB0, USB_SERIAL, 1, 1, , " + kProductData + ", , 0' " + kList},
        {"vgw usb plug input/event3", "grep -qF '3, /dev/input/event3, USB_HID, 1, 2, , 0abc' " + kList},
        {"vgw usb plug usb/lp0", "grep -qF '4, /dev/usb/lp0, USB_PRINTER, 1, 3, , 0abc' " + kList},
        // Messages without two fields or with another action, a duplicate, a
        // missing node, no device node, a node off USB: the last waits for all.
        {"touch /dev/sdq1; mknod /dev/input/event1 c 13 65; for m in add ,,, ADD,sdx2 add,sdx1 add,,ttyUSB0,x "
         "add,sdq1 add,input/event1; do znhotplug $m; done",
         "grep -q 'not usb device' /tmp/agent.out && grep -q '/dev/sdx1 stat fail' /tmp/agent.out && "
         "grep -q 'find same device for \\[.*/ttyUSB0\\]' /tmp/agent.out && ! grep -q sdx2 /tmp/agent.out && "
         "[ $(grep -c 'not specaial file' /tmp/agent.out) = 2 ]"}, // and the buttons' FIFO at the first scan
    });
    EXPECT_EQ(sh("wc -l < " + kList).out, "4\n");
}

TEST_F(Usb, MountsByTheMountTable) {
    start_agent();
    walk({
        {"zncli board set usbnum 1 && vgw usb plug sda1",
         "grep -qF '1, /dev/sda1, USB_STORAGE, 1, 1, /mnt/USB_disc1, ' " + kList +
             " && mount | grep -q '^/dev/sda1 on /mnt/USB_disc1 type fuse '"},
        // The second partition is mounted, and held back.
        {"zncli board set usbnum 2 && vgw usb plug sdb --bus usb3 --partitions 2",
         "mount | grep -q '^/dev/sdb1 on /mnt/usb2_1 ' && mount | grep -q '^/dev/sdb2 on /mnt/usb2_2 ' && "
         "grep -q 'this device find more storage partitions' /tmp/agent.out && ! grep -q sdb2 " + kList},
        {"vgw usb plug sdc --bus usb3 --fs none",
         "grep -q 'usb storage mount fail' /tmp/agent.out && ! grep -q sdc " + kList},
        {"vgw usb plug sdd1 --bus usb3 --fs ntfs --label WIN",
         "grep -qF '/dev/sdd1, USB_STORAGE, 2, 2, /mnt/usb2_2, " + kProductData + "ntfs, WIN, 0' " + kList +
             " && pgrep -af ntfs-3g | grep -q ' /bin/ntfs-3g /dev/sdd1 /mnt/usb2_2$'"},
        {"vgw usb plug \"sdz';reboot;'\"", "grep -q 'is not a plain device name' /tmp/agent.out"},
        // A label with a line feed, in the boot sector and the root directory, forges no line.
        {"vgw usb plug sde1 --bus usb3 --label LBLXXXXXXXX && for o in $(grep -obUa LBLXXXXXXXX /dev/sde1 | "
         "cut -d: -f1); do printf 'X\\n9, FORGED' | dd of=/dev/sde1 bs=1 seek=$o conv=notrunc status=none; done && "
         "znhotplug remove,sde1 && znhotplug add,sde1", "grep -q 'sde1, .*, X 9, FORGED, 0$' " + kList},
        {"vgw usb unplug sde1", "grep -q '^1301 .*, X 9, FORGED, 0$' " + kEvents + " && ! grep -q '^9, FORGED' " +
                                    kEvents + " && ! grep -q sde " + kList},
    });
    EXPECT_FALSE(has(sh("vgw stubs").out, "reboot"));
}

TEST_F(Usb, ListFileAndEventsFollowTheDevices) {
    start_agent();
    const std::string disk = "1, /dev/sda1, USB_STORAGE, 1, 1, /mnt/usb1_1, " + kProductData + "vfat, , 0\n";
    const std::string tty = "2, /dev/ttyUSB0, USB_SERIAL, 1, 2, , " + kProductData + ", , 0\n";
    const std::string lp = "1, /dev/usb/lp0, USB_PRINTER, 1, 1, , " + kProductData + ", , 0\n";
    auto list_is = [](const std::string &text) { return eventually([&] { return file_text(kList) == text; }); };
    auto sent = [](const std::string &events) { return eventually([&] { return has(file_text(kEvents), events); }); };

    sh("vgw usb plug sda1 && vgw usb plug ttyUSB0");
    EXPECT_TRUE(list_is(disk + tty)) << file_text(kList);
    EXPECT_TRUE(sent("1300 0xc0000000 " + disk + "1300 0xc0000000 " + tty)) << file_text(kEvents);

    sh("znhotplug add,sda1 && znhotplug remove,sdq9 && vgw usb unplug sda1");
    EXPECT_TRUE(list_is(tty)) << file_text(kList);
    EXPECT_TRUE(sent("1301 0xc0000000 " + disk)) << file_text(kEvents);
    EXPECT_EQ(sh("grep -c '^130' " + kEvents).out, "3\n") << "a duplicate add, an unknown remove";
    EXPECT_EQ(sh("mount | grep -c '^/dev/sda1 on /mnt/usb1_1 '").out, "1\n") << "removal doesn't unmount";

    sh("vgw usb plug usb/lp0");
    EXPECT_TRUE(list_is(tty + lp)) << "id 1 is free again: " << file_text(kList);
}

TEST_F(Usb, FirstScanFindsWhatIsMountedOrNamedInDev) {
    // Plugged while no agent listens; of the disks only the one mounted counts.
    ASSERT_EQ(sh("vgw usb plug sda1 --fs ext4 --label KEEP && mkdir /mnt/keep && mount /dev/sda1 /mnt/keep && "
                 "vgw usb plug sdb1 --ro && vgw usb plug ttyUSB0 && vgw usb plug input/event3 && "
                 "vgw usb plug usb/lp0 && echo stale > /tmp/usbDevListMore")
                  .status,
              0);
    start_agent();
    const std::string found = "1, /dev/ttyUSB0, USB_SERIAL, 1, 1, , " + kProductData + ", , 0\n" +
                              "2, /dev/sda1, USB_STORAGE, 1, 2, /mnt/keep, " + kProductData + "ext4, KEEP, 0\n" +
                              "3, /dev/input/event3, USB_HID, 1, 3, , " + kProductData + ", , 0\n" +
                              "4, /dev/usb/lp0, USB_PRINTER, 1, 4, , " + kProductData + ", , 0\n";
    EXPECT_TRUE(eventually([&] { return file_text(kList) == found; })) << file_text(kList);
    EXPECT_TRUE(has(file_text("/tmp/agent.out"), "dev sda1 is already mounted on /mnt/keep, do not mount again"));

    sh("znhotplug add,sdb1");
    const std::string late = "5, /dev/sdb1, USB_STORAGE, 1, 5, /mnt/usb1_5, " + kProductData + "vfat, , 1\n";
    EXPECT_TRUE(eventually([&] { return file_text(kList) == found + late; })) << file_text(kList);
}
