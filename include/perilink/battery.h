/* The battery optimiser's settings.
 *
 * While the background server runs and the optimiser is enabled, the host is shown a smoothed
 * battery level instead of the device's jumping one: it starts from the level saved at the end of
 * the device's last connection and moves at most one percent per step. Three things move it
 * further: the device itself declares the battery low (15) or empty (0), ten readings in a row are
 * full (100), and `jump`, below. All functions may be called from any thread at any time, store
 * their arguments and return at once; the server takes them up on its next pass. A connection,
 * here, is one run of the server's loop. */
#ifndef PERILINK_BATTERY_H_
#define PERILINK_BATTERY_H_

#include "perilink/base.h"

PERILINK_BEGIN_DECLS

/* Switches the optimiser on (non-zero, as at load) or off (0). While it is off the server polls no
 * battery and the host gets the device's own battery answers and events. */
PERILINK_API void UsbServer_SetBatteryOptimizeEnable(uint8_t enable);
PERILINK_API void CS_UsbServer_SetBatteryOptimizeEnable(uint8_t enable);

/* Gives the starting point of the smoothing from the host's own records: the level (percent) that
 * was shown last, and how many seconds ago. Applies to the next start estimate of the connection
 * in place of the registry's record, which is then no longer written. -1 seconds: the registry's
 * record is used after all; any other negative number counts as very long ago. */
PERILINK_API void UsbServer_SetBatteryOptimizeLastBattery(int32_t elapsed_seconds, uint8_t level);
PERILINK_API void CS_UsbServer_SetBatteryOptimizeLastBattery(int32_t elapsed_seconds,
                                                             uint8_t level);

/* jump: non-zero lets the shown level jump to a measured one that differs by more than 30 percent
 * (0 at load). step_interval_ms: milliseconds between two steps (10000 at load).
 * near_full_interval_ms: the same while charging and nearly full (300000 at load). */
PERILINK_API void UsbServer_SetBatteryOptimizeParam(uint8_t jump, uint32_t step_interval_ms,
                                                    uint32_t near_full_interval_ms);
/* The same; any non-zero jump counts as 1. */
PERILINK_API void CS_UsbServer_SetBatteryOptimizeParam(int32_t jump, uint32_t step_interval_ms,
                                                       uint32_t near_full_interval_ms);

/* Replaces the table of battery voltages for this connection. voltages: 21 values in millivolts,
 * for 0, 5, 10, ..., 100 percent, rising by at least 5 mV from one to the next; they are copied.
 * Neighbours that rise by less are read in steps of 1 mV. */
PERILINK_API void UsbServer_SetBatteryOptimizeSection(const uint32_t* voltages);
PERILINK_API void CS_UsbServer_SetBatteryOptimizeSection(const uint32_t* voltages);

/* Makes the next successful battery poll choose the starting point anew. */
PERILINK_API void CS_UsbServer_ReStartBatteryOptimize(void);

PERILINK_END_DECLS

#endif /* PERILINK_BATTERY_H_ */
