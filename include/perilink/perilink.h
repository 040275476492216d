/* Everything that perilink exports, and what a host needs to know of the devices. */
#ifndef PERILINK_PERILINK_H_
#define PERILINK_PERILINK_H_

#include "perilink/base.h"
#include "perilink/battery.h"
#include "perilink/config_layout.h"
#include "perilink/finder.h"
#include "perilink/protocol.h"
#include "perilink/protocol_data.h"
#include "perilink/records.h"
#include "perilink/server.h"
#include "perilink/upgrade.h"
#include "perilink/usb_changed.h"
#include "perilink/version.h"

#endif /* PERILINK_PERILINK_H_ */
