// A host that asks on its own thread: which devices there are, commands, a keyboard's keys.
#include <algorithm>
#include <atomic>
#include <cstring>

#include "scenario.h"

namespace perilink::testing {
namespace {

using Finder = Scenario;

// Each search, with a part of the paths that it finds, and the three families of a list.
TEST_F(Finder, FindsADeviceByEveryKey) {
  const struct {
    std::function<void(Paths&)> search;
    const wchar_t* part;
    size_t count;
  } searches[] = {
      {[](Paths& paths) { UsbFinder_FindHidDevices(L"1234", L"ABCD", paths); },
       L"vid_1234&pid_abcd", 6},
      {[](Paths& paths) { UsbFinder_FindHidDevicesByKey(L"MI_01", paths); }, L"mi_01", 5},
      {[](Paths& paths) { UsbFinder_FindHidDevicesByDeviceId(L"1234", L"", 1, 5, paths); },
       L"mi_01&col05", 1},
  };
  Paths all = {L"replaced"};
  UsbFinder_EnumHidDeviceList(all);
  for (const auto& [search, part, count] : searches) {
    Paths expected;
    std::ranges::copy_if(
        all, std::back_inserter(expected),
        [&part = part](const std::wstring& path) { return path.find(part) != std::wstring::npos; });
    Paths found = {L"replaced"};
    search(found);
    EXPECT_EQ(found, expected);
    EXPECT_EQ(found.size(), count);
  }
  uint32_t count = 77;
  char** const list = UsbFinderC_EnumHidDeviceList(&count);
  Paths texts;
  for (const std::string& text : TakeTexts(list, count))
    texts.emplace_back(text.begin(), text.end());
  EXPECT_EQ(texts, all);
  EXPECT_EQ(TakeTexts(CS_UsbFinder_EnumHidDeviceList()), all);
  HIDD_ATTRIBUTES attributes{};
  attributes.Size = sizeof attributes;
  UsbFinder_GetUsbDeviceAttribute(Path(), &attributes);
  EXPECT_EQ(attributes.VendorID, 0x1234);
  EXPECT_EQ(attributes.ProductID, 0xABCD);
  EXPECT_EQ(attributes.VersionNumber, 0x0100);
}

TEST_F(Finder, AsksADeviceDirectly) {
  const std::string path = NarrowPath();
  EXPECT_EQ(UsbFinder_GetVersion(Path()), mouse.firmware().options().version);
  EXPECT_TRUE(UsbFinderC_GetDeviceOnLine(path.c_str()));
  EXPECT_EQ(TakeBytes(CS_UsbFinder_GetDeviceOnLineWithUsbAddress(path.c_str())).at(6), 1);
  BatteryLevel battery{};
  EXPECT_TRUE(UsbFinderC_GetBatteryLevel(path.c_str(), &battery));
  EXPECT_EQ(battery.level, 80);
  DataRecord10 number{{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}};
  DataRecord10 kept{};
  EXPECT_TRUE(UsbFinderC_SetMouseSerialNumber(path.c_str(), &number));
  EXPECT_TRUE(CS_UsbFinder_GetMouseSerialNumber(path.c_str(), &kept));
  EXPECT_EQ(std::memcmp(&number, &kept, sizeof kept), 0);
}

// Raw, through a pair of handles that stays open.
TEST_F(Finder, PassesReportsThrough) {
  const std::string path = NarrowPath();
  const sim::Frame request = sim::MakeFrame(sim::command::kVersion, 0);
  Bytes reply(request.size());
  EXPECT_FALSE(UsbFinder_WriteDeviceData(request.data(), 17));
  ASSERT_TRUE(UsbFinderC_OpenDevice(path.c_str()));
  EXPECT_TRUE(UsbFinderC_ReadWriteDeviceData(request.data(), reply.data(), 17));
  EXPECT_EQ(reply[1], sim::command::kVersion);
  EXPECT_EQ(TakeBytes(CS_UsbFinder_ReadWriteDeviceData(request.data(), 17)), reply);
  Unplug();
  EXPECT_FALSE(UsbFinderC_ReadWriteDeviceData(request.data(), reply.data(), 17));
  UsbFinderC_CloseDevice();
  EXPECT_EQ(TakeBytes(CS_UsbFinder_ReadWriteDeviceData(request.data(), 17)), Bytes());
}

TEST_F(Finder, ReadsTheKeysOfAKeyboard) {
  const auto keyboard = NewDevice(sim::KeyboardOptions());
  Plug(*keyboard);
  const std::string path = Narrow(PathOf(*keyboard));
  EXPECT_EQ(TakeBytes(CS_UsbKeyboard_LoadLayerKeys(path.c_str(), 2)), FlashOf(*keyboard, 512, 512));
}

// At whichever step of an exchange the device goes: the answer is right or there is none.
TEST_F(Finder, SurvivesAnUnplugAtEveryStep) {
  const int32_t version = mouse.firmware().options().version;
  const auto in_exchange = [this](sim::Exchange&) { mouse.Unplug(); };
  const std::function<void()> steps[] = {
      [&] { mouse.Unplug(); },
      [&] { mouse.faults().OnRequest(in_exchange, sim::At(1)); },
      [&] { mouse.faults().UnplugAfter(sim::At(1)); },
      [&] { mouse.faults().OnReply(in_exchange, sim::At(1)); },
      [&] { mouse.faults().OnReply([](sim::Exchange& e) { e.unplug = true; }, sim::At(1)); },
  };
  // What is made once for a process is there, with a reply that doesn't come, too.
  mouse.faults().Silence();
  UsbFinder_GetVersion(Path());
  mouse.faults().Heal();
  Unplug();
  Sleep(200);  // what the device itself held has gone, too
  const std::vector<uint64_t> held = Held();
  Plug(mouse);
  for (const auto& step : steps) {
    const std::wstring path = Path();
    step();
    const int32_t answer = UsbFinder_GetVersion(path);
    EXPECT_TRUE(answer == version || answer <= 0) << answer;
    mouse.faults().Heal();
    Unplug();
    Plug(mouse);
  }
  Unplug();
  EXPECT_TRUE(Eventually([&] { return Held() == held; }))
      << ::testing::PrintToString(Held()) << ::testing::PrintToString(held);
}

// Three hosts on a device that is unplugged and comes back again and again.
TEST_F(Finder, SurvivesReplugsUnderLoad) {
  struct Load {
    const sim::Device& device;
    std::atomic<bool> done{false};
    std::atomic<int> right{0};
    std::atomic<int> wrong{0};
  };
  const auto ask = [](LPVOID argument) -> DWORD {
    Load& load = *static_cast<Load*>(argument);
    const int32_t version = sim::MouseOptions().firmware.version;
    while (!load.done) {
      const std::wstring path = PathOf(load.device);
      const int32_t answer = path.empty() ? 0 : UsbFinder_GetVersion(path);
      if (answer == version) ++load.right;
      if (answer != version && answer > 0) ++load.wrong;
      if (path.empty()) Sleep(5);
    }
    return 0;
  };
  Load load{mouse};
  HANDLE hosts[3];
  for (HANDLE& host : hosts)
    host = CreateThread(nullptr, 0, ask, &load, 0, nullptr);
  for (DWORD replug = 0; replug < 6; ++replug) {
    const int before = load.right;
    EXPECT_TRUE(Eventually([&] { return load.right > before; })) << "after replug " << replug;
    mouse.Unplug();
    Sleep(replug % 4 * 40);
    mouse.Plug();
  }
  load.done = true;
  for (const HANDLE host : hosts) {
    WaitForSingleObject(host, INFINITE);
    CloseHandle(host);
  }
  EXPECT_EQ(load.wrong, 0);
}

}  // namespace
}  // namespace perilink::testing
