#include "sim/upgrade_file.h"

#include <gtest/gtest.h>

#include <numeric>

#include "sim/keyboard.h"
#include "sim/mouse.h"
#include "sim/virtual_firmware.h"

namespace perilink::sim {
namespace {

uint32_t Number(const Bytes& file, size_t at) {
  return file[at] | uint32_t{file[at + 1]} << 8 | uint32_t{file[at + 2]} << 16 |
         uint32_t{file[at + 3]} << 24;
}

std::string Text(const Bytes& file, size_t at) {
  return reinterpret_cast<const char*>(file.data()) + at;
}

TEST(UpgradeFile, HoldsTheDevicesKeysCommandsAndChecksum) {
  DeviceOptions options = Mouse::Options();
  options.boot.separate_interfaces = true;
  const Mouse mouse(options);
  const Bytes file = UpgradeFileBuilder(ImageFor(mouse, Bytes(40, 0xAA), 0x00012345)).Build();
  ASSERT_EQ(file.size(), 8192u + 40u);
  EXPECT_EQ(Number(file, 4), 8192u);
  EXPECT_EQ(Number(file, 8), 40u);
  EXPECT_EQ(Number(file, 12), 0u);
  EXPECT_EQ(Number(file, 0),
            0x55555555u - std::accumulate(file.begin() + 8, file.begin() + 8192, 0u));
  EXPECT_EQ(Text(file, 151), "vid_1234&pid_b007&mi_00");
  EXPECT_EQ(Text(file, 215), "vid_1234&pid_b007&mi_01");
  EXPECT_EQ(Text(file, 279), "vid_1234&pid_abcd&mi_01&col05");
  EXPECT_EQ(Text(file, 343), "vid_1234&pid_abcd&mi_01&col05");
  EXPECT_EQ(Bytes(file.begin() + 407, file.begin() + 416),
            (Bytes{17, 0, 0x08, 0x0D, 0, 0, 0, 1, 1}));
  EXPECT_EQ(Bytes(file.begin() + 471, file.begin() + 486),
            (Bytes{13, 0, 0, 0xB0, 0, 0, 0, 0x00, 0x01, 0x23, 0x45, 0, 0, 0, 40}));
  EXPECT_EQ(Bytes(file.begin() + 535, file.begin() + 546),
            (Bytes{64, 0, 0, 0, 0, 0, 0, 0x00, 0x01, 0x23, 0x45}));
  EXPECT_EQ(Text(file, 663), "Virtual mouse");
  EXPECT_EQ(file.back(), 0xAA);
}

TEST(UpgradeFile, ChecksumFollowsTheCheckedLength) {
  UpgradeImage image;
  image.file_id = image.ic_name = image.sensor_name = image.product_name = "";
  for (const auto& [checked_length, expected] :
       {std::pair{9u, 0x55555555u - 0x34u}, std::pair{10u, 0x55555555u - 0x34u - 0x12u},
        std::pair{8u, 0x55555555u}, std::pair{0u, 0x55555555u}, std::pair{8193u, 0u}}) {
    image.checked_length = checked_length;
    image.payload_length = 0x1234;
    EXPECT_EQ(Number(UpgradeFileBuilder::BuildImage(image), 0), expected) << checked_length;
  }
  image.checksum = 77;
  EXPECT_EQ(Number(UpgradeFileBuilder::BuildImage(image), 0), 77u);
}

TEST(UpgradeFile, ASecondImageStandsWhereTheFirstSays) {
  const Mouse mouse;
  const Keyboard keyboard;
  UpgradeImage slave = ImageFor(keyboard, Bytes(5, 2), 0, true);
  slave.product_name = std::string(70, 'x');
  const Bytes file = UpgradeFileBuilder(ImageFor(mouse, Bytes(3, 1))).Slave(slave).Gap(7).Build();
  const uint32_t offset = Number(file, 12);
  EXPECT_EQ(offset, 8192u + 3u + 7u);
  ASSERT_EQ(file.size(), offset + 8192u + 5u);
  EXPECT_EQ(Text(file, offset + 151), "vid_1234&pid_b008");
  EXPECT_EQ(file[offset + 408], 1);
  EXPECT_EQ(file[offset + 663 + 63], 'x');
  EXPECT_EQ(file[offset + 663 + 64], 0);  // the text ends with its field
}

TEST(VirtualFirmware, OnlyASoundOneHasAVersion) {
  Bytes firmware = MakeVirtualFirmware(0x0304, 100);
  EXPECT_EQ(VirtualFirmwareVersion(firmware), 0x0304);
  for (const size_t at : {0u, 8u, 12u, 16u, 99u}) {
    Bytes broken = firmware;
    broken[at] ^= 0x10;
    EXPECT_FALSE(VirtualFirmwareVersion(broken)) << at;
  }
  EXPECT_FALSE(VirtualFirmwareVersion(Bytes(15)));
  EXPECT_EQ(MakeVirtualFirmware(1, 0).size(), 16u);
}

}  // namespace
}  // namespace perilink::sim
