#include "device_shapes.h"

#include <iterator>
#include <tuple>
#include <utility>

namespace perilink::sim {
namespace {

// Short items of a report descriptor, without the two bits that give their size.
enum Item : uint8_t {
  kUsagePage = 0x04,
  kUsage = 0x08,
  kLogicalMinimum = 0x14,
  kUsageMinimum = 0x18,
  kLogicalMaximum = 0x24,
  kUsageMaximum = 0x28,
  kReportSize = 0x74,
  kInput = 0x80,
  kReportId = 0x84,
  kOutput = 0x90,
  kReportCount = 0x94,
  kCollection = 0xA0,
  kFeature = 0xB0,
};
constexpr uint8_t kEndCollection = 0xC0;
constexpr int kPhysical = 0;  // kinds of collections
constexpr int kApplication = 1;
constexpr int kArray = 0;  // flags of fields
constexpr int kConstant = 1;
constexpr int kVariable = 2;
constexpr int kRelative = 4 | kVariable;

constexpr uint16_t kDesktop = 0x01;  // usage pages
constexpr uint16_t kKeys = 0x07;
constexpr uint16_t kButtons = 0x09;
constexpr uint16_t kConsumer = 0x0C;
constexpr uint16_t kVendor = 0xFF00;  // and those after it

// `count` values of `bits` bits, with the usages from `usage` to `last_usage`.
struct Field {
  uint16_t page;
  uint16_t usage;
  uint16_t last_usage;
  int minimum;
  int maximum;
  size_t bits;
  size_t count;
  int flags;
};

// Writes a collection's descriptor and, by the same calls, the lengths of its reports.
class Collection {
 public:
  Collection(uint16_t page, uint16_t usage, uint8_t report_id) {
    shape_.usage_page = page;
    shape_.usage = usage;
    shape_.report_id = report_id;
    Put(kUsagePage, page);
    Open(usage, kApplication);
    if (report_id != 0) Put(kReportId, static_cast<int8_t>(report_id));  // always in one byte
  }

  Collection& Open(uint16_t usage, int kind) {
    Put(kUsage, usage);
    Put(kCollection, kind);
    ++open_;
    return *this;
  }

  // Every field makes up whole bytes.
  Collection& Add(Item kind, const Field& field) {
    Put(kUsagePage, field.page);
    if (field.usage == field.last_usage) {
      Put(kUsage, field.usage);
    } else {
      Put(kUsageMinimum, field.usage);
      Put(kUsageMaximum, field.last_usage);
    }
    Put(kLogicalMinimum, field.minimum);
    Put(kLogicalMaximum, field.maximum);
    Put(kReportSize, static_cast<int>(field.bits));
    Put(kReportCount, static_cast<int>(field.count));
    Put(kind, field.flags);
    size_t& length = kind == kInput    ? shape_.input_length
                     : kind == kOutput ? shape_.output_length
                                       : shape_.feature_length;
    length += (length == 0 ? 1 : 0) + field.bits * field.count / 8;
    return *this;
  }

  CollectionShape Close() {
    shape_.descriptor.insert(shape_.descriptor.end(), open_, kEndCollection);
    return std::move(shape_);
  }

 private:
  // In two bytes from 128 on, since minima and maxima are signed.
  void Put(Item item, int value) {
    const bool one_byte = value >= -128 && value < 128;
    shape_.descriptor.push_back(static_cast<uint8_t>(item | (one_byte ? 1 : 2)));
    shape_.descriptor.push_back(static_cast<uint8_t>(value));
    if (!one_byte) shape_.descriptor.push_back(static_cast<uint8_t>(value >> 8));
  }

