// Makes an upgrade file from a payload, for tests and for people who develop devices.
//
//   make_upgrade --payload mouse.bin --normal-input 'vid_1234&pid_abcd&mi_01&col05'
//                --boot-input 'vid_1234&pid_b007' --output mouse.upgrade
//
// A second image, for the slave device of a set, is described by the same options with "slave-"
// in front.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <stdexcept>

#include "common/files.h"
#include "perilink/protocol.h"
#include "perilink/version.h"
#include "sim/upgrade_file.h"
#include "sim/virtual_firmware.h"

namespace perilink::tools {
namespace {

using sim::Bytes;

// What the command line says of one image.
struct ImageOptions {
  std::string payload_file;
  uint16_t virtual_version = 0;
  size_t virtual_size = 40'000;
  std::string reset_hex;
  std::string start_hex;
  bool feature = false;
  uint8_t report_id = 0;
  uint8_t packet_length = 64;
  uint32_t address = 0x00010000;
  sim::UpgradeImage image;
};

void AddImageOptions(CLI::App& app, const std::string& prefix, ImageOptions& o) {
  const std::string group = prefix.empty() ? "Main image" : "Slave image";
  const auto add = [&](const char* name, auto& value, const char* description) {
    return app.add_option("--" + prefix + name, value, description)->group(group);
  };
  CLI::Option* payload = add("payload", o.payload_file, "File with the firmware's bytes");
  payload->check(CLI::ExistingFile);
  add("virtual-version", o.virtual_version,
      "Instead of a payload: firmware of this version (0x0103) that virtual devices accept")
      ->excludes(payload);
  add("virtual-size", o.virtual_size, "Bytes of that firmware")->check(CLI::Range(16, 16 << 20));
  add("normal-input", o.image.normal_input, "Key of the interface to read in normal mode");
  add("normal-output", o.image.normal_output, "Key of the one to write (default: the same)");
  add("boot-input", o.image.boot_input, "Key of the interface to read in boot mode");
  add("boot-output", o.image.boot_output, "Key of the one to write (default: the same)");
  add("reset", o.reset_hex,
      "Reset command in hexadecimal, at most 62 bytes; its echo is awaited when byte 5 is not 0 "
      "(default: command 0x0D with echo)");
  add("start", o.start_hex,
      "First packet in hexadecimal, at most 62 bytes (default: 0xB0 with address and length)");
  app.add_flag("--" + prefix + "feature", o.feature, "Send feature reports, not output reports")
      ->group(group);
  add("report-id", o.report_id, "First byte of every packet");
  add("packet-length", o.packet_length, "Bytes of a packet")->check(CLI::Range(49, 64));
  add("address", o.address, "Where the payload goes in the device");
  add("file-id", o.image.file_id, "What the file calls itself, at most 64 bytes");
  add("ic-name", o.image.ic_name, "The device's chip, at most 64 bytes");
  add("sensor-name", o.image.sensor_name, "Its sensor, at most 64 bytes");
  add("product-name", o.image.product_name, "Its name, at most 64 bytes");
  add("checked-length", o.image.checked_length, "End of the checksummed part of the header")
      ->check(CLI::Range(8, 8192));
}

constexpr size_t kLongestPayload = size_t{64} << 20;

Bytes ReadPayload(const std::string& name) {
  const std::string content = ReadWholeFile(name, kLongestPayload);
  return {content.begin(), content.end()};
}

Bytes ParseHex(const std::string& hex, const char* what) {
  Bytes bytes;
  for (size_t at = 0; at < hex.size(); at += 2) {
    const std::string digits = hex.substr(at, 2);
    if (digits.size() != 2 || digits.find_first_not_of("0123456789abcdefABCDEF") != digits.npos)
      throw std::runtime_error(std::string(what) + " is not pairs of hexadecimal digits");
    bytes.push_back(static_cast<uint8_t>(std::stoi(digits, nullptr, 16)));
  }
  if (bytes.size() > 62) throw std::runtime_error(std::string(what) + " exceeds 62 bytes");
  return bytes;
}

Bytes DefaultReset() {
  const uint8_t echo = 1;
  const sim::Frame frame = sim::MakeFrame(sim::command::kUpdateMode, 1, {&echo, 1});
  return {frame.begin(), frame.end()};
}

Bytes BigEndian(uint32_t value) {
  return {static_cast<uint8_t>(value >> 24), static_cast<uint8_t>(value >> 16),
          static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
}

sim::UpgradeCommand Command(Bytes data, bool feature) {
  return {static_cast<uint8_t>(data.size()), feature, std::move(data)};
}

sim::UpgradeImage Complete(ImageOptions& o) {
  sim::UpgradeImage& image = o.image;
  if (image.normal_input.empty() || image.boot_input.empty())
    throw std::runtime_error("each image needs --normal-input and --boot-input");
  if (image.normal_output.empty()) image.normal_output = image.normal_input;
  if (image.boot_output.empty()) image.boot_output = image.boot_input;
  for (const std::string* key :
       {&image.normal_input, &image.normal_output, &image.boot_input, &image.boot_output,
        &image.file_id, &image.ic_name, &image.sensor_name, &image.product_name})
    if (key->size() > 64) throw std::runtime_error("a text exceeds 64 bytes: " + *key);
  image.payload = o.payload_file.empty()
                      ? sim::MakeVirtualFirmware(o.virtual_version, o.virtual_size)
                      : ReadPayload(o.payload_file);

  image.reset =
      Command(o.reset_hex.empty() ? DefaultReset() : ParseHex(o.reset_hex, "--reset"), o.feature);
  Bytes packet = {o.report_id, 0, 0, 0, 0};
  const Bytes address = BigEndian(o.address);
  packet.insert(packet.end(), address.begin(), address.end());
  image.packet = {o.packet_length, o.feature, packet};
  Bytes start = packet;
  start[PERILINK_PACKET_CODE_OFFSET] = PERILINK_BOOT_START;
  const Bytes length = BigEndian(static_cast<uint32_t>(image.payload.size()));
  start.insert(start.end(), length.begin(), length.end());
  image.start = Command(o.start_hex.empty() ? start : ParseHex(o.start_hex, "--start"), o.feature);
  return image;
}

bool HasPayload(const ImageOptions& o) {
  return !o.payload_file.empty() || o.virtual_version != 0;
}

int Run(int argc, char** argv) {
  CLI::App app("Makes an upgrade file from a payload.");
  ImageOptions main;
  ImageOptions slave;
  std::string output;
  app.add_option("--output,-o", output, "The file to make")->required();
  AddImageOptions(app, "", main);
  AddImageOptions(app, "slave-", slave);
  app.set_version_flag("--version", "make_upgrade " PERILINK_VERSION_TEXT, "Print the version");
  app.footer(
      "For example:\n"
      "  make_upgrade --virtual-version 0x0103 --output mouse.upgrade\n"
      "    --normal-input 'vid_1234&pid_abcd&mi_01&col05' --boot-input 'vid_1234&pid_b007'");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const int code = app.exit(error);
    if (!std::cout.flush()) throw std::runtime_error("the output can't be written");
    return code;
  }
  if (!HasPayload(main)) throw std::runtime_error("give --payload or --virtual-version");
  sim::UpgradeFileBuilder builder(Complete(main));
  if (HasPayload(slave)) builder.Slave(Complete(slave));
  const Bytes file = builder.Build();
  WriteWholeFile(output, std::string(file.begin(), file.end()));
  std::cout << output << ": " << file.size() << " bytes" << std::endl;
  if (!std::cout) throw std::runtime_error("the output can't be written");
  return 0;
}

}  // namespace
}  // namespace perilink::tools

int main(int argc, char** argv) {
  try {
    return perilink::tools::Run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "make_upgrade: " << error.what() << "\n";
    return 1;
  }
}
