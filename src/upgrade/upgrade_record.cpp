#include "upgrade/upgrade_record.h"

#include <exception>

#include "upgrade/log.h"

namespace perilink {
namespace {

bool ImageLiesWithin(const uint8_t* image, size_t readable) {
  return readable == kUnknownLength || (readable >= PERILINK_UPGRADE_HEADER_SIZE &&
                                        ImageSize(ReadImageHeader(image)) <= readable);
}

void LogAndStore(const wchar_t* name, const TextField& field, std::wstring& text) {
  text = ReadTextField(field);
  LogLine(name, text);
}

// Of the interfaces of a device. One whose text is lost would look absent, and the upgrade would go
// another way.
struct TextLost : std::exception {};
void LogAndStoreKey(const wchar_t* name, const TextField& field, std::wstring& text) {
  LogAndStore(name, field, text);
  if (text.empty() && field[0] != '\0') throw TextLost();
}

void ParseTextFields(UsbUpgradeFile& record) {
  const UpgradeFileHeader& header = record.header;
  LogAndStore(L"File header icName:", header.chip_name, record.chip_name);
  LogAndStore(L"File header fileId:", header.file_id, record.file_id);
  LogAndStoreKey(L"File header bootInputEndPoint:", header.boot_input_key, record.boot_input_key);
  LogAndStoreKey(L"File header bootOutputEndPoint:", header.boot_output_key,
                 record.boot_output_key);
  LogAndStoreKey(L"File header normalInputEndPoint:", header.normal_input_key,
                 record.normal_input_key);
  LogAndStoreKey(L"File header normalOutputEndPoint:", header.normal_output_key,
                 record.normal_output_key);
  LogAndStore(L"File header senserName:", header.sensor_name, record.sensor_name);
  record.product_name = ReadTextField(header.product_name);
}

}  // namespace

void ParseUpgradeImage(UsbUpgradeFile& record, const uint8_t* image, UpgradeCallback callback,
                       uint32_t timeout, size_t readable) {
  record.valid = false;
  record.progress = 0;
  record.packets.clear();
  LogLine(L"File check init");
  if (!ImageLiesWithin(image, readable) || !CheckImageHeader(image)) {
    LogLine(L"Invalid header");
    return;
  }
  LogLine(L"File header check ok");
  record.valid = true;
  record.is_end = true;
  record.timeout = timeout;
  LogLine(L"File header memset");
  record.header = ReadImageHeader(image);
  record.callback = callback;
  ParseTextFields(record);
  LogLine(L"File header info ok");
  record.packets = BuildUpgradePackets(image);
  LogLine(L"Create Upgrade Packet OK");
}

bool ParseSlaveImage(const UsbUpgradeFile& main, const uint8_t* file, UpgradeCallback callback,
                     uint32_t timeout, UsbUpgradeFile& slave, size_t readable) {
  const uint32_t offset = main.header.slave_offset;
  if (offset == 0) return false;
  size_t rest = kUnknownLength;
  if (readable != kUnknownLength) rest = offset < readable ? readable - offset : 0;
  ParseUpgradeImage(slave, rest == 0 ? nullptr : file + offset, callback, timeout, rest);
  return true;
}

}  // namespace perilink
