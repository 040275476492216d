// Exports called from several threads while an upgrade runs, with real threads.
#include <atomic>
#include <thread>

#include "upgrade_rig.h"

namespace perilink::testing {
namespace {

TEST_F(UpgradeTest, ExportsFromSeveralThreadsDuringAnUpgrade) {
  sim::Mouse mouse;
  mouse.Plug();
  const sim::Bytes file = FileFor(mouse);
  const sim::Bytes broken(8192);
  std::atomic<bool> done = false;
  on_event = [&done](const Event& event) {
    RawLog();
    if (event[0] == 2) done = true;
  };
  events.clear();
  ASSERT_TRUE(UsbUpgrade_Start(file.data(), RecordEvent, 5000));
  std::vector<std::thread> hosts;
  for (int host = 0; host < 3; ++host) {
    hosts.emplace_back([&] {
      sim::Bytes image(file.size());
      uint32_t length = 0;
      while (!done) {
        RawLog();
        EXPECT_TRUE(UsbUpgrade_FileSplit(file.data(), 0, image.data(), &length, 0));
        EXPECT_FALSE(UsbUpgrade_Start(broken.data(), nullptr, 0));
        UsbUpgrade_EnableSaveLogFile(0);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      }
    });
  }
  for (std::thread& host : hosts)
    host.join();
  WaitUntilUpgradeEnds();
  EXPECT_EQ(events.back(), (Event{2, 1, 0, 0}));
}

}  // namespace
}  // namespace perilink::testing
