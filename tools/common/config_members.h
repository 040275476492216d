// The configuration record member by member: what its JSON form, its printed form and its diff
// walk. Names, offsets and sizes are those of the public headers.
#ifndef PERILINK_TOOLS_COMMON_CONFIG_MEMBERS_H_
#define PERILINK_TOOLS_COMMON_CONFIG_MEMBERS_H_

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "perilink/records.h"

namespace perilink::tools {

enum class MemberKind {
  kNumber,   // `size` bytes, little-endian
  kBytes,    // `count` bytes
  kText,     // `count` bytes that are mostly characters
  kRecords,  // `count` records of `size` bytes
  kEvents,   // the same, of which those after the last one in use need not be shown
};

struct Member {
  std::string name;
  MemberKind kind;
  size_t offset;
  size_t size;   // bytes of a number or of one record
  size_t count;  // bytes, characters or records; 1 for a number
  // Of a number, or of each byte: what the device can hold. 1 is never a number of events.
  uint32_t most = 0xFF;
  bool counts_events = false;
  bool unused = false;          // carried for the sake of completeness alone
  std::vector<Member> members;  // of each record
};

// The members of ProtocolData in the order of its bytes.
const std::vector<Member>& RecordMembers();

// The value of a member that holds no records, in its JSON form.
nlohmann::ordered_json LeafToJson(const Member& member, const uint8_t* value);

// A number of `size` bytes.
uint32_t ReadNumber(const uint8_t* bytes, size_t size);
void WriteNumber(uint8_t* bytes, size_t size, uint32_t value);

// "dpi_levels[2]"
std::string Indexed(const std::string& name, size_t index);
// "dpi_levels[2].color"; the name alone when there is nothing before it
std::string Joined(const std::string& path, const std::string& name);

}  // namespace perilink::tools

#endif  // PERILINK_TOOLS_COMMON_CONFIG_MEMBERS_H_
