// The file: header check, packets, and the cut of one image.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <tuple>

#include "perilink/upgrade.h"
#include "sim/upgrade_file.h"
#include "support/interop_values.h"
#include "upgrade/image.h"
#include "upgrade/packets.h"

namespace perilink::testing {
namespace {

using sim::Bytes;
using sim::UpgradeFileBuilder;
using sim::UpgradeImage;

UpgradeImage ImageOf(size_t payload_size) {
  UpgradeImage image;
  image.start = {60, false, Bytes(62, 0x77)};
  image.packet = {64, false, {0x05, 0x99, 0x99, 0x99, 0x99, 0x00, 0x01, 0x00, 0x00, 0x99}};
  for (size_t i = 0; i < payload_size; ++i)
    image.payload.push_back(static_cast<uint8_t>(i + 1));
  return image;
}

TEST(ImageTest, HeaderCheck) {
  Bytes image(8192);
  std::fill_n(image.begin() + 8, 18, uint8_t{0xFF});
  image[8191] = 0x1234 - 18 * 0xFF;  // the bytes from 8 on add up to 0x1234
  const std::tuple<uint32_t, uint32_t, bool> rows[] = {
      // checked length, checksum, verdict
      {8192, 0x55554321, true},  {8192, 0x55554322, false}, {9, 0x55555456, true},
      {8, 0x55555555, true},     {0, 0x55555555, true},     {8193, 0, true},
      {8193, 0x55554321, false}, {0xFFFFFFFF, 0, true}};
  for (const auto& [checked_length, checksum, valid] : rows) {
    std::memcpy(image.data(), &checksum, 4);
    std::memcpy(image.data() + 4, &checked_length, 4);
    EXPECT_EQ(CheckImageHeader(image.data()), valid) << checked_length << " " << checksum;
  }
  EXPECT_FALSE(CheckImageHeader(nullptr));
}

TEST(ImageTest, TextFieldsEndAtZeroOrAtTheirEnd) {
  UpgradeImage wanted = ImageOf(0);
  wanted.file_id = std::string(80, 'f');
  wanted.boot_input = "b\xC3\xA4";
  const Bytes image = UpgradeFileBuilder(wanted).Build();
  const UpgradeFileHeader header = ReadImageHeader(image.data());
  EXPECT_EQ(ReadTextField(header.file_id), std::wstring(64, L'f'));
  EXPECT_EQ(ReadTextField(header.boot_input_key), L"b\u00E4");
}

// The start packet's tail stays in every other packet; addresses wrap.
TEST(PacketTest, CutsThePayload) {
  for (const size_t size : {0u, 1u, 32u, 33u, 64u}) {
    SCOPED_TRACE(size);
    UpgradeImage wanted = ImageOf(size);
    wanted.start.length = 255;  // cut to its data
    std::fill_n(wanted.packet.data.begin() + 5, 4, uint8_t{0xFF});
    const auto packets = BuildUpgradePackets(UpgradeFileBuilder(wanted).Build().data());
    ASSERT_EQ(packets.size(), 1 + (size + 31) / 32);
    Bytes expected(62, 0x77);
    expected.resize(64);
    for (size_t i = 0; i < packets.size(); ++i) {
      const bool last = i + 1 == packets.size();
      if (i > 0) {
        const size_t sent = 32 * (i - 1);
        const auto count = static_cast<uint8_t>(std::min<size_t>(size - sent, 32));
        const Bytes head = {0x05, 0xB1, static_cast<uint8_t>(last ? 0xC1 : 0xC0), count, 0};
        std::ranges::copy(head, expected.begin());
        const Bytes address = i == 1 ? Bytes{0xFF, 0xFF, 0xFF, 0xFF} : Bytes{0, 0, 0, 31};
        std::ranges::copy(address, expected.begin() + 5);
        std::fill(expected.begin() + 9, expected.begin() + 17, uint8_t{0});
        for (size_t j = 0; j < 32; ++j)
          expected[17 + j] = j < count ? static_cast<uint8_t>(sent + j + 1) : uint8_t{0xFF};
      }
      EXPECT_EQ(Bytes(packets[i].data, packets[i].data + 64), expected) << i;
      EXPECT_EQ(packets[i].is_last, last);
    }
  }
}

Bytes Split(const Bytes& file, int32_t which) {
  Bytes out(file.size() + 1, 0xEE);
  uint32_t length = 0xEEEE;
  const bool ok = UsbUpgrade_FileSplit(file.data(), 0, out.data(), &length, which);
  EXPECT_EQ(ok, length != 0);
  EXPECT_EQ(out[std::max(length, 1u)], 0xEE);
  out.resize(length);
  return out;
}

Bytes ManagedSplit(const uint8_t* file, size_t size, int32_t which) {
  return TakeBytes(CS_UsbUpgrade_FileSplit(file, static_cast<uint32_t>(size), which));
}

TEST(FileSplitTest, CutsEitherImage) {
  const Bytes header = UpgradeFileBuilder(ImageOf(0)).Build();
  const Bytes alone = UpgradeFileBuilder(ImageOf(40)).Build();
  const Bytes both = UpgradeFileBuilder(ImageOf(40)).Slave(ImageOf(7)).Gap(13).Build();
  const Bytes main(both.begin(), both.begin() + 8192 + 40);
  const Bytes slave(both.end() - 8192 - 7, both.end());
  Bytes bad_main = both;
  bad_main[100] ^= 1;
  Bytes bad_slave = both;
  bad_slave[both.size() - 8000] ^= 1;

  const std::tuple<Bytes, Bytes, Bytes> rows[] = {// file, its main image, its slave image
                                                  {header, header, {}},
                                                  {alone, alone, {}},
                                                  {both, main, slave},
                                                  {bad_main, {}, {}},
                                                  {bad_slave, main, {}}};
  for (const auto& [file, main_image, slave_image] : rows) {
    for (const int32_t which : {0, 1, -1}) {
      const Bytes& expected = which == 0 ? main_image : slave_image;
      EXPECT_EQ(Split(file, which), expected);
      EXPECT_EQ(ManagedSplit(file.data(), file.size(), which), expected);
    }
  }
}

}  // namespace
}  // namespace perilink::testing
