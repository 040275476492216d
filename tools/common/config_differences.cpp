// What differs between two configurations.
#include <algorithm>

#include "common/config.h"
#include "common/config_members.h"

namespace perilink::tools {
namespace {

// Copies what members cover, with the entries that are in use.
void CopyMembers(const std::vector<Member>& members, const uint8_t* source, uint8_t* target) {
  for (const Member& member : members) {
    size_t count = member.count;
    if (const Member* const measure = MeasureOf(members, member)) {
      count = std::min<size_t>(count, ReadNumber(source + measure->offset, measure->size));
    }
    for (size_t at = member.offset; count > 0; --count, at += member.size) {
      if (member.members.empty()) std::copy_n(source + at, member.size, target + at);
      CopyMembers(member.members, source + at, target + at);
    }
  }
}

void AddDifferences(const std::vector<Member>& members, const std::string& path,
                    const uint8_t* before, const uint8_t* after,
                    std::vector<Difference>& differences) {
  for (const Member& member : members) {
    const std::string name = Joined(path, member.name);
    const uint8_t* old_value = before + member.offset;
    const uint8_t* new_value = after + member.offset;
    if (!member.members.empty()) {
      for (size_t i = 0; i < member.count; ++i) {
        AddDifferences(member.members, Indexed(name, i), old_value + i * member.size,
                       new_value + i * member.size, differences);
      }
    } else if (!std::equal(old_value, old_value + member.size * member.count, new_value)) {
      const auto length = [&](const uint8_t* record) {
        const Member* const measure = MeasureOf(members, member);
        return measure == nullptr ? member.count
                                  : ReadNumber(record + measure->offset, measure->size);
      };
      differences.push_back({name, LeafToJson(member, old_value, length(before)),
                             LeafToJson(member, new_value, length(after))});
    }
  }
}

}  // namespace

ProtocolData Canonical(const ProtocolData& record) {
  ProtocolData canonical{};
  CopyMembers(RecordMembers(), &record.report_rate, &canonical.report_rate);
  return canonical;
}

std::vector<Difference> ConfigDifferences(const ProtocolData& before, const ProtocolData& after) {
  const ProtocolData old_record = Canonical(before);
  const ProtocolData new_record = Canonical(after);
  std::vector<Difference> differences;
  AddDifferences(RecordMembers(), "", &old_record.report_rate, &new_record.report_rate,
                 differences);
  return differences;
}

}  // namespace perilink::tools
