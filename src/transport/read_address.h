// Which memory read an answer belongs to.
#ifndef PERILINK_SRC_TRANSPORT_READ_ADDRESS_H_
#define PERILINK_SRC_TRANSPORT_READ_ADDRESS_H_

#include <cstdint>

namespace perilink {

enum class AddressMatch {
  kRight,     // the answer names the address that was asked for
  kUnproven,  // it names another one, as a device that echoes none does
  kForeign,   // it names another one, and the device is known to echo addresses
};

// What is known of a device's answers while it is open: whether they echo the address of the read.
// One that does can't be misunderstood: an answer that is late, comes twice or belongs to another
// program's read names another address.
class AddressEcho {
 public:
  // Takes an answer to a read of `asked`, the read that was written last. An answer that names the
  // address of that read or of the one before, other than 0, proves the echo. 0 proves nothing: it
  // is what a device without an echo says.
  AddressMatch Judge(uint16_t asked, uint16_t answered) {
    if (asked != asked_) asked_before_ = asked_;
    asked_ = asked;
    if (answered != 0 && (answered == asked_ || answered == asked_before_)) known_ = true;
    if (answered == asked) return AddressMatch::kRight;
    return known_ ? AddressMatch::kForeign : AddressMatch::kUnproven;
  }

  // Once true, an answer that was taken as unproven may have been foreign: its request is asked
  // again.
  bool known() const { return known_; }

 private:
  uint16_t asked_ = 0;
  uint16_t asked_before_ = 0;
  bool known_ = false;
};

}  // namespace perilink

#endif  // PERILINK_SRC_TRANSPORT_READ_ADDRESS_H_
