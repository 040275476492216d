// The scripted device, by the short names that the tests use.
#ifndef PERILINK_TESTS_SUPPORT_SCRIPTED_DEVICE_H_
#define PERILINK_TESTS_SUPPORT_SCRIPTED_DEVICE_H_

#include "sim/scripted_device.h"
#include "transport/frame.h"

namespace perilink::testing {

using Report = sim::Bytes;
using sim::Closed;
using sim::kScriptedPath;
using sim::ReplyTo;
using sim::ScriptedDevice;
using sim::Written;

}  // namespace perilink::testing

#endif  // PERILINK_TESTS_SUPPORT_SCRIPTED_DEVICE_H_
