// The present HID interfaces, and those whose device path contains a key.
//
// Windows writes an interface's identifiers into its device path ("vid_" and four hexadecimal
// digits, "pid_" and four, "mi_" and the interface, "col" and the collection number), so a key
// selects interfaces by substring. Keys are lower-cased, paths are compared as reported.
#ifndef PERILINK_SRC_TRANSPORT_DISCOVERY_H_
#define PERILINK_SRC_TRANSPORT_DISCOVERY_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace perilink {

// Device paths as the system reports them, in its enumeration order.
using HidPathList = std::vector<std::wstring>;

// An enumeration that failed tells of no absence.
enum class Presence { kPresent, kAbsent, kUnknown };

// All of them enumerate afresh, open nothing, and report no errors: a system call that fails ends
// the enumeration with what it has collected. They throw only when memory runs out.
HidPathList EnumerateHidPaths();
HidPathList FindHidPaths(const std::wstring& vendor, const std::wstring& product);
// An empty key finds nothing; a whole device path finds that interface while it is present.
HidPathList FindHidPathsByKey(const std::wstring& key);
// The same; none if the enumeration failed, so that what it lacks may be present.
std::optional<HidPathList> FindAllHidPathsByKey(const std::wstring& key);
// Whether any present interface's path contains the key. Ends at the first one that does.
Presence FindPresence(const std::wstring& key);
// An empty product: the vendor's interfaces of any product.
HidPathList FindHidPathsByDeviceId(const std::wstring& vendor, const std::wstring& product,
                                   int32_t interface_number, int32_t collection_number);

}  // namespace perilink

#endif  // PERILINK_SRC_TRANSPORT_DISCOVERY_H_
