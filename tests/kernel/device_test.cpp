// The library's exports on virtual devices that the kernel sees, over hidraw from end to end.
#include <sys/wait.h>

#include <cstring>
#include <map>

#include "machine.h"
#include "perilink_platform/world.h"
#include "sim/kernel_device.h"
#include "sim/upgrade_file.h"
#include "sim/virtual_firmware.h"
#include "support/interop_values.h"

namespace perilink::testing {
namespace {

constexpr uint8_t kReadMemory = sim::command::kReadMemory;

std::string Narrow(const std::wstring& text) {
  return {text.begin(), text.end()};
}

// Of this process, devices apart.
enum Resource { kHandles, kDescriptors, kThreads };
std::map<Resource, int64_t> Resources() {
  const auto count = [](const char* folder) {
    return std::distance(std::filesystem::directory_iterator(folder), {});
  };
  return {{kHandles, static_cast<int64_t>(platform::OpenHandleCount())},
          {kDescriptors, count("/proc/self/fd")},
          {kThreads, count("/proc/self/task")}};
}

// The last answer of each command and length.
std::mutex answers_mutex;
std::map<std::pair<uint8_t, size_t>, Bytes> answers;

void PERILINK_CALL OnReport(const uint8_t* frame, uint32_t, const uint8_t* data, uint32_t length) {
  const std::lock_guard lock(answers_mutex);
  answers[{frame[1], length}] = {data, data + length};
}

// The data of an answer that has not been taken yet; none if it doesn't come in time.
Bytes TakeAnswer(uint8_t command, size_t length, milliseconds time = kPatience) {
  Bytes found;
  Eventually(
      [&] {
        const std::lock_guard lock(answers_mutex);
        return !(found = std::exchange(answers[{command, length}], {})).empty();
      },
      time);
  return found;
}

std::atomic<int> upgrade_result;

// 1: success. 0: it did not start. A device has 21 s to appear, or as many as are given.
int Upgrade(const Bytes& file, uint32_t seconds = 21) {
  upgrade_result = 0;
  const auto on_event = [](const uint8_t* message, uint32_t) {
    if (message[1] == 2) upgrade_result = message[2];
    return 0;
  };
  if (!UsbUpgrade_Start(file.data(), on_event, seconds * 1000 / 2)) return 0;
  Eventually([] { return upgrade_result != 0; }, 3 * kPatience);
  return upgrade_result;
}

class Library : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(WaitForNodes(0)) << "of the test before";
    Plug(mouse);
  }
  // Ends when all of it is there.
  static void Plug(sim::Device& device) {
    size_t collections = Paths().size();
    for (const sim::InterfaceShape& shape : device.shape(sim::Mode::kNormal).interfaces)
      collections += shape.collections.size();
    device.Plug();
    ASSERT_TRUE(WaitForPaths(collections));
  }
  void Unplug() {
    mouse.Unplug();
    ASSERT_TRUE(WaitForPaths(0));
  }
  static std::wstring PathOf(sim::Device& device) {
    const std::string key = device.CommandKey();
    return PathWith({key.begin(), key.end()});
  }
  static Bytes FlashOf(sim::Device& device) {
    const auto lock = device.Lock();
    const auto bytes = device.flash().bytes().first(PERILINK_FLASH_IMAGE_SIZE);
    return {bytes.begin(), bytes.end()};
  }
  void StartServer() {
    const std::string path = Narrow(PathOf(mouse));
    UsbServerC_Start(path.c_str(), path.c_str(), OnReport);
  }
  Bytes UpgradeFile(uint16_t version) {
    return sim::UpgradeFileBuilder(sim::ImageFor(mouse, sim::MakeVirtualFirmware(version, 2048)))
        .Build();
  }
  void ExpectVersion(uint16_t version) {
    ASSERT_TRUE(Eventually([this] { return !PathOf(mouse).empty(); }));
    EXPECT_EQ(UsbFinder_GetVersion(PathOf(mouse)), version);
  }

  sim::KernelDevice mouse;
};

TEST_F(Library, FindsADeviceByEveryKey) {
  std::vector<std::wstring> all, by_ids, by_place, by_default;
  UsbFinder_EnumHidDeviceList(all);
  UsbFinder_FindHidDevices(L"1234", L"ABCD", by_ids);
  UsbFinder_FindHidDevicesByDeviceId(L"1234", L"abcd", 1, 5, by_place);
  UsbFinder_FindHidDevicesByDefaultDeviceId(L"1234", L"abcd", by_default);
  EXPECT_EQ(all.size(), 6u);
  EXPECT_EQ(by_ids, all);
  for (const auto& one : {Paths(L"MI_01&COL05"), by_place, by_default})
    EXPECT_EQ(one, std::vector{PathOf(mouse)});
}

