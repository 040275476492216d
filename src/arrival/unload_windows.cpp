// The entry point of the DLL.
#include "arrival/arrival.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID process_ends);

// Succeeds for every reason. The system keeps the window classes of a module that is unloaded, to
// meet the same name again when it is loaded; those of a process that ends go with it.
BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID process_ends) {
  if (reason == DLL_PROCESS_DETACH && process_ends == nullptr)
    UnregisterClassW(perilink::kNoticeClass, module);
  return TRUE;
}
