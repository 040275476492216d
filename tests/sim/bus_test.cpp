// What adapters to buses rely on: what a device looks like, and time that is real.
#include <gtest/gtest.h>

#include <future>
#include <map>
#include <string>

#include "host.h"
#include "sim/real_time_world.h"

namespace perilink::sim {
namespace {

// Id and lengths of a collection's reports, as a system reads them from its descriptor.
std::string Parsed(const Bytes& descriptor) {
  std::map<int, int> last;   // value of each item; at 0 how many collections are open
  std::map<int, int> bytes;  // of each kind of report
  for (size_t at = 0, length = 0; at < descriptor.size(); at += 1 + length) {
    length = descriptor[at] & 3;
    const int item = descriptor[at] & 0xFC;
    const int low = length > 0 ? descriptor.at(at + 1) : 0;
    last[item] = length > 1 ? static_cast<int16_t>(low | descriptor.at(at + 2) << 8)
                            : static_cast<int8_t>(low);
    last[0] += item == 0xA0 ? 1 : item == 0xC0 ? -1 : 0;
    EXPECT_TRUE(item != 0x24 || last[item] >= last[0x14]) << "logical maximum";
    bytes[item] += (bytes[item] == 0 ? 1 : 0) + last[0x74] * last[0x94] / 8;
  }
  EXPECT_EQ(last[0], 0);
  char text[40];
  std::snprintf(text, sizeof(text), " %d %d/%d/%d", last[0x84], bytes[0x80], bytes[0x90],
                bytes[0xB0]);
  return text;
}

// Where a host finds it, and its interfaces' collections: usages, report id, lengths of reports.
std::string Shown(const UsbShape& shape) {
  std::string shown = shape.Key(shape.output);
  for (const InterfaceShape& part : shape.interfaces) {
    shown += ";";
    for (const CollectionShape& c : part.collections) {
      char text[80];
      std::snprintf(text, sizeof(text), " %x:%x %u %zu/%zu/%zu", c.usage_page, c.usage, c.report_id,
                    c.input_length, c.output_length, c.feature_length);
      shown += text;
      EXPECT_TRUE(shown.ends_with(Parsed(c.descriptor))) << shown << Parsed(c.descriptor);
    }
  }
  return shown;
}

TEST(Shape, DescriptorsSayWhatTheBusIsTold) {
  Host host;
  EXPECT_EQ(Shown(*host.attached),
            "vid_1234&pid_abcd&mi_01&col05; 1:2 0 8/0/0; 1:6 1 9/0/0 c:1 2 3/0/0 1:80 3 2/0/0"
            " ff01:1 4 8/0/0 ff02:1 8 17/17/17");
  EXPECT_EQ(host.mouse.OnFeatureReport(0, Bytes(17)), 1u);  // ERROR_INVALID_FUNCTION
  host.Exchange(host.mouse.ResetCommand(), 1000);
  ASSERT_EQ(Shown(*host.attached), "vid_1234&pid_b007; ff00:1 0 64/64/64");
  const InterfaceShape& boot = host.attached->interfaces[0];
  EXPECT_EQ(boot.FromWire(boot.OnWire(Bytes{0, 1, 2})), (Bytes{0, 1, 2}));
  EXPECT_EQ(boot.OnWire(Bytes{0, 1, 2}).size(), 2u);

  DeviceOptions options = KeyboardOptions();
  options.boot.separate_interfaces = true;
  options.boot.report_id = 5;
  options.boot.report_length = 300;
  EXPECT_EQ(Shown(Device(options, host, nullptr).shape(Mode::kBoot)),
            "vid_1234&pid_b008&mi_01; ff00:1 5 300/0/0; ff00:1 5 300/300/300");
}

TEST(RealTimeWorld, RunsEventsInTheirOrderAndUnderItsLock) {
  RealTimeWorld world;
  const uint64_t later = world.NowMicros() + 200'000;
  std::string ran;
  std::promise<void> all;
  {
    const std::lock_guard guard(world);
    world.Schedule(later, [&] { ran += 'b', all.set_value(); });
    world.Schedule(0, [&] { ran += 'a'; });
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(ran, "");
  }
  all.get_future().wait();
  EXPECT_EQ(ran, "ab");
  EXPECT_GE(world.NowMicros(), later);
}

}  // namespace
}  // namespace perilink::sim
