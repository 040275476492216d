// The platform's calls on the machine's devices.
#include <atomic>
#include <fstream>
#include <mutex>
#include <numeric>

#include "handle.h"
#include "perilink_platform/hid_bus.h"
#include "perilink_platform/world.h"

namespace perilink::testing {
namespace {

using Type = UsbDevice::Type;
using Answer = UsbDevice::Answer;

constexpr wchar_t kCommands[] = L"&mi_01&col05#";
constexpr wchar_t kEvents[] = L"&mi_01&col04#";
constexpr wchar_t kBoot[] = L"&mi_02#";

size_t OpenDescriptors(const std::string& node) {
  size_t count = 0;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    count += std::filesystem::read_symlink(entry.path(), ignored) == node;
  return count;
}

class MachineBus : public ::testing::Test {
 protected:
  struct Received {
    size_t interface_number;
    Type type;
    Bytes report;
    bool operator==(const Received&) const = default;
  };

  void SetUp() override {
    ASSERT_TRUE(WaitForNodes(0)) << "of the test before";
    device_.Plug();
    ASSERT_TRUE(WaitForNodes(3));
    ASSERT_TRUE(Eventually([] { return Paths().size() == 7; }));
  }

  Answer OnReport(const Received& received) {
    const std::lock_guard lock(mutex_);
    received_.push_back(received);
    return answer_;
  }
  std::vector<Received> TakeReceived() {
    const std::lock_guard lock(mutex_);
    return std::exchange(received_, {});
  }

