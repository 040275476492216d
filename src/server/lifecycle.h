// Starting the background server, and the life of its thread.
#ifndef PERILINK_SRC_SERVER_LIFECYCLE_H_
#define PERILINK_SRC_SERVER_LIFECYCLE_H_

#include <string>

#include "perilink/records.h"
#include "platform/win32.h"

namespace perilink {

enum class Target { kMouse, kKeyboard };

// The start sequence of all start exports. Returns the handle of the thread that it made, which is
// the caller's to close, or null if the thread was running already or could not be made.
HANDLE StartServer(const std::wstring& input_path, const std::wstring& output_path,
                   ServerReportCallback callback, Target target);

// The same for the exports that do not give the handle to their host.
void StartServerDetached(const std::wstring& input_path, const std::wstring& output_path,
                         ServerReportCallback callback, Target target);

}  // namespace perilink

#endif  // PERILINK_SRC_SERVER_LIFECYCLE_H_