  CollectionShape shape_;
  size_t open_ = 0;
};

CollectionShape Pointer(uint8_t id) {
  return Collection(kDesktop, 0x02, id)
      .Open(0x01, kPhysical)
      .Add(kInput, {kButtons, 1, 8, 0, 1, 1, 8, kVariable})
      .Add(kInput, {kDesktop, 0x30, 0x31, -32767, 32767, 16, 2, kRelative})  // X, Y
      .Add(kInput, {kDesktop, 0x38, 0x38, -127, 127, 8, 1, kRelative})       // wheel
      .Add(kInput, {kConsumer, 0x0238, 0x0238, -127, 127, 8, 1, kRelative})  // and to the side
      .Close();
}

CollectionShape Keyboard(uint8_t id) {
  return Collection(kDesktop, 0x06, id)
      .Add(kInput, {kKeys, 0xE0, 0xE7, 0, 1, 1, 8, kVariable})  // shift and its like
      .Add(kInput, {kKeys, 0, 0, 0, 0, 8, 1, kConstant})
      .Add(kInput, {kKeys, 0, 0x65, 0, 0x65, 8, 6, kArray})
      .Close();
}

CollectionShape ConsumerControl(uint8_t id) {
  return Collection(kConsumer, 0x01, id)
      .Add(kInput, {kConsumer, 0, 0x03FF, 0, 0x03FF, 16, 1, kArray})
      .Close();
}

CollectionShape SystemControl(uint8_t id) {
  return Collection(kDesktop, 0x80, id)
      .Add(kInput, {kDesktop, 0x81, 0x83, 1, 3, 8, 1, kArray})
      .Close();
}

CollectionShape VendorInput(uint8_t id) {
  return Collection(kVendor + 1, 0x01, id)
      .Add(kInput, {kVendor + 1, 0x02, 0x02, 0, 255, 8, 7, kVariable})
      .Close();
}

// Reports of `length` bytes, id byte included, each way and as features.
CollectionShape Channel(uint16_t page, uint8_t id, size_t length, bool input_only = false) {
  const auto bytes = [&](uint16_t usage) {
    return Field{page, usage, usage, 0, 255, 8, length - 1, kVariable};
  };
  Collection collection(page, 0x01, id);
  collection.Add(kInput, bytes(0x02));
  if (!input_only) collection.Add(kOutput, bytes(0x03)).Add(kFeature, bytes(0x04));
  return collection.Close();
}

// The collections that stand before the command collection, as a mouse with receiver shows them.
constexpr CollectionShape (*kOthers[])(uint8_t id) = {Keyboard, ConsumerControl, SystemControl,
                                                      VendorInput};

InterfaceShape CommandInterface(size_t collections) {
  InterfaceShape shape;
  for (size_t i = 0; i + 1 < collections; ++i) {
    const size_t id = i + 1 < kCommandReportId ? i + 1 : i + 2;
    shape.collections.push_back(kOthers[i % std::size(kOthers)](static_cast<uint8_t>(id)));
  }
  shape.collections.push_back(Channel(kVendor + 2, kCommandReportId, std::tuple_size_v<Frame>));
  return shape;
}

UsbShape Identity(const DeviceOptions& options, uint16_t product_id) {
  UsbShape shape;
  shape.vendor_id = options.vendor_id;
  shape.product_id = product_id;
  shape.version = options.version_number;
  shape.manufacturer = options.firmware.vendor_text;
  shape.product = options.firmware.product_text;
  shape.serial = options.instance;
  return shape;
}

}  // namespace

UsbShape NormalShape(const DeviceOptions& options) {
  UsbShape shape = Identity(options, options.product_id);
  for (size_t i = 0; i < options.interface_number; ++i)
    shape.interfaces.push_back({{options.firmware.keyboard ? Keyboard(0) : Pointer(0)}});
  shape.interfaces.push_back(CommandInterface(options.collection));
  shape.input = {options.interface_number, shape.interfaces.back().collections.size() - 1};
  shape.output = shape.input;
  return shape;
}

UsbShape BootShape(const DeviceOptions& options, const BootOptions& boot) {
  UsbShape shape = Identity(options, boot.product_id);
  const auto add = [&](bool input_only) {
    shape.interfaces.push_back(
        {{Channel(kVendor, boot.report_id, boot.report_length, input_only)}});
  };
  if (boot.separate_interfaces) add(true);
  add(false);
  shape.output = {shape.interfaces.size() - 1, 0};
  return shape;
}

}  // namespace perilink::sim