TEST_F(Library, AsksADeviceDirectly) {
  const std::string path = Narrow(PathOf(mouse));
  EXPECT_TRUE(UsbFinderC_GetDeviceOnLine(path.c_str()));
  BatteryLevel battery{};
  EXPECT_TRUE(UsbFinderC_GetBatteryLevel(path.c_str(), &battery));
  EXPECT_EQ(battery.level, 80);
  DataRecord10 number{{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}};
  DataRecord10 kept{};
  EXPECT_TRUE(UsbFinderC_SetMouseSerialNumber(path.c_str(), &number));
  EXPECT_TRUE(UsbFinderC_GetMouseSerialNumber(path.c_str(), &kept));
  EXPECT_EQ(std::memcmp(&number, &kept, sizeof kept), 0);
  // Raw, through a pair of handles that stays open.
  const sim::Frame request = sim::MakeFrame(sim::command::kVersion, 0, {}, 0);
  Bytes reply(17);
  ASSERT_TRUE(UsbFinderC_OpenDevice(path.c_str()));
  EXPECT_TRUE(UsbFinderC_ReadWriteDeviceData(request.data(), reply.data(), 17));
  EXPECT_EQ(reply[1], sim::command::kVersion);
  UsbFinderC_CloseDevice();
}

TEST_F(Library, ReadsTheKeysOfAKeyboard) {
  sim::KernelDevice keyboard(sim::KeyboardOptions(), 1);
  Plug(keyboard);
  const std::string path = Narrow(PathOf(keyboard));
  const Bytes keys = TakeBytes(CS_UsbKeyboard_LoadLayerKeys(path.c_str(), 2));
  const auto lock = keyboard.Lock();
  const auto held = keyboard.flash().bytes().subspan(512, 512);
  EXPECT_EQ(keys, Bytes(held.begin(), held.end()));
}

TEST_F(Library, ReadsUpdatesAndFollowsADevice) {
  StartServer();
  UsbServer_ReadAllFlashData();
  const Bytes image = TakeAnswer(kReadMemory, PERILINK_FLASH_IMAGE_SIZE);
  ASSERT_EQ(image, FlashOf(mouse));
  ProtocolData record{};
  ProtocolDataParser(image.data(), &record);
  record.dpi_levels[0].color = {{0x20, 0x80, 0xE0}};
  ProtocolDataUpdate(&record);
  EXPECT_FALSE(TakeAnswer(sim::command::kWriteMemory, 4).empty());
  EXPECT_EQ(FlashOf(mouse)[44], 0x20);
  mouse.SendEvent(0x05);
  EXPECT_FALSE(TakeAnswer(sim::command::kEvent, 10).empty());
  UsbServer_Exit();
}

// At whichever step the device goes: what is reported is right or nothing, and nothing is left
// behind when it is over.
class UnplugAtEveryStep : public Library {
 protected:
  void SetUp() override {
    Library::SetUp();
    // What is made once for a process is there: without a reply, too.
    mouse.faults().Silence();
    UsbFinder_GetVersion(PathOf(mouse));
    Unplug();
    sleep_for(milliseconds(100));
    before_ = Resources();
  }
  void TearDown() override {
    Unplug();
    Eventually([this] { return Resources() == before_; });
    EXPECT_EQ(Resources(), before_);
  }
  void PlugAgain() {
    mouse.faults().Heal();
    mouse.boot_faults().Heal();
    Unplug();
    Plug(mouse);
  }

  std::map<Resource, int64_t> before_;
};

TEST_F(UnplugAtEveryStep, OfAnExchange) {
  const uint16_t version = mouse.firmware().options().version;
  const std::function<void()> steps[] = {
      [&] { mouse.Unplug(); },
      [&] { mouse.faults().OnRequest([&](sim::Exchange&) { mouse.Unplug(); }); },
      [&] { mouse.faults().UnplugAfter(sim::At(1)); },
      [&] { mouse.faults().OnReply([&](sim::Exchange&) { mouse.Unplug(); }); },
      [&] { mouse.faults().OnReply([](sim::Exchange& e) { e.unplug = true; }); },
  };
  for (const auto& step : steps) {
    PlugAgain();
    const std::wstring path = PathOf(mouse);
    step();
    const int32_t answer = UsbFinder_GetVersion(path);
    EXPECT_TRUE(answer == version || answer <= 0) << answer;
  }
}

