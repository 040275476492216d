// A device's configuration: read whole, and written with every write acknowledged and read back.
#ifndef PERILINK_TOOLS_PERICTL_CONFIG_CONFIG_DEVICE_H_
#define PERILINK_TOOLS_PERICTL_CONFIG_CONFIG_DEVICE_H_

#include <functional>
#include <span>
#include <string>

#include "common/config_parts.h"
#include "selection/devices.h"
#include "server/server_session.h"
#include "words/vocabulary.h"

namespace perictl {

class ConfigDevice {
 public:
  // Runs the background server on an interface. Throws Failure when the device is not on line. What
  // fails is named in the words of the model, or as the record does.
  ConfigDevice(const std::string& path, bool keyboard,
               const perilink::tools::Model* model = nullptr);
  explicit ConfigDevice(const DeviceEntry& device)
      : ConfigDevice(device.path, device.keyboard, device.model) {}

  // Throws Failure when the device stops answering. Shows progress under the title.
  perilink::tools::DeviceConfig Read(const std::string& title = "reading");

  // Sends the writes, waits until the device has acknowledged each, and reads the configuration
  // back. Throws Failure, which names the fields, unless all of that succeeds. Ctrl-C ends it
  // behind the write that is under way: kInterrupted says what was written and what was not.
  void Write(const perilink::tools::ConfigUpdate& update);

 private:
  using ReportHandler = std::function<bool(const ServerReport&)>;

  size_t Send(const perilink::tools::ConfigUpdate& update);
  [[noreturn]] void FailInterrupted(const perilink::tools::ConfigUpdate& update,
                                    size_t acknowledged);
  std::string Names(std::span<const perilink::tools::ConfigPart> parts, size_t most = 8) const;
  bool Await(uint32_t timeout_ms, const ReportHandler& is_it);

  const std::string path_;
  const perilink::tools::Vocabulary words_;
  ServerSession session_;
};

}  // namespace perictl

#endif  // PERILINK_TOOLS_PERICTL_CONFIG_CONFIG_DEVICE_H_
