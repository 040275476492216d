/* Notice of USB devices that come and go.
 *
 * The server does not reconnect by itself after its device was unplugged. A host starts this
 * notice, looks for its device whenever it is called, and then starts the server again.
 *
 * The library runs no message loop: its hidden window belongs to the thread that calls
 * StartUsbChanged, and later calls of the callback come on that thread, while it pumps messages. */
#ifndef PERILINK_USB_CHANGED_H_
#define PERILINK_USB_CHANGED_H_

#include "perilink/base.h"
#include "perilink/records.h"

PERILINK_BEGIN_DECLS

/* Calls `callback` (may be null) with true at once, on the calling thread and without the delay,
 * and from then on with true for every USB device that arrives and with false for every one that
 * goes. What it throws ends there. delay_ms: pause in milliseconds before each of those later
 * calls, spent sleeping on the window's thread; 0 or less for none. Started already, on whatever
 * thread, it only replaces callback and delay and calls back; but a window that went with its
 * thread, or was closed, is made anew. When the window can't be created there is only the immediate
 * call. */
PERILINK_API void StartUsbChanged(UsbChangedCallback callback, int32_t delay_ms);
PERILINK_API void CS_StartUsbChanged(UsbChangedCallback callback, int32_t delay_ms);

/* Ends the notice, from any thread: from then on no message calls back, but for one whose delay is
 * running. The window goes when its thread next pumps messages. Does nothing when not started.
 *
 * A host that unloads the library calls this first, on the window's thread and not from the
 * callback. Called elsewhere, it makes the library stay loaded: the window's thread may be in it.
 */
PERILINK_API void StopUsbChanged(void);
PERILINK_API void CS_StopUsbChanged(void);

/* Replaces callback and delay, from any thread: for the next call, and even for one whose delay
 * is running. */
PERILINK_API void SetUsbChangedCallBack(UsbChangedCallback callback, int32_t delay_ms);
PERILINK_API void CS_SetUsbChangedCallBack(UsbChangedCallback callback, int32_t delay_ms);

PERILINK_END_DECLS

#endif /* PERILINK_USB_CHANGED_H_ */
