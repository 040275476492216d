// One upgrade at a time: whose turn it is to use the upgrade records.
#ifndef PERILINK_SRC_UPGRADE_TURN_H_
#define PERILINK_SRC_UPGRADE_TURN_H_

namespace perilink {

// Takes the turn; false while an upgrade has it. An upgrade whose last event the host already has
// only lets go of its handles, so its end is waited for, at most a second, unless the caller is the
// upgrade's own callback.
bool TakeUpgradeTurn();

// On the upgrade thread, before the last event is delivered.
void AnnounceUpgradeEnd();

// The records and the log are free for the next upgrade.
void GiveUpgradeTurn();

}  // namespace perilink

#endif  // PERILINK_SRC_UPGRADE_TURN_H_
