#include "perilink_platform/hid.h"

#include <new>

#include "call.h"
#include "hid_file.h"
#include "hid_guid.h"

using perilink::platform::CallMustFail;
using perilink::platform::Fail;
using perilink::platform::HandleTable;
using perilink::platform::HidFile;

void HidD_GetHidGuid(LPGUID guid) {
  *guid = perilink::platform::kHidGuid;
}

BOOLEAN HidD_GetAttributes(HANDLE handle, PHIDD_ATTRIBUTES attributes) {
  if (CallMustFail("HidD_GetAttributes")) return FALSE;
  const auto file = HandleTable::Get().Find<HidFile>(handle);
  if (file == nullptr) return Fail(ERROR_INVALID_HANDLE, BOOLEAN{FALSE});
  if (attributes == nullptr) return Fail(ERROR_INVALID_PARAMETER, BOOLEAN{FALSE});
  perilink::platform::HidAttributes values;
  const DWORD error = file->GetAttributes(values);
  if (error != 0) return Fail(error, BOOLEAN{FALSE});
  attributes->Size = sizeof(HIDD_ATTRIBUTES);
  attributes->VendorID = values.vendor_id;
  attributes->ProductID = values.product_id;
  attributes->VersionNumber = values.version;
  return TRUE;
}

BOOLEAN HidD_SetFeature(HANDLE handle, PVOID report, ULONG size) try {
  if (CallMustFail("HidD_SetFeature")) return FALSE;
  const auto file = HandleTable::Get().Find<HidFile>(handle);
  if (file == nullptr) return Fail(ERROR_INVALID_HANDLE, BOOLEAN{FALSE});
  if (report == nullptr) return Fail(ERROR_NOACCESS, BOOLEAN{FALSE});
  const DWORD error = file->SetFeature({static_cast<const uint8_t*>(report), size});
  return error == 0 ? BOOLEAN{TRUE} : Fail(error, BOOLEAN{FALSE});
} catch (const std::bad_alloc&) {
  return Fail(ERROR_NOT_ENOUGH_MEMORY, BOOLEAN{FALSE});
}
