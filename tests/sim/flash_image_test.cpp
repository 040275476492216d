#include "sim/flash_image.h"

#include <gtest/gtest.h>

#include "sim/report.h"

namespace perilink::sim {
namespace {

Bytes Slice(const FlashImage& image, size_t address, size_t length) {
  const auto part = image.bytes().subspan(address, length);
  return {part.begin(), part.end()};
}

TEST(FlashImage, DefaultIsValidAndEveryBrokenFieldIsNamed) {
  EXPECT_TRUE(FlashImage::Default().InvalidFields().empty());
  // An erased memory has no valid field, but its slots are empty rather than wrong.
  EXPECT_EQ(FlashImage().InvalidFields().size(), FlashFields().size());
  size_t end = 0;
  for (const FlashField& field : FlashFields()) {
    EXPECT_GE(field.address, end);
    end = field.address + field.width + 1u;
    FlashImage image = FlashImage::Default();
    image.BreakField(field.address, field.width);
    EXPECT_EQ(image.InvalidFields(), std::vector<uint16_t>{field.address});
  }
  EXPECT_EQ(end, kConfigurationSize);
}

TEST(FlashImage, SlotsAreEncodedAsTheDeviceStoresThem) {
  FlashImage image;
  image.SetShortcut(3, std::vector<SlotEvent>{{0, 0x02, 0x04}, {1, 0x00, 0x05}});
  EXPECT_EQ(Slice(image, 256 + 32 * 3, 9),
            (Bytes{0x02, 0x82, 0x04, 0x00, 0x40, 0x05, 0x00, 0x88, 0xFF}));

  image.SetMacro(15, "Ab", std::vector<SlotEvent>{{0, 1, 4, 0, 10}, {1, 1, 4, 0, 300}});
  const size_t macro = 768 + 384 * 15;
  EXPECT_EQ(Slice(image, macro, 4), (Bytes{0x02, 'A', 'b', 0xFF}));
  EXPECT_EQ(Slice(image, macro + 31, 12),
            (Bytes{0x02, 0x81, 0x04, 0x00, 0x00, 0x0A, 0x41, 0x04, 0x00, 0x01, 0x2C, 0x52}));
  EXPECT_TRUE(image.ShortcutValid(3) && image.MacroValid(15));

  // A macro of full size ends within its slot and leaves its neighbour alone.
  image.SetMacro(14, std::string(40, 'n'), std::vector<SlotEvent>(70));
  EXPECT_EQ(image[macro - 384], 30);
  EXPECT_TRUE(image.MacroValid(14) && image.MacroValid(15));
  image.BreakField(macro + 31, 11);
  image.BreakField(256 + 32 * 3, 7);
  EXPECT_FALSE(image.ShortcutValid(3) || image.MacroValid(15));
}

}  // namespace
}  // namespace perilink::sim
