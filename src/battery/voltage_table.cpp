#include "battery/voltage_table.h"

#include <algorithm>

namespace perilink {

uint8_t VoltageToPercent(const VoltageTable& table, uint16_t voltage, uint8_t charging_flag) {
  // A battery on its charger shows its top voltage before it is full.
  if (voltage >= table.back()) return charging_flag == 1 ? 99 : 100;

  // Below the top voltage there is always a first point that lies above the voltage.
  const auto above = std::find_if(table.begin(), table.end(),
                                  [voltage](int32_t point) { return voltage < point; });
  if (above == table.begin()) return 1;

  // All points before the first one above the voltage are at most the voltage, so the difference
  // is positive even in a table that falls; five steps of it can still be less than 1 mV each.
  const int64_t below = *(above - 1);
  const int64_t step = std::max<int64_t>((*above - below) / 5, 1);
  const int64_t percent = 5 * (above - table.begin() - 1) + (voltage - below) / step;
  // 0 and 15 mark an empty and a low battery, which only the device itself may declare.
  if (percent == 0) return 1;
  if (percent == 15) return 16;
  // A difference that is not a multiple of 5 mV has up to three steps too many.
  return static_cast<uint8_t>(std::min<int64_t>(percent, 100));
}

}  // namespace perilink
