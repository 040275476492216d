// Which memory read an answer belongs to.
#ifndef PERILINK_SRC_TRANSPORT_READ_ADDRESS_H_
#define PERILINK_SRC_TRANSPORT_READ_ADDRESS_H_

#include <cstdint>

namespace perilink {

enum class AddressMatch {
  kRight,     // the answer names the address that was asked for
  kUnproven,  // it names another one, as a device that echoes none does
  kForeign,   // it names another one, and the device is known to echo addresses
  kShort,  // it names the right one and carries less than was asked for: a shorter read's, perhaps
};

// Of a memory read or of its answer: the address, and how many bytes from there on.
struct ReadRange {
  uint16_t address;
  uint8_t length;
};

// What is known of a device's answers while it is open: whether they echo the address of the read.
// One that does can't be misunderstood: an answer that is late, comes twice or belongs to another
// program's read names another address.
//
// What an answer carries too little of is asked for again. A device that keeps answering so is
// taken at its word.
class AddressEcho {
 public:
  // `patience`: how many short answers to a read are not taken.
  explicit AddressEcho(int patience) : patience_(patience) {}

  // Takes an answer that nothing awaits. It may be the one to a read that another program's answer
  // was taken for.
  void Hear(const ReadRange& answered) { LookForEcho(answered.address); }

  // Takes an answer to a read of `asked`, the read that was written last.
  AddressMatch Judge(const ReadRange& asked, const ReadRange& answered) {
    if (asked.address != asked_) {
      asked_before_ = asked_;
      asked_ = asked.address;
      shorts_ = 0;
    }
    LookForEcho(answered.address);
    if (answered.address != asked_)
      return known_ ? AddressMatch::kForeign : AddressMatch::kUnproven;
    if (answered.length >= asked.length || answers_short_) return AddressMatch::kRight;
    answers_short_ = ++shorts_ > patience_;
    return answers_short_ ? AddressMatch::kRight : AddressMatch::kShort;
  }

  // Once true, an answer that was taken as unproven may have been foreign: its request is asked
  // again.
  bool known() const { return known_; }

 private:
  // The address of the last read or of the one before, other than 0, proves the echo. 0 proves
  // nothing: it is what a device without an echo says.
  void LookForEcho(uint16_t address) {
    known_ = known_ || (address != 0 && (address == asked_ || address == asked_before_));
  }

  uint16_t asked_ = 0;
  uint16_t asked_before_ = 0;
  bool known_ = false;
  int patience_;
  int shorts_ = 0;  // to the read that was written last
  bool answers_short_ = false;
};

}  // namespace perilink

#endif  // PERILINK_SRC_TRANSPORT_READ_ADDRESS_H_
