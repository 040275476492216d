#include "perilink/usb_changed.h"

void CS_StartUsbChanged(UsbChangedCallback callback, int32_t delay_ms) {
  StartUsbChanged(callback, delay_ms);
}
