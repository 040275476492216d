// One upgrade at a time: whose turn it is to use the upgrade records and the log.
#ifndef PERILINK_SRC_UPGRADE_TURN_H_
#define PERILINK_SRC_UPGRADE_TURN_H_

namespace perilink {

// Takes the turn. False while an upgrade has it, and always on the thread of an upgrade, so that a
// callback can't start another one.
bool TakeUpgradeTurn();

// Frees the records and the log for the next upgrade. The thread may still call its host to tell
// how it ended.
void GiveUpgradeTurn();

// Marks the calling thread as an upgrade's while it lives.
class UpgradeThreadMark {
 public:
  UpgradeThreadMark();
  ~UpgradeThreadMark();
  UpgradeThreadMark(const UpgradeThreadMark&) = delete;
  UpgradeThreadMark& operator=(const UpgradeThreadMark&) = delete;
};

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_TURN_H_