TEST_F(UnplugAtEveryStep, OfAWholeRead) {
  for (const uint64_t frame : {1, 2, 40}) {
    PlugAgain();
    mouse.faults().UnplugAfter(sim::At(frame).For(kReadMemory));
    StartServer();
    UsbServer_ReadAllFlashData();
    ASSERT_TRUE(WaitForPaths(0));
    EXPECT_TRUE(TakeAnswer(kReadMemory, PERILINK_FLASH_IMAGE_SIZE, milliseconds(300)).empty());
  }
  PlugAgain();
  StartServer();
  UsbServer_ReadAllFlashData();
  EXPECT_EQ(TakeAnswer(kReadMemory, PERILINK_FLASH_IMAGE_SIZE), FlashOf(mouse));
  UsbServer_Exit();
}

// At the reset, the start packet, a data packet and the last one. The last upgrade repairs all.
TEST_F(UnplugAtEveryStep, OfAnUpgrade) {
  const Bytes file = UpgradeFile(0x0456);
  PlugAgain();
  mouse.faults().UnplugAfter(sim::At(1));
  EXPECT_GT(Upgrade(file, 2), 1);
  for (const uint64_t packet : {1, 2, 65}) {
    mouse.boot_faults().Heal();
    mouse.boot_faults().UnplugAfter(sim::At(packet));
    mouse.PlugInBootMode();
    ASSERT_TRUE(WaitForPaths(1));
    // On a busy machine an upgrade may end before it comes to that, and is started again.
    while (mouse.mode() != sim::Mode::kUnplugged)
      ASSERT_GT(Upgrade(file, 2), 1) << "at packet " << packet;
    ASSERT_TRUE(WaitForPaths(0)) << "at packet " << packet;
  }
  mouse.boot_faults().Heal();
  mouse.Plug();
  // In boot mode, unless the last packet was the whole firmware's last.
  ASSERT_TRUE(Eventually([] { return !Paths().empty(); }));
  // Here, too.
  EXPECT_TRUE(Eventually([&] { return Upgrade(file) == 1; }, 3 * kPatience));
  ExpectVersion(0x0456);
}

TEST_F(Library, UpgradesADevice) {
  EXPECT_EQ(Upgrade(UpgradeFile(0x0345)), 1);
  ExpectVersion(0x0345);
}

// Three threads of direct commands on a device that is unplugged and comes back again and again.
TEST_F(Library, SurvivesReplugsUnderLoad) {
#ifdef __SANITIZE_THREAD__
  constexpr int kReplugs = 20;
#else
  constexpr int kReplugs = 6;
#endif
  const uint16_t version = mouse.firmware().options().version;
  std::atomic<bool> done{false};
  std::atomic<int> right{0};
  std::atomic<int> wrong{0};
  std::vector<std::thread> hosts;
  for (int i = 0; i < 3; ++i) {
    hosts.emplace_back([&] {
      while (!done) {
        const std::wstring path = PathOf(mouse);
        if (path.empty()) sleep_for(milliseconds(20));
        const int32_t answer = UsbFinder_GetVersion(path);
        right += answer == version;
        wrong += answer != version && answer > 0;
      }
    });
  }
  for (int replug = 0; replug < kReplugs; ++replug) {
    const int before = right;
    EXPECT_TRUE(Eventually([&] { return right > before; })) << "after replug " << replug;
    mouse.Unplug();
    sleep_for(milliseconds(replug % 4 * 40));
    mouse.Plug();
  }
  done = true;
  for (std::thread& host : hosts)
    host.join();
  EXPECT_EQ(wrong, 0);
}

// Each sees the other's replies, and takes none of them for its own.
TEST(TwoProcesses, ShareADevice) {
  const auto ask = [] {
    int right = 0;
    for (const auto start = Clock::now(); right < 30 && Since(start) < kPatience;) {
      const std::wstring path = PathWith(kCommandKey);
      BatteryLevel battery{};
      const int32_t version = UsbFinder_GetVersion(path);
      const bool told = UsbFinderC_GetBatteryLevel(Narrow(path).c_str(), &battery);
      if ((version > 0 && version != 0x0102) || (told && battery.level != 80)) return false;
      right += version > 0 && told;
    }
    return right == 30;
  };
  ASSERT_TRUE(WaitForNodes(0));
  const pid_t other = fork();
  if (other == 0) _exit(ask() ? 0 : 1);
  sim::KernelDevice mouse;
  mouse.Plug();
  EXPECT_TRUE(ask());
  int status = 1;
  waitpid(other, &status, 0);
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace perilink::testing
