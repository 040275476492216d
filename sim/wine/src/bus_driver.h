/* What the bus driver and its users say to each other: control codes, and what goes with each.
 *
 * A user opens kHidBusPath and plugs in children. Each child is a top-level collection with a HID
 * stack of its own above it. What it plugged in is unplugged when its handle closes, so that a user
 * that crashes leaves nothing behind. */
#ifndef PERILINK_SIM_WINE_SRC_BUS_DRIVER_H_
#define PERILINK_SIM_WINE_SRC_BUS_DRIVER_H_

#define HID_BUS_NAME L"PerilinkHidBus"
#define HID_BUS_CODE(number) CTL_CODE(FILE_DEVICE_UNKNOWN, 0x800 + (number), METHOD_BUFFERED, 0)
/* HidBusChild in. Its stack is built after the call. */
#define HID_BUS_PLUG HID_BUS_CODE(0)
/* HidBusReport in, an input report: only `child`, `length` and `bytes` count. */
#define HID_BUS_SEND HID_BUS_CODE(1)
/* HidBusAnswer in, HidBusReport out: the next report that was written to any of the user's
 * children, whose writer waits until it is answered. Pending until there is one; one at a time. */
#define HID_BUS_NEXT HID_BUS_CODE(2)
/* ULONG in: unplugs the child of this number. Its pending reads and writes end. */
#define HID_BUS_UNPLUG HID_BUS_CODE(3)
/* Ends the pending HID_BUS_NEXT, and every later one, with STATUS_CANCELLED. */
#define HID_BUS_LEAVE HID_BUS_CODE(4)
/* ULONG in and out, the latter how many children, of any user, have been unplugged and are still
 * known to the system. One that is unplugged while its stack is built shows up before it goes. */
#define HID_BUS_LEAVING HID_BUS_CODE(5)

#define HID_BUS_TEXT 64

typedef struct {
  ULONG number; /* the user's own choice, different for each of its children */
  USHORT vendor_id;
  USHORT product_id;
  USHORT version;
  BOOLEAN usb;              /* not a collection but the whole device, of which USB notices tell */
  WCHAR kind[HID_BUS_TEXT]; /* "VID_1234&PID_ABCD&MI_01&Col05" */
  WCHAR instance[HID_BUS_TEXT]; /* children of one kind have different ones */
  USHORT descriptor_length;
  UCHAR descriptor[512]; /* a report descriptor */
} HidBusChild;

/* A report as it goes over the wire: without an id byte where there are no ids. */
typedef struct {
  ULONG child;
  ULONG ticket; /* 0 is none */
  BOOLEAN feature;
  ULONG length;
  UCHAR bytes[512];
} HidBusReport;

typedef struct {
  ULONG ticket; /* of the report that this answers; 0: none */
  LONG status;  /* the NTSTATUS that its write ends with */
} HidBusAnswer;

#endif /* PERILINK_SIM_WINE_SRC_BUS_DRIVER_H_ */
