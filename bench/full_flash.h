// A configuration that is as long as one can be.
#ifndef PERILINK_BENCH_FULL_FLASH_H_
#define PERILINK_BENCH_FULL_FLASH_H_

#include <array>
#include <span>

#include "sim/flash_image.h"

namespace perilink::bench {

// Every slot filled to the last event, so that every one is read and parsed in whole.
inline sim::FlashImage FullFlash() {
  sim::FlashImage flash = sim::FlashImage::Default();
  std::array<sim::SlotEvent, 70> events{};
  for (size_t slot = 0; slot < sim::kSlotCount; ++slot) {
    flash.SetShortcut(slot, std::span(events).first(6));
    flash.SetMacro(slot, "a macro of seventy events", events);
  }
  return flash;
}

}  // namespace perilink::bench

#endif  // PERILINK_BENCH_FULL_FLASH_H_
