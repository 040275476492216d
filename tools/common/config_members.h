// The configuration record member by member: what its JSON form, its words and its differences
// walk. Names, offsets and sizes are those of the public headers. Bytes that no member covers are
// padding: nothing shows, stores or compares them.
#ifndef PERILINK_TOOLS_COMMON_CONFIG_MEMBERS_H_
#define PERILINK_TOOLS_COMMON_CONFIG_MEMBERS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/json_text.h"
#include "perilink/records.h"

namespace perilink::tools {

enum class MemberKind {
  kNumber,   // `size` bytes, little-endian
  kBytes,    // `count` bytes
  kText,     // `count` bytes that are mostly characters
  kRecords,  // `count` records of `size` bytes
  kEvents,   // the same, of key events
};

struct Member {
  std::string name;
  MemberKind kind;
  size_t offset;
  size_t size;   // bytes of a number or of one record
  size_t count;  // bytes, characters or records; 1 for a number
  // Of a number, or of each byte: what the record can hold, and what of it a device keeps.
  uint32_t most = 0xFF;
  uint32_t kept_least = 0;
  uint32_t kept_most = 0xFFFFFFFF;
  // Of a number: the text or the events beside it whose length it is.
  std::string measures;
  std::vector<Member> members;  // of each record
};

// The members of ProtocolData in the order of its bytes.
const std::vector<Member>& RecordMembers();

// Null when there is none of that name.
const Member* FindMember(const std::vector<Member>& members, std::string_view name);
// The number that holds this member's length; null when it has none.
const Member* MeasureOf(const std::vector<Member>& members, const Member& measured);

// One value in the record: a member, or one entry of a member's list.
struct Place {
  const Member* member;
  bool is_entry;  // a byte of the member, or one of its records
  size_t offset;  // in ProtocolData
  size_t size;
  const std::vector<Member>* siblings;  // of the record that the member stands in
  size_t siblings_offset;               // of that record
};
// The value with this name, as in "dpi_levels[2].color". Throws ConfigError when there is none.
Place FindPlace(std::string_view path);

// The value of a member that holds no records, in its JSON form: a number, a list of bytes, or the
// text of `length` bytes.
Json LeafToJson(const Member& member, const uint8_t* value, size_t length);

// The record's bytes.
inline uint8_t* BytesOf(ProtocolData& record) {
  return &record.report_rate;
}
inline const uint8_t* BytesOf(const ProtocolData& record) {
  return &record.report_rate;
}

// A number of `size` bytes.
uint32_t ReadNumber(const uint8_t* bytes, size_t size);
void WriteNumber(uint8_t* bytes, size_t size, uint32_t value);

// "dpi_levels[2]"
std::string Indexed(const std::string& name, size_t index);
// "dpi_levels[2].color"; the name alone when there is nothing before it
std::string Joined(const std::string& path, const std::string& name);

}  // namespace perilink::tools

#endif  // PERILINK_TOOLS_COMMON_CONFIG_MEMBERS_H_
