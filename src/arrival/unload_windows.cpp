// The entry point of the DLL.
#include "arrival/arrival.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID process_ends);

// Succeeds for every reason. The system keeps the window class of a module that is unloaded, so it
// is unregistered here; when the process ends it goes with the process.
BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID process_ends) {
  if (reason == DLL_PROCESS_DETACH && process_ends == nullptr)
    UnregisterClassW(perilink::kNoticeClass, module);
  return TRUE;
}
