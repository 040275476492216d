// Writes the inputs that fuzzing starts from, a folder for each target, with the builders that the
// tests and tools use:  make_seeds FOLDER
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iostream>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "common/config.h"
#include "perilink/protocol_data.h"
#include "registry_tree.h"
#include "sim/flash_image.h"
#include "sim/mouse.h"
#include "sim/report.h"
#include "sim/upgrade_file.h"
#include "sim/virtual_firmware.h"
#include "support/device_steps.h"
#include "support/host.h"
#include "support/loop_steps.h"
#include "support/report_descriptors.h"
#include "words/events_text.h"

namespace perilink::fuzz {
namespace {

using sim::Bytes;
using sim::FlashImage;
using sim::SlotEvent;

class Folder {
 public:
  Folder(const std::string& corpora, const char* target)
      : path_(std::filesystem::path(corpora) / target) {
    std::filesystem::create_directories(path_);
  }
  void Add(const char* name, std::string_view text) const {
    std::ofstream file(path_ / name, std::ios::binary);
    file << text;
    if (!file.flush()) throw std::runtime_error((path_ / name).string() + " can't be written");
  }
  void Add(const char* name, const Bytes& bytes) const {
    Add(name, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  }

 private:
  std::filesystem::path path_;
};

Bytes operator+(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// ---- Images ------------------------------------------------------------------------------------

std::vector<SlotEvent> Events(size_t count) {
  std::vector<SlotEvent> events;
  for (size_t i = 0; i < count; ++i) {
    const auto number = static_cast<uint8_t>(i);
    events.push_back({static_cast<uint8_t>(i % 3), static_cast<uint8_t>(i % 16), number, 1,
                      static_cast<uint16_t>(300 * i)});
  }
  return events;
}

FlashImage FullImage() {
  FlashImage image = FlashImage::Default();
  for (size_t slot = 0; slot < sim::kSlotCount; ++slot) {
    image.SetShortcut(slot, Events(slot % 8));
    image.SetMacro(slot, std::string(slot * 2, 'a'), Events(slot * 5 % 71));
  }
  return image;
}

FlashImage SmallImage() {
  FlashImage image = FlashImage::Default();
  image.SetShortcut(0, Events(2));
  image.SetMacro(0, "Copy", Events(2));
  return image;
}

Bytes Configuration(const FlashImage& image) {
  return Bytes(image.bytes().begin(), image.bytes().begin() + sim::kConfigurationSize);
}

void MakeImages(const Folder& folder) {
  const Bytes plain = Configuration(FlashImage::Default());
  const Bytes full = Configuration(FullImage());
  FlashImage broken = FullImage();
  for (const sim::FlashField& field : sim::FlashFields())
    broken.BreakField(field.address, field.width);
  folder.Add("plain", plain);
  folder.Add("settings", Bytes(plain.begin(), plain.begin() + PERILINK_SETTINGS_BLOCK_SIZE));
  folder.Add("erased", Configuration(FlashImage()));
  folder.Add("keyboard", Configuration(FlashImage::KeyboardDefault()));
  folder.Add("broken-full", Configuration(broken) + full);
  folder.Add("full-plain", full + plain);
  // The host adds to the first macro a name that no slot has room for.
  folder.Add("changed", plain + Configuration(SmallImage()) + Bytes{4, 12, 2, 31, 'x'});
}

// ---- Reports -----------------------------------------------------------------------------------

template <typename Step>
Bytes Do(Step step, const Bytes& operands = {}) {
  return Bytes{static_cast<uint8_t>(step)} + operands;
}

Bytes PatchFlash(uint8_t step, uint16_t address, const Bytes& bytes) {
  const Bytes head{step, static_cast<uint8_t>(address >> 8), static_cast<uint8_t>(address),
                   static_cast<uint8_t>(bytes.size())};
  return head + bytes;
}

// A shortcut and a macro, where the full read finds them.
Bytes PatchSlots(uint8_t step) {
  const FlashImage image = SmallImage();
  const auto cut = [&](size_t address, size_t size) {
    const auto bytes = image.bytes().subspan(address, size);
    return PatchFlash(step, static_cast<uint16_t>(address), Bytes(bytes.begin(), bytes.end()));
  };
  return cut(sim::ShortcutAddress(0), 8) + cut(sim::MacroAddress(0), 48);
}

Bytes HostUpdate(uint16_t offset, const Bytes& bytes) {
  return PatchFlash(static_cast<uint8_t>(HostStep::kUpdate), offset, bytes);
}

void MakeReports(const Folder& folder) {
  const Bytes callback = {0};
  const Bytes serve_all = Do(DeviceStep::kServe, {255});
  folder.Add("query", callback + Do(HostStep::kQuery, {sim::command::kVersion}) +
                          Do(DeviceStep::kAnswer, {2, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
  folder.Add("no-callback", Bytes{1} + Do(HostStep::kReadAll) + serve_all);
  folder.Add("online-and-battery", callback + Do(HostStep::kQuery, {sim::command::kOnLine}) +
                                       Do(HostStep::kQuery, {sim::command::kBattery}) +
                                       Do(DeviceStep::kServe, {2}));
  folder.Add("read-all", callback + Do(HostStep::kReadAll) + serve_all);
  folder.Add("whole-read", callback + PatchSlots(static_cast<uint8_t>(DeviceStep::kPatchFlash)) +
                               Do(DeviceStep::kSealFlash) + Do(DeviceStep::kWholeRead));
  folder.Add("memory", callback + Do(HostStep::kReadMemory, {0, 76, 0, 8, 0}) +
                           Do(HostStep::kReadMemory, {0, 0, 0, 25, 0}) + serve_all);
  folder.Add("update", callback + Do(DeviceStep::kWholeRead) + HostUpdate(0, {4, 6, 2}) +
                           Do(DeviceStep::kSpoiltEcho, {7, 1}) + serve_all);
  folder.Add("long-answer", callback + Do(HostStep::kKeyboard, {1}) +
                                Do(HostStep::kReadMemory, {0, 0, 4, 0, 200}) + serve_all);
  folder.Add("set", callback + Do(HostStep::kSet, {sim::command::kSetSerial, 3, 1, 2, 3}) +
                        Do(DeviceStep::kTimeout) + serve_all + Do(DeviceStep::kDrop));
  folder.Add("entry", callback + Do(HostStep::kEntry, Bytes{0, 83, 8, 0x21}) + Bytes(15) +
                          Do(DeviceStep::kReport, Bytes{8, 0x21, 0, 0, 0, 255}) + Bytes(11));
  folder.Add("smoothing", callback + Do(HostStep::kOptimizer, {1, 0, 90, 70, 0}) +
                              Do(DeviceStep::kBattery, {12, 0, 0x0F, 0x64}) +
                              Do(DeviceStep::kEvent, {0x45, 1, 2, 3, 4, 5, 6, 7, 8, 9}) +
                              Do(DeviceStep::kTime, {10}) +
                              Do(DeviceStep::kBattery, {100, 1, 0, 0}) +
                              Do(DeviceStep::kEvent, {0x40, 0, 0, 0, 0, 0, 0, 0, 0, 0}) +
                              Do(HostStep::kQuery, {sim::command::kBattery}) + serve_all);
}

void MakeLoops(const Folder& folder) {
  const Bytes callback = {0};
  const Bytes pass = Do(LoopStep::kPasses, {3});
  const auto reply = [](ReplyStep step, const Bytes& operands = {}) { return Do(step, operands); };
  const sim::Frame event = sim::MakeEvent(0x41);
  const Bytes raw_event = Bytes{17} + Bytes(event.begin(), event.end());
  folder.Add("query", callback + Do(HostStep::kQuery, {sim::command::kVersion}) + pass +
                          reply(ReplyStep::kRight) + pass);
  folder.Add("read-all", callback + PatchSlots(static_cast<uint8_t>(LoopStep::kPatchFlash)) +
                             Do(HostStep::kReadAll));
  folder.Add("unasked", callback + Do(LoopStep::kUnasked, raw_event) + pass +
                            Do(LoopStep::kUnaskedClosed, {3, 8, 10, 1}) + pass);
  folder.Add("odd-lengths", callback + Do(HostStep::kQuery, {sim::command::kBattery}) + pass +
                                reply(ReplyStep::kRaw, {5, 8, 4, 0, 0, 0}) +
                                Do(LoopStep::kTime, {20}) + pass +
                                reply(ReplyStep::kClosed, Bytes{30, 8, 4}) + Bytes(28));
  folder.Add("deaf", callback + Do(HostStep::kSet, {sim::command::kSetSerial, 1, 1}) + pass +
                         reply(ReplyStep::kSilence) + Do(LoopStep::kTime, {20}) + pass +
                         reply(ReplyStep::kFailure, {30}) + Do(LoopStep::kTime, {20}) + pass +
                         reply(ReplyStep::kGone) + pass + Do(LoopStep::kReplug) + pass);
  folder.Add("many", callback + Do(HostStep::kQuery, {sim::command::kOnLine}) + pass +
                         reply(ReplyStep::kMany, {40}) + pass + Do(LoopStep::kReopen) + pass +
                         Do(LoopStep::kUnplug) + pass);
  folder.Add("direct", callback + Do(LoopStep::kDirect, {sim::command::kVersion}) +
                           reply(ReplyStep::kOtherData, {2, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}) +
                           reply(ReplyStep::kRight) + Do(LoopStep::kLayer, {2}));
  folder.Add("smoothing", callback + Do(HostStep::kOptimizer, {1, 0, 90, 70, 0}) + pass +
                              Do(LoopStep::kUnasked, raw_event) + pass);
  folder.Add("update", callback + HostUpdate(0, {4, 6, 2}) + HostUpdate(1036, {1, 'a'}));
}

// ---- Files and texts ---------------------------------------------------------------------------

void MakeUpgrades(const Folder& folder) {
  const sim::Mouse mouse;
  const auto image = [&](size_t payload) { return sim::ImageFor(mouse, Bytes(payload, 0x5A)); };
  sim::UpgradeImage feature = sim::ImageFor(mouse, Bytes(40, 1), 0xFFFFFFF0, true);
  feature.product_name = std::string(80, 'p');
  sim::UpgradeImage liar = image(40);
  liar.payload_length = 0xFFFFFFFF;
  sim::UpgradeImage unchecked = image(33);
  unchecked.checked_length = 8193;
  unchecked.checksum = 0;
  const Bytes both = sim::UpgradeFileBuilder(image(100)).Slave(image(7)).Gap(13).Build();
  folder.Add("one", sim::UpgradeFileBuilder(image(100)).Build());
  folder.Add("empty", sim::UpgradeFileBuilder(image(0)).Build());
  folder.Add("feature", sim::UpgradeFileBuilder(feature).Build());
  folder.Add("two", both);
  folder.Add("cut", Bytes(both.begin(), both.end() - 1));
  folder.Add("liar", sim::UpgradeFileBuilder(liar).Build());
  folder.Add("unchecked", sim::UpgradeFileBuilder(unchecked).Build());
}

void MakeRecords(const Folder& folder) {
  const std::string text = {'\0'};
  folder.Add("text", text + "01736240580-85");
  folder.Add("hour-ago", text + "01736236985-20");
  folder.Add("too-high", text + "01736240584-255");
  folder.Add("wrapping", text + "100000000000000000000-300");
  folder.Add("no-record", text + "1-2-3");
  folder.Add("longest", text + std::string(253, '0') + "-42");
  const std::wstring wide = L"01736240580-85";
  const auto* const raw = reinterpret_cast<const uint8_t*>(wide.data());
  folder.Add("raw", Bytes{1, 3} + Bytes(raw, raw + wide.size() * sizeof(wchar_t)));
  platform::RegistryTree tree;
  auto& values = tree.Ensure(L"Software\\DeviceBatteryOptimize").values;
  values[L"batteryvalue_1a2b3c"] = {L"BatteryValue_1a2b3c", 1, Bytes(raw, raw + 56)};
  values[L"other"] = {L"\"Other\\\x1\u00e9", 3, {1, 2, 255}};
  folder.Add("file", "\x02" + tree.ToText());
}

ProtocolData Record(const FlashImage& image) {
  ProtocolData record{};
  ProtocolDataParser(image.bytes().data(), &record);
  return record;
}

std::string Content(const char* name) {
  std::ifstream file(name);
  return {std::istreambuf_iterator<char>(file), {}};
}

void MakeConfigs(const Folder& folder) {
  const ProtocolData small = Record(SmallImage());
  folder.Add("small", tools::ConfigToJson(small).dump());
  folder.Add("plain", tools::ConfigToJson(Record(FlashImage::Default())).dump());
  ProtocolData some = small;
  some.macros[3].name[0] = 0xFF;
  some.macros[3].events[1].delay = 7;
  folder.Add("uncounted", tools::ConfigToJson(some).dump(1));
  folder.Add("image", Configuration(FullImage()));
  folder.Add("mouse", Content(PERILINK_MODELS "/virtual-mouse.json"));
  folder.Add("keyboard", Content(PERILINK_MODELS "/virtual-keyboard.json"));
  folder.Add("events", tools::EventsToText(small.macros[0].events));
  folder.Add("name", "a\\\\b\\xff\xC3\xA9");
  folder.Add("number", "dpi_levels[2].color[1]=7");
  folder.Add("list", "led_bar=[1,2,3,4,5,6,7]");
  folder.Add("text", "macros[1].name=\"h\"");
}

void MakeDescriptors(const Folder& folder) {
  folder.Add("mouse", testing::kMouseDescriptor);
  folder.Add("commands", testing::kCommandDescriptor);
  folder.Add("boot", testing::kBootDescriptor);
  folder.Add("stacked", testing::kMouseDescriptor + Bytes{0xFE, 1, 0, 0, 0xA4, 0x77, 9, 9, 9, 9} +
                            testing::kBootDescriptor + Bytes{0xB4} + testing::kCommandDescriptor);
}

// A word a line, in quotes; only letters, digits and what stands in paths.
void MakeDictionary(const std::string& corpora) {
  std::ofstream file(std::filesystem::path(corpora) / "config_json.dict");
  const tools::Json document = tools::ConfigToJson(Record(SmallImage()));
  const tools::Json model = tools::Json::parse(Content(PERILINK_MODELS "/virtual-mouse.json"));
  for (const tools::Json* object :
       {&model, &model["fields"], &model["fields"]["dpi_levels[].value"], &document,
        &document["dpi_levels"][0], &document["shortcuts"][0], &document["macros"][0],
        &document["macros"][0]["events"][0]}) {
    for (const auto& item : object->items())
      file << '"' << item.key() << "\"\n";
  }
  for (const char* word : {"press:", "release:", "other:", "0400+10", "1000Hz", "#ff0000", "ctrl+c",
                           "\\\\x00", "[0]", "="})
    file << '"' << word << "\"\n";
}

void MakeSeeds(const std::string& corpora) {
  MakeImages(Folder(corpora, "flash_images"));
  MakeReports(Folder(corpora, "dispatcher"));
  MakeLoops(Folder(corpora, "server_loop"));
  MakeUpgrades(Folder(corpora, "upgrade_files"));
  MakeRecords(Folder(corpora, "registry_records"));
  MakeConfigs(Folder(corpora, "config_json"));
  MakeDescriptors(Folder(corpora, "report_descriptor"));
  MakeDictionary(corpora);
}

}  // namespace
}  // namespace perilink::fuzz

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: make_seeds FOLDER\n";
    return 2;
  }
  try {
    perilink::fuzz::MakeSeeds(argv[1]);
  } catch (const std::exception& error) {
    std::cerr << "make_seeds: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