  std::mutex mutex_;
  std::vector<Received> received_;
  std::atomic<Answer> answer_{Answer::kTake};
  UsbDevice device_{{}, MouseInterfaces(), [this](size_t number, Type type, const Bytes& report) {
                      return OnReport({number, type, report});
                    }};
};

Bytes Padded(Bytes report, size_t length) {
  report.resize(length);
  return report;
}

TEST_F(MachineBus, ListsCollectionsAsWindowsSpellsThem) {
  const std::vector<std::wstring> paths = Paths();
  const wchar_t* const parts[] = {
      L"&mi_00#", L"&mi_01&col01#", L"&mi_01&col02#", L"&mi_01&col03#", kEvents, kCommands, kBoot};
  for (size_t i = 0; i < std::size(parts); ++i)
    EXPECT_EQ(paths[i].find(std::wstring(L"\\\\?\\hid#vid_1234&pid_abcd") + parts[i] + L"7&"), 0u);
  EXPECT_EQ(OpenDescriptors(Nodes()[1]), 0u) << "nothing is opened for that";
  EXPECT_EQ(platform::HidNodeOf(paths[5]), Nodes()[1]);

  // Somebody keeps the old node, so that the number can't be the same.
  const int kept = open(Nodes()[1].c_str(), O_RDWR | O_CLOEXEC);
  const std::vector<std::string> before = Nodes();
  device_.Unplug();
  ASSERT_TRUE(Eventually([] { return Paths().empty(); }));
  device_.Plug();
  ASSERT_TRUE(Eventually([] { return Paths().size() == 7; }));
  EXPECT_NE(Nodes(), before);
  EXPECT_EQ(Paths(), paths) << "the same port, the same paths";
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
      {PathWith(kCommands), GENERIC_READ | GENERIC_WRITE, 0},
      {PathWith(kCommands) + L"x", GENERIC_READ, ERROR_FILE_NOT_FOUND},
  };
  for (const auto& row : rows)
    EXPECT_EQ(Handle(row.path, row.access).error(), row.error);
  HIDD_ATTRIBUTES attributes{};
  const Handle query(PathWith(L"&mi_00#"), 0);
  ASSERT_TRUE(HidD_GetAttributes(query.get(), &attributes));
  EXPECT_EQ(attributes.VendorID, 0x1234);
  EXPECT_EQ(attributes.ProductID, 0xABCD);
  EXPECT_EQ(attributes.VersionNumber, 0x0123);
  EXPECT_EQ(OpenDescriptors(Nodes()[0]), 0u);
}

TEST_F(MachineBus, ChecksAndPadsWhatIsWritten) {
  Handle commands(PathWith(kCommands));
  Handle boot(PathWith(kBoot));
  Handle events(PathWith(kEvents));
  TakeReceived();
  const struct {
    Handle& handle;
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
    EXPECT_EQ(row.feature ? row.handle.SetFeature(row.report) : row.handle.Write(row.report),
              row.error);
    // The device has it when the write is over.
    EXPECT_EQ(TakeReceived(), row.received);
  }
}

TEST_F(MachineBus, GivesEachHandleItsCollectionsReports) {
  Handle commands(PathWith(kCommands));
  Handle second(PathWith(kCommands));
  Handle events(PathWith(kEvents));
  Handle boot(PathWith(kBoot));
  device_.Send(1, Padded({6, 1}, 8));
  device_.Send(1, Padded({0x44, 1}, 17));  // an id of no collection
  device_.Send(1, Padded({2, 1}, 3));      // of another one
  device_.Send(1, {8, 9});                 // too short: passed on or not, as the kernel likes
  device_.Send(1, Padded({8, 2}, 17));
  device_.Send(2, Padded({0x5A}, 63));
  EXPECT_EQ(events.Read(), Padded({6, 1}, 8));
  for (Handle* const handle : {&commands, &second}) {
    Bytes report = handle->Read();
    EXPECT_EQ(report.size(), 17u);
    if (report[1] == 9) report = handle->Read();
    EXPECT_EQ(report, Padded({8, 2}, 17));
  }
  EXPECT_EQ(boot.Read(), Padded({0, 0x5A}, 64)) << "as on Windows, with an id of 0";
  EXPECT_TRUE(events.Read(milliseconds(300)).empty());
}

// From the moment it opened, 32 of them.
TEST_F(MachineBus, QueuesReportsForEachHandle) {
  Handle early(PathWith(kCommands));
  for (uint8_t i = 0; i < 40; ++i) {
    device_.Send(1, Padded({8, i}, 17));
    std::this_thread::sleep_for(milliseconds(5));
  }
  std::this_thread::sleep_for(milliseconds(300));
  Handle late(PathWith(kCommands));
  EXPECT_EQ(early.Read(), Padded({8, 8}, 17));
  device_.Send(1, Padded({8, 77}, 17));
  EXPECT_EQ(late.Read(), Padded({8, 77}, 17));
}

TEST_F(MachineBus, KeepsAFileOpenForTheNextHandle) {
  const std::string node = Nodes()[2];
  const auto start = Clock::now();
  EXPECT_TRUE(Handle(PathWith(kBoot)).IsOpen());
  EXPECT_EQ(OpenDescriptors(node), 1u) << "the kernel's first opening takes 50 ms";
  EXPECT_TRUE(Eventually([&] { return OpenDescriptors(node) == 0; }, milliseconds(6000)));
  EXPECT_GT(Since(start), milliseconds(1900));
  const Handle again(PathWith(kBoot));
  std::this_thread::sleep_for(milliseconds(2500));
  EXPECT_EQ(OpenDescriptors(node), 1u) << "in use";
}

TEST_F(MachineBus, TellsHandlesOfARemoval) {
  const std::wstring path = PathWith(kCommands);
  const std::string node = Nodes()[1];
  auto reading = std::make_unique<Handle>(path);
  auto queued = std::make_unique<Handle>(path);
  auto query = std::make_unique<Handle>(path, 0);
  device_.Send(1, Padded({8, 1}, 17));
  EXPECT_EQ(reading->Read(), Padded({8, 1}, 17));
  EXPECT_TRUE(reading->Read(milliseconds(0)).empty());
  device_.Unplug();
  EXPECT_TRUE(reading->Read().empty());
  EXPECT_EQ(reading->error(), ERROR_DEVICE_NOT_CONNECTED);
  EXPECT_TRUE(queued->Read().empty()) << "what it had not read is forgotten";
  EXPECT_EQ(queued->Write(Padded({8}, 17)), ERROR_DEVICE_NOT_CONNECTED);
  EXPECT_EQ(queued->SetFeature(Padded({8}, 17)), ERROR_DEVICE_NOT_CONNECTED);
  ASSERT_TRUE(Eventually([] { return Paths().empty(); }));
  HIDD_ATTRIBUTES attributes{};
  EXPECT_FALSE(HidD_GetAttributes(query->get(), &attributes));
  EXPECT_EQ(Handle(path).error(), ERROR_FILE_NOT_FOUND);

  device_.Plug();
  ASSERT_TRUE(Eventually([&] { return PathWith(kCommands) == path; }));
  EXPECT_EQ(queued->Write(Padded({8}, 17)), ERROR_DEVICE_NOT_CONNECTED) << "an old handle";
  Handle fresh(path);
  EXPECT_EQ(fresh.Write(Padded({8}, 17)), 0u);
  reading.reset();
  queued.reset();
  query.reset();
  EXPECT_TRUE(Eventually([&] { return OpenDescriptors(node) + OpenDescriptors(Nodes()[1]) <= 1; }));
}

TEST_F(MachineBus, TellsWhyADeviceDidNotTakeAReport) {
  Handle commands(PathWith(kCommands));
  Handle boot(PathWith(kBoot));
  answer_ = Answer::kStall;
  EXPECT_EQ(commands.Write({8}), ERROR_GEN_FAILURE);
  EXPECT_EQ(commands.SetFeature({8}), ERROR_GEN_FAILURE);
  // A write that the device never takes keeps its caller, and nobody else.
  answer_ = Answer::kHold;
  TakeReceived();
  DWORD error = 0;
  std::thread writer([&] { error = boot.Write({0, 1}); });
  ASSERT_TRUE(Eventually([this] { return !TakeReceived().empty(); }));
  const auto start = Clock::now();
  EXPECT_EQ(Paths().size(), 7u);
  Handle second(PathWith(kCommands));
  device_.Send(1, Padded({8, 1}, 17));
  EXPECT_EQ(commands.Read(), Padded({8, 1}, 17));
  EXPECT_LT(Since(start), milliseconds(3000));
  writer.join();
  EXPECT_EQ(error, ERROR_SEM_TIMEOUT);
  answer_ = Answer::kTake;
  EXPECT_EQ(boot.Write({0, 1}), 0u);
}

// A read that was cancelled is over when the cancelling has been waited for, and takes no report.
TEST_F(MachineBus, CancelsReads) {
  auto reading = std::make_unique<Handle>(PathWith(kCommands));
  Handle other(PathWith(kCommands));
  EXPECT_TRUE(reading->Read(milliseconds(10)).empty());
  reading.reset();
  device_.Send(1, Padded({8, 3}, 17));
  EXPECT_EQ(other.Read(), Padded({8, 3}, 17));
}

TEST_F(MachineBus, IsNothingForAVirtualWorld) {
  EXPECT_DEATH(platform::StartVirtual(1), "StartVirtual must come before");
}

}  // namespace
}  // namespace perilink::testing
