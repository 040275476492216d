#include "battery/optimizer.h"
#include "perilink/battery.h"

void CS_UsbServer_ReStartBatteryOptimize(void) {
  perilink::BatteryOptimizer::Instance().Restart();
}

void CS_UsbServer_SetBatteryOptimizeParam(int32_t jump, uint32_t step_interval_ms,
                                          uint32_t near_full_interval_ms) {
  UsbServer_SetBatteryOptimizeParam(jump != 0 ? 1 : 0, step_interval_ms, near_full_interval_ms);
}

void CS_UsbServer_SetBatteryOptimizeSection(const uint32_t* voltages) {
  UsbServer_SetBatteryOptimizeSection(voltages);
}
