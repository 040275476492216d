// The platform's calls on the machine's devices.
#include <sys/wait.h>

#include "machine.h"
#include "perilink_platform/hid_bus.h"
#include "perilink_platform/world.h"

namespace perilink::testing {
namespace {

using Type = UsbDevice::Type;
using Answer = UsbDevice::Answer;

class MachineBus : public Machine {
 protected:
  void SetUp() override {
    Machine::SetUp();
    Plug();
    ASSERT_TRUE(WaitForPaths(7));
  }
};

DWORD ErrorOfOpening(const std::wstring& path, DWORD access) {
  const UniqueFile file(CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
  return file.Valid() ? 0 : GetLastError();
}

TEST_F(MachineBus, ListsCollectionsAsWindowsSpellsThem) {
  const Paths paths = Present();
  const std::wstring keys[] = {L"mi_00#", L"mi_01&col01#", L"mi_01&col02#", L"mi_01&col03#",
                               kEventKey, kCommandKey,     kBootKey};
  for (size_t i = 0; i < std::size(keys); ++i)
    EXPECT_EQ(paths[i].find(L"\\\\?\\hid#vid_1234&pid_abcd&" + keys[i] + L"7&"), 0u);
  EXPECT_EQ(OpenDescriptors(Nodes()[1]), 0u) << "nothing is opened for that";
  EXPECT_EQ(platform::HidNodeOf(paths[5]), Nodes()[1]);

  // Somebody keeps the old node, so that the number can't be the same.
  const int kept = open(Nodes()[1].c_str(), O_RDWR | O_CLOEXEC);
  const std::vector<std::string> before = Nodes();
  Unplug();
  ASSERT_TRUE(WaitForPaths(0));
  Plug();
  ASSERT_TRUE(WaitForPaths(7));
  EXPECT_NE(Nodes(), before);
  EXPECT_EQ(Present(), paths) << "the same port, the same paths";
  close(kept);
}

TEST_F(MachineBus, OpensWhatIsNotTheSystems) {
  const struct {
    std::wstring path;
    DWORD access;
    DWORD error;
  } rows[] = {
      {PathWith(L"&mi_00#"), GENERIC_READ, ERROR_ACCESS_DENIED},
      {PathWith(L"&col01#"), GENERIC_WRITE, ERROR_ACCESS_DENIED},
      {PathWith(L"&col01#"), 0, 0},
      {PathWith(L"&col02#"), GENERIC_READ, 0},
      {PathWith(kCommandKey), GENERIC_READ | GENERIC_WRITE, 0},
      {PathWith(kCommandKey) + L"x", GENERIC_READ, ERROR_FILE_NOT_FOUND},
  };
  for (const auto& row : rows)
    EXPECT_EQ(ErrorOfOpening(row.path, row.access), row.error);
  HIDD_ATTRIBUTES attributes{};
  ASSERT_TRUE(Handle(PathWith(kCommandKey)).handles().GetAttributes(attributes));
  EXPECT_EQ(attributes.VendorID, 0x1234);
  EXPECT_EQ(attributes.ProductID, 0xABCD);
  EXPECT_EQ(attributes.VersionNumber, 0x0123);
  EXPECT_EQ(OpenDescriptors(Nodes()[0]), 0u);
  EXPECT_DEATH(platform::StartVirtual(1), "StartVirtual must come before");
}

TEST_F(MachineBus, ChecksAndPadsWhatIsWritten) {
  const Handle commands(PathWith(kCommandKey));
  const Handle boot(PathWith(kBootKey));
  const Handle events(PathWith(kEventKey));
  TakeReceived();
  const struct {
    const Handle& handle;
    bool feature;
    Bytes report;
    DWORD error;
    std::vector<Received> received;
  } rows[] = {
      {commands, false, Padded({8, 1}, 17), 0, {{1, Type::kOutput, Padded({8, 1}, 17)}}},
      {commands, false, {8, 1, 2}, 0, {{1, Type::kOutput, Padded({8, 1, 2}, 17)}}},
      {commands, true, {8, 3}, 0, {{1, Type::kFeature, Padded({8, 3}, 17)}}},
      {commands, false, Bytes(18, 8), ERROR_INVALID_PARAMETER, {}},
      {commands, false, {1, 1}, ERROR_INVALID_PARAMETER, {}},
      {commands, true, {0, 1}, ERROR_INVALID_PARAMETER, {}},
      {events, false, {6, 1}, ERROR_INVALID_FUNCTION, {}},
      {boot, false, {0, 0xB0}, 0, {{2, Type::kOutput, Padded({0xB0}, 63)}}},
      {boot, true, {0, 0xB1}, 0, {{2, Type::kFeature, Padded({0xB1}, 63)}}},
      {boot, false, {8, 0xB0}, ERROR_INVALID_PARAMETER, {}},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.handle.Send(row.report, row.feature), row.error);
    // The device has it when the write is over.
    EXPECT_EQ(TakeReceived(), row.received);
  }
  answer_ = Answer::kStall;
  for (const bool feature : {false, true})
    EXPECT_EQ(commands.Send({8}, feature), ERROR_GEN_FAILURE);
}

TEST_F(MachineBus, GivesEachHandleItsCollectionsReports) {
  auto cancelled = std::make_unique<Handle>(PathWith(kCommandKey));
  Handle commands(PathWith(kCommandKey));
  Handle second(PathWith(kCommandKey));
  Handle events(PathWith(kEventKey), 8);
  Handle boot(PathWith(kBootKey), 64);
  cancelled->Listen();
  cancelled.reset();
  device_.Send(1, Padded({6, 1}, 8));
  device_.Send(1, Padded({0x44, 1}, 17));  // an id of no collection
  device_.Send(1, Padded({2, 1}, 3));      // of another one
  device_.Send(1, {8, 9});                 // too short: passed on or not, as the kernel likes
  device_.Send(1, Padded({8, 2}, 17));
  device_.Send(2, Padded({0x5A}, 63));
  EXPECT_EQ(events.Read(), Padded({6, 1}, 8));
  for (Handle* const handle : {&commands, &second}) {
    Bytes report = handle->Read();
    if (report == Padded({8, 9}, 17)) report = handle->Read();
    EXPECT_EQ(report, Padded({8, 2}, 17));
  }
  EXPECT_EQ(boot.Read(), Padded({0, 0x5A}, 64)) << "as on Windows, with an id of 0";
  EXPECT_TRUE(events.Read(200).empty());
  // What comes before a handle is opened is not for it.
  device_.Send(1, Padded({8, 3}, 17));
  EXPECT_EQ(second.Read(), Padded({8, 3}, 17));
  Handle late(PathWith(kCommandKey));
  device_.Send(1, Padded({8, 4}, 17));
  EXPECT_EQ(late.Read(), Padded({8, 4}, 17));
  EXPECT_EQ(commands.Read(), Padded({8, 3}, 17));
}

// The kernel's first opening takes 50 ms, and a direct command opens and closes.
TEST_F(MachineBus, KeepsAFileOpenForTheNextHandle) {
  const Handle in_use(PathWith(kCommandKey));
  const std::string node = Nodes()[2];
  const auto start = Clock::now();
  EXPECT_TRUE(Handle(PathWith(kBootKey)).IsOpen());
  EXPECT_EQ(OpenDescriptors(node), 1u);
  EXPECT_TRUE(Eventually([&] { return OpenDescriptors(node) == 0; }));
  EXPECT_GT(Since(start), milliseconds(1900));
  EXPECT_EQ(OpenDescriptors(Nodes()[1]), 1u);
}

TEST_F(MachineBus, TellsHandlesOfARemoval) {
  const std::wstring path = PathWith(kCommandKey);
  const std::string node = Nodes()[1];
  auto reading = std::make_unique<Handle>(path);
  auto queued = std::make_unique<Handle>(path);
  device_.Send(1, Padded({8, 1}, 17));
  EXPECT_EQ(reading->Read(), Padded({8, 1}, 17));
  reading->Listen();
  Unplug();
  EXPECT_EQ(reading->Next(30'000), Arrival::kFailure);
  EXPECT_EQ(GetLastError(), ERROR_DEVICE_NOT_CONNECTED);
  EXPECT_TRUE(queued->HasGone()) << "and what it had not read";
  EXPECT_EQ(queued->Send(Bytes{8}, true), ERROR_DEVICE_NOT_CONNECTED);
  ASSERT_TRUE(WaitForPaths(0));
  EXPECT_EQ(ErrorOfOpening(path, GENERIC_READ), ERROR_FILE_NOT_FOUND);

  Plug();
  ASSERT_TRUE(Eventually([&] { return PathWith(kCommandKey) == path; }));
  EXPECT_TRUE(queued->HasGone()) << "an old handle";
  const Handle fresh(path);
  EXPECT_EQ(fresh.Send({8}), 0u);
  reading.reset();
  queued.reset();
  EXPECT_TRUE(Eventually([&] { return OpenDescriptors(node) + OpenDescriptors(Nodes()[1]) <= 1; }));
}

// A write that the device never takes keeps its caller, and whoever opens or closes a node of the
// machine's. A host that talks to another interface notices nothing.
TEST_F(MachineBus, WaitsForAStuckWriteAlone) {
  Handle commands(PathWith(kCommandKey));
  const Handle boot(PathWith(kBootKey));
  answer_ = Answer::kHold;
  TakeReceived();
  const auto start = Clock::now();
  DWORD error = 0;
  std::thread writer([&] { error = boot.Send({0, 1}); });
  ASSERT_TRUE(Eventually([this] { return !TakeReceived().empty(); }));
  milliseconds opened{};
  std::thread stranger([&] {
    close(open(Nodes()[kPointer].c_str(), O_RDWR | O_CLOEXEC));
    opened = Since(start);
  });
  EXPECT_TRUE(Handle(PathWith(kCommandKey)).IsOpen());
  device_.Send(1, Padded({8, 1}, 17));
  EXPECT_EQ(commands.Read(), Padded({8, 1}, 17));
  EXPECT_LT(Since(start), milliseconds(4000));
  writer.join();
  stranger.join();
  EXPECT_EQ(error, ERROR_SEM_TIMEOUT);
  EXPECT_GE(opened, milliseconds(4900));
  answer_ = Answer::kTake;
  EXPECT_EQ(boot.Send({0, 1}), 0u);
  // The device's end ends it at once.
  answer_ = Answer::kHold;
  TakeReceived();
  std::thread last_writer([&] { error = boot.Send({0, 1}); });
  ASSERT_TRUE(Eventually([this] { return !TakeReceived().empty(); }));
  const auto unplugged = Clock::now();
  device_.Unplug();
  last_writer.join();
  EXPECT_NE(error, 0u);
  EXPECT_LT(Since(unplugged), milliseconds(4000));
}

// Each sees the other's replies, and takes none of them for its own.
TEST(TwoProcesses, ShareADevice) {
  const auto ask = [] {
    int right = 0;
    bool wrong = false;
    Eventually([&] {
      const std::wstring path = PathWith(kCommandKey);
      BatteryLevel battery{};
      const int32_t version = UsbFinder_GetVersion(path);
      const bool told = UsbFinderC_GetBatteryLevel(Narrow(path).c_str(), &battery);
      wrong = (version > 0 && version != 0x0102) || (told && battery.level != 80);
      right += version > 0 && told;
      return wrong || right == 30;
    });
    return right == 30 && !wrong;
  };
  ASSERT_TRUE(WaitForNodes(0));
  const pid_t other = fork();
  if (other == 0) _exit(ask() ? 0 : 1);
  const auto mouse = NewDevice();
  mouse->Plug();
  EXPECT_TRUE(ask());
  int status = 1;
  waitpid(other, &status, 0);
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace perilink::testing
