// From the battery's voltage to a percentage.
#ifndef PERILINK_SRC_BATTERY_VOLTAGE_TABLE_H_
#define PERILINK_SRC_BATTERY_VOLTAGE_TABLE_H_

#include <array>
#include <cstddef>
#include <cstdint>

namespace perilink {

inline constexpr size_t kVoltagePoints = 21;

// Millivolts of 0, 5, 10, ..., 100 percent. Hosts give them as unsigned values; they are compared
// as signed ones.
using VoltageTable = std::array<int32_t, kVoltagePoints>;

inline constexpr VoltageTable kDefaultVoltages = {
    3050, 3420, 3480, 3540, 3600, 3660, 3720, 3760, 3800, 3840, 3880,
    3920, 3940, 3960, 3980, 4000, 4020, 4040, 4060, 4080, 4110,
};

// The percentage of a voltage, 0 to 100 whatever the table holds. With the top voltage reached it
// is 99 for a charging flag of exactly 1, else 100.
uint8_t VoltageToPercent(const VoltageTable& table, uint16_t voltage, uint8_t charging_flag);

}  // namespace perilink

#endif  // PERILINK_SRC_BATTERY_VOLTAGE_TABLE_H_
